// audio_resample.h: a sound through the library's audio converter.
#pragma once

#include <string>

#include "library.h"
#include "wav_io.h"

namespace lmxtool {

// Feeds `in` in chunks of chunkFrames through one converter (the stream keeps its
// filter history across chunks) and returns 16-bit mono at `rate`, as long as the
// input in time. *chunks counts the converter calls. "" on success, else the step
// that failed with the library's status text.
std::string Resample(Library& library, const Sound& in, int32_t rate, Sound* out, int* chunks = nullptr,
                     int32_t chunkFrames = 4096);

}  // namespace lmxtool
