// Fuzz target: the resampling audio converter. One stream (rates, channel counts
// and length from the input, bounded) is converted twice by fresh converters:
// once in chunks of fuzzed sizes, once in a single chunk. Both must succeed or
// fail alike and produce the same stream of output samples.
//
// "The same stream": each call stops before input time end - history + frac(t),
// t being the read position the call started at, so where the last call stops
// depends on the chunking by less than one input sample. The two outputs must
// therefore agree sample for sample over their common length and differ in length
// by at most ceil(dstRate / srcRate) frames; when the output rate divides the
// input rate (the read position stays whole) they must be identical.
//
// Audio objects hold exactly bufferSize samples, so a write past the capacity the
// converter asked for is caught by AddressSanitizer.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "audio_converter.h"
#include "coreaccel_baseaudio.h"
#include "lmxallocator.h"
#include "fuzz_support.h"

using lmx::BaseAudio;
using lmx::AudioConverter;

using namespace Norvik::Lumetra;

namespace {

// PCM audio in a block of exactly bufferSize samples.
class ExactAudio final : public BaseAudio {
 public:
  explicit ExactAudio(const AudioInfo& description)
      : samples(new int16_t[static_cast<size_t>(description.bufferSize > 0 ? description.bufferSize : 0)]) {
    info = description;
  }
  Status AcquireAccess(Access access, AudioFormat format, int32_t, AudioData* data) override {
    if (!data || (format && format != AUDIO_FORMAT_PCM)) return LMX_STATUS_PARAM_UNSUPPORTED;
    *data = {AUDIO_FORMAT_PCM, dataSize, reinterpret_cast<uint8_t*>(samples.get())};
    writing = (access & ACCESS_WRITE) != 0;
    return LMX_STATUS_NO_ERROR;
  }
  Status ReleaseAccess(AudioData* data) override {
    if (!data) return LMX_STATUS_HANDLE_INVALID;
    if (writing) {
      Check(data->dataSize >= 0 && data->dataSize <= info.bufferSize);
      dataSize = data->dataSize;
    }
    writing = false;
    *data = AudioData{};
    return LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  std::unique_ptr<int16_t[]> samples;
  int32_t dataSize = 0;
  bool writing = false;
};

class ExactAllocator final : public BaseImpl<LMXAllocator> {
 public:
  Status Reserved2() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved3() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved4() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved5() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved6() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status CreateImage(Image::ImageInfo*, int32_t, Image::ImageData*, Image**) override {
    return LMX_STATUS_FEATURE_UNSUPPORTED;
  }
  Status CreateAudio(LMXAudio::AudioInfo* info, int32_t, LMXAudio::AudioData*, LMXAudio** audio) override {
    // Far beyond what the bounded streams need: refused as an allocator would.
    if (info->bufferSize < 0 || info->bufferSize > (1 << 22)) return LMX_STATUS_ALLOC_FAILED;
    *audio = new ExactAudio(*info);
    return LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

struct Output {
  std::vector<Status> statuses;
  std::vector<int16_t> samples;
  int64_t count = 0;
};

// Converts samples[0..) in chunks of `chunks[i]` frames (the last one takes the rest).
Output Convert(const std::vector<int16_t>& samples, const LMXAudio::AudioInfo& src_info,
               const LMXAudio::AudioInfo& dst_info, const std::vector<int32_t>& chunks) {
  ExactAllocator allocator;
  AudioConverter* converter = new AudioConverter(&allocator);
  Output output;
  const size_t frames = samples.size() / static_cast<size_t>(src_info.nchannels);
  size_t at = 0;
  for (size_t i = 0; i <= chunks.size() && (at < frames || i == 0); ++i) {
    const size_t take = i < chunks.size() ? std::min<size_t>(chunks[i], frames - at) : frames - at;
    LMXAudio::AudioInfo info = src_info;
    info.bufferSize = static_cast<int32_t>(take * src_info.nchannels);
    auto* src = new ExactAudio(info);
    std::copy_n(samples.begin() + static_cast<ptrdiff_t>(at * src_info.nchannels), info.bufferSize,
                src->samples.get());
    src->dataSize = info.bufferSize;
    at += take;

    LMXAudio* dst = nullptr;
    const Status sts = converter->ConvertAudio(src, dst_info, dst);
    // The same-rate copy answers CopyAudio's own status; only success or failure is compared.
    output.statuses.push_back(sts < 0 ? sts : LMX_STATUS_NO_ERROR);
    if (dst) {
      auto* audio = static_cast<ExactAudio*>(dst);
      if (sts >= 0) {
        output.count += audio->dataSize;
        // Only mono destinations and same-rate copies receive samples; others just count.
        const bool copy = dst_info.sampleRate == src_info.sampleRate && dst_info.nchannels == src_info.nchannels;
        if (dst_info.nchannels == 1 || copy)
          output.samples.insert(output.samples.end(), audio->samples.get(), audio->samples.get() + audio->dataSize);
      }
      dst->Release();
    }
    src->Release();
  }
  converter->Release();
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
  LMXAudio::AudioInfo src_info{0, LMXAudio::AUDIO_FORMAT_PCM, ConsumeRate(input),
                               input.ConsumeIntegralInRange<int32_t>(1, 8), 0, {0, 0, 0}};
  LMXAudio::AudioInfo dst_info{0, LMXAudio::AUDIO_FORMAT_PCM, ConsumeRate(input),
                               input.ConsumeIntegralInRange<int32_t>(1, 3), 0, {0, 0, 0}};
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
  bool allOk = true, refused = whole.statuses[0] == LMX_STATUS_ALLOC_FAILED;
  for (Status sts : pieces.statuses) {
    allOk = allOk && sts >= 0;
    refused = refused || sts == LMX_STATUS_ALLOC_FAILED;
  }
  // A destination beyond the allocator's limit (large upsampling of a long chunk)
  // fails that call only: the two runs are not comparable then.
  if (refused) return 0;
  Check(allOk == (whole.statuses[0] >= 0));
  if (!allOk) return 0;
  const int64_t frameDifference = std::abs(pieces.count - whole.count) / dst_info.nchannels;
  const bool wholePositions = src_info.sampleRate == dst_info.sampleRate ||
                              (dst_info.sampleRate > 0 && src_info.sampleRate % dst_info.sampleRate == 0);
  if (wholePositions) {
    Check(frameDifference == 0);
  } else {
    Check(frameDifference <= (dst_info.sampleRate + src_info.sampleRate - 1) / src_info.sampleRate);
  }
  const size_t common = std::min(pieces.samples.size(), whole.samples.size());
  Check(std::equal(pieces.samples.begin(), pieces.samples.begin() + static_cast<ptrdiff_t>(common),
                   whole.samples.begin()));
  return 0;
}
