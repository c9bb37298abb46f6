// Fuzz target: the resampling audio converter. One stream (rates, channel counts
// and length from the input, bounded) is converted by two fresh converters, in
// chunks of fuzzed sizes and in one chunk: both succeed or fail alike and agree
// sample for sample over their common length. Each call stops before input end -
// history + frac(t), t its starting read position, so the lengths may differ by up
// to ceil(dstRate / srcRate) frames. The fake audio objects hold exactly the
// capacity the converter asked for.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "audio/audio_converter.h"
#include "audio_fakes.h"
#include "fuzz_support.h"

using lmx::AudioConverter;
using lmxtest::VectorAudio;

using namespace Norvik::Lumetra;

namespace {

struct Output {
  bool ok = true, refused = false;  // every call succeeded; one found no destination
  std::vector<int16_t> samples;
  int64_t count = 0;
};

// Converts samples[0..) in chunks of `chunks[i]` frames (the last one takes the rest).
Output Convert(const std::vector<int16_t>& samples, const LMXAudio::AudioInfo& src_info,
               const LMXAudio::AudioInfo& dst_info, const std::vector<int32_t>& chunks) {
  auto* allocator = new lmxtest::FakeAllocator;
  AudioConverter* converter = new AudioConverter(allocator);
  Output output;
  const size_t frames = samples.size() / static_cast<size_t>(src_info.nchannels);
  size_t at = 0;
  for (size_t i = 0; i <= chunks.size() && (at < frames || i == 0); ++i) {
    const size_t take = i < chunks.size() ? std::min<size_t>(chunks[i], frames - at) : frames - at;
    LMXAudio::AudioInfo info = src_info;
    info.bufferSize = static_cast<int32_t>(take * src_info.nchannels);
    const auto first = samples.begin() + static_cast<ptrdiff_t>(at * src_info.nchannels);
    auto* src = lmxtest::MakeAudio(info.format, info.sampleRate, info.nchannels,
                                   std::vector<int16_t>(first, first + info.bufferSize));
    at += take;

    LMXAudio* dst = nullptr;
    const Status sts = converter->ConvertAudio(src, dst_info, dst);
    // The same-rate copy answers CopyAudio's own status; only success or failure is compared.
    output.ok = output.ok && sts >= 0;
    output.refused = output.refused || sts == LMX_STATUS_ALLOC_FAILED;
    if (dst) {
      auto* audio = static_cast<VectorAudio*>(dst);
      Check(audio->dataSize >= 0 && audio->dataSize <= audio->QueryInfo().bufferSize);
      if (sts >= 0) {
        output.count += audio->dataSize;
        // Only mono destinations and same-rate copies receive samples; others just count.
        const bool copy = dst_info.sampleRate == src_info.sampleRate && dst_info.nchannels == src_info.nchannels;
        if (dst_info.nchannels == 1 || copy)
          for (int16_t sample : audio->Samples<int16_t>()) output.samples.push_back(sample);
      }
      dst->Release();
    }
    src->Release();
  }
  converter->Release();
  allocator->Release();
  return output;
}

int32_t ConsumeRate(FuzzedDataProvider& input) {
  static constexpr int32_t kCommon[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000, 96000};
  if (input.ConsumeBool()) return input.PickValueInArray(kCommon);
  return input.ConsumeIntegralInRange<int32_t>(-2, 200000);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  LMXAudio::AudioInfo src_info{
      0, LMXAudio::AUDIO_FORMAT_PCM, ConsumeRate(input), input.ConsumeIntegralInRange<int32_t>(1, 8), 0, {0, 0, 0}};
  LMXAudio::AudioInfo dst_info{
      0, LMXAudio::AUDIO_FORMAT_PCM, ConsumeRate(input), input.ConsumeIntegralInRange<int32_t>(1, 3), 0, {0, 0, 0}};
  if (input.ConsumeBool()) dst_info.sampleRate = src_info.sampleRate;
  const size_t frames = input.ConsumeIntegralInRange<size_t>(0, 12000);
  std::vector<int32_t> chunks(input.ConsumeIntegralInRange<size_t>(1, 24));
  for (auto& chunk : chunks) chunk = input.ConsumeIntegralInRange<int32_t>(0, 5000);

  // Samples: the rest of the input, repeated; silence when there is none.
  const std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
  std::vector<int16_t> samples(frames * static_cast<size_t>(src_info.nchannels));
  for (size_t i = 0; i < samples.size() && bytes.size() >= 2; ++i) {
    const size_t at = (2 * i) % (bytes.size() - 1);
    samples[i] = static_cast<int16_t>(bytes[at] | bytes[at + 1] << 8);
  }

  const Output pieces = Convert(samples, src_info, dst_info, chunks);
  const Output whole = Convert(samples, src_info, dst_info, {});
  // Every chunk call failing or succeeding alike, and the same samples in the end.
  // A destination beyond the allocator's limit (large upsampling of a long chunk)
  // fails that call only: the two runs are not comparable then.
  if (pieces.refused || whole.refused) return 0;
  Check(pieces.ok == whole.ok);
  if (!pieces.ok) return 0;
  const int64_t frameDifference = std::abs(pieces.count - whole.count) / dst_info.nchannels;
  Check(frameDifference <= (dst_info.sampleRate + src_info.sampleRate - 1) / src_info.sampleRate);
  const size_t common = std::min(pieces.samples.size(), whole.samples.size());
  Check(std::equal(pieces.samples.begin(), pieces.samples.begin() + static_cast<ptrdiff_t>(common),
                   whole.samples.begin()));
  return 0;
}
