// audio_fakes.h: the one fake audio object and its allocator, shared by the unit
// tests and the converter's fuzz target.
//
// VectorAudio keeps one format in a block of exactly bufferSize samples (pre-filled
// with kSentinel, so a write past the capacity fails under AddressSanitizer) and,
// like the multi-format object, hands a reader asking for the other format a
// converted copy. FakeAllocator creates VectorAudio objects; it refuses when told
// to or when asked for more than 4 Mi samples.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "image/coreaccel_baseaudio.h"
#include "lmxallocator.h"

namespace lmxtest {

using Norvik::Lumetra::Status;
inline constexpr uint8_t kSentinel = 0x5A;

class VectorAudio final : public lmx::BaseAudio {
 public:
  explicit VectorAudio(const AudioInfo& description)
      : bytes(static_cast<size_t>(std::max(description.bufferSize, 0)) * SampleBytes(description.format), kSentinel) {
    info = description;
  }

  Status AcquireAccess(Access access, AudioFormat format, int32_t, AudioData* data) override {
    if (failAcquire) return Norvik::Lumetra::LMX_STATUS_DEVICE_BUSY;
    if (!data) return Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID;
    const AudioFormat wanted = format ? format : info.format;
    *data = {wanted, dataSize, bytes.data()};
    if (wanted != info.format && (access & ACCESS_READ)) {
      scratch.assign(static_cast<size_t>(dataSize) * SampleBytes(wanted) + 1, 0);
      AudioInfo converted = info;
      converted.format = wanted;
      AudioData from{info.format, dataSize, bytes.data()}, to{wanted, 0, scratch.data()};
      CopyData(&info, &from, &converted, &to);
      data->dataPtr = scratch.data();
    }
    writing = (access & ACCESS_WRITE) != 0;
    ++acquisitions;
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  Status ReleaseAccess(AudioData* data) override {
    if (!data) return Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID;
    if (writing) dataSize = data->dataSize;
    writing = false;
    *data = AudioData{};
    ++releases;
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  template <class T>
  std::vector<T> Samples() const {
    std::vector<T> out(static_cast<size_t>(dataSize));
    if (!out.empty()) std::memcpy(out.data(), bytes.data(), out.size() * sizeof(T));  // no null memcpy
    return out;
  }

  std::vector<uint8_t> bytes, scratch;
  int32_t dataSize = 0;
  bool failAcquire = false, writing = false;
  int acquisitions = 0, releases = 0;
};

inline LMXAudio::AudioInfo MakeInfo(int32_t bufferSize, LMXAudio::AudioFormat format, int32_t rate, int32_t channels,
                                    uint32_t mask = 0) {
  return {bufferSize, format, rate, channels, mask, {0, 0, 0}};
}

template <class T>
VectorAudio* MakeAudio(LMXAudio::AudioFormat format, int32_t rate, int32_t channels, const std::vector<T>& samples,
                       uint32_t mask = 0) {
  auto* audio = new VectorAudio(MakeInfo(static_cast<int32_t>(samples.size()), format, rate, channels, mask));
  if (!samples.empty()) std::memcpy(audio->bytes.data(), samples.data(), samples.size() * sizeof(T));
  audio->dataSize = static_cast<int32_t>(samples.size());
  return audio;
}

class FakeAllocator final : public Norvik::Lumetra::BaseImpl<LMXAllocator> {
 public:
  Status Reserved2() override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Status Reserved3() override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Status Reserved4() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved5() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved6() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status CreateImage(Norvik::Lumetra::Image::ImageInfo*, int32_t, Norvik::Lumetra::Image::ImageData*,
                     Norvik::Lumetra::Image**) override {
    return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED;
  }
  Status CreateAudio(LMXAudio::AudioInfo* info, int32_t, LMXAudio::AudioData*, LMXAudio** audio) override {
    if (failCreate || info->bufferSize < 0 || info->bufferSize > (1 << 22))
      return Norvik::Lumetra::LMX_STATUS_ALLOC_FAILED;
    lastInfo = *info;
    *audio = new VectorAudio(*info);
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  bool failCreate = false;
  LMXAudio::AudioInfo lastInfo{};
};

}  // namespace lmxtest
