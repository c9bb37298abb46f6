// wav_io.h: WAV files through libsndfile (when it was found at build time).
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lmxtool {

// Interleaved 16-bit samples.
struct Sound {
  int32_t rate = 0;
  int32_t channels = 0;
  std::vector<int16_t> samples;
  int64_t Frames() const { return channels ? static_cast<int64_t>(samples.size()) / channels : 0; }
};

bool WavSupported();
// Any rate and channel count libsndfile reads, as 16-bit samples. "" on success.
std::string ReadWav(const std::filesystem::path& path, Sound* sound);
// 16-bit PCM; no partial file is left on failure.
std::string WriteWav(const std::filesystem::path& path, const Sound& sound);

}  // namespace lmxtool
