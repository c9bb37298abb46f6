// Resampling through audio objects and the converter, chunk by chunk.
#include "audio_resample.h"

#include <algorithm>
#include <cstring>

namespace lmxtool {

using namespace Norvik::Lumetra;

namespace {

// The converter's filter history (in input frames) that a final chunk of silence
// pushes out.
constexpr int32_t kTailFrames = 64;

std::string Refused(const std::string& step, Status sts) { return step + ": " + StatusText(sts); }

// A new audio object holding `frames` frames of interleaved samples.
std::string MakeSource(LMXAllocator* allocator, const int16_t* samples, int32_t frames, int32_t rate, int32_t channels,
                       Ref<LMXAudio>* audio) {
  LMXAudio::AudioInfo info{};
  info.bufferSize = frames * channels;
  info.format = LMXAudio::AUDIO_FORMAT_PCM;
  info.sampleRate = rate;
  info.nchannels = channels;
  // CreateAudio takes its records untyped until the audio records are declared in
  // the allocator's header; the pointer converts either way.
  Status sts = allocator->CreateAudio(&info, 0, nullptr, audio->Out());
  if (sts < 0) return Refused("creating an audio object", sts);
  LMXAudio::AudioData data{};
  sts = (*audio)->AcquireAccess(LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_PCM, &data);
  if (sts < 0) return Refused("writing the audio object", sts);
  if (samples) {
    std::memcpy(data.dataPtr, samples, static_cast<size_t>(info.bufferSize) * sizeof(int16_t));
  } else {
    std::memset(data.dataPtr, 0, static_cast<size_t>(info.bufferSize) * sizeof(int16_t));
  }
  data.dataSize = info.bufferSize;
  sts = (*audio)->ReleaseAccess(&data);
  return sts < 0 ? Refused("finishing the audio write", sts) : "";
}

std::string AppendSamples(LMXAudio* audio, std::vector<int16_t>* samples) {
  LMXAudio::AudioData data{};
  const Status sts = audio->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_PCM, &data);
  if (sts < 0) return Refused("reading the converted audio", sts);
  const auto* first = reinterpret_cast<const int16_t*>(data.dataPtr);
  if (first && data.dataSize > 0) samples->insert(samples->end(), first, first + data.dataSize);
  audio->ReleaseAccess(&data);
  return "";
}

}  // namespace

std::string Resample(Library& library, const Sound& in, int32_t rate, Sound* out, int* chunks, int32_t chunkFrames) {
  if (in.rate <= 0 || in.channels <= 0 || rate <= 0) return "the rates and channel count must be positive";
  Ref<LMXAudioConversion> converter;
  Status sts = library.CreateAudioConverter(converter.Out());
  if (sts < 0) return Refused("creating the audio converter", sts);

  out->rate = rate;
  out->channels = 1;
  out->samples.clear();
  LMXAudio::AudioInfo target{};
  target.format = LMXAudio::AUDIO_FORMAT_PCM;
  target.sampleRate = rate;
  target.nchannels = 1;
  int calls = 0;
  const int64_t frames = in.Frames();
  for (int64_t at = 0;; at += chunkFrames) {
    const bool tail = at >= frames;
    const int32_t count = tail ? kTailFrames : static_cast<int32_t>(std::min<int64_t>(chunkFrames, frames - at));
    Ref<LMXAudio> source;
    std::string error = MakeSource(library.Allocator(), tail ? nullptr : in.samples.data() + at * in.channels, count,
                                   in.rate, in.channels, &source);
    if (!error.empty()) return error;
    LMXAudio* converted = nullptr;
    sts = converter->ConvertAudio(source.Get(), target, converted);
    Ref<LMXAudio> result(converted);  // may be set even when the call failed
    if (sts < 0) return Refused("converting a chunk", sts);
    if (!result) return Refused("converting a chunk", LMX_STATUS_HANDLE_INVALID);
    error = AppendSamples(result.Get(), &out->samples);
    if (!error.empty()) return error;
    ++calls;
    if (tail) break;
  }
  // The silence fed last only flushes the filter: keep the input's duration.
  const auto wanted = static_cast<size_t>((frames * rate + in.rate / 2) / in.rate);
  out->samples.resize(wanted, 0);
  if (chunks) *chunks = calls;
  return "";
}

}  // namespace lmxtool
