// audio_fakes.h: test doubles for audio objects and their allocator.
//
// VectorAudio keeps one format in a byte vector (pre-filled with kSentinel) and,
// like the multi-format object, hands out a converted copy when a reader asks for
// the other format. FakeAllocator creates VectorAudio objects, or nothing when
// told to fail.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "coreaccel_baseaudio.h"
#include "lmxallocator.h"

using lmx::BaseAudio;

namespace lmxtest {

inline constexpr uint8_t kSentinel = 0x5A;

class VectorAudio final : public BaseAudio {
 public:
  explicit VectorAudio(const AudioInfo& description)
      : bytes(static_cast<size_t>(std::max(description.bufferSize, 0)) * 4 + 8, kSentinel) {
    info = description;
  }

  Norvik::Lumetra::Status AcquireAccess(Access access, AudioFormat format, int32_t, AudioData* data) override {
    if (failAcquire) return Norvik::Lumetra::LMX_STATUS_DEVICE_BUSY;
    if (!data) return Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID;
    const AudioFormat wanted = format ? format : info.format;
    *data = {wanted, dataSize, bytes.data()};
    if (wanted != info.format && (access & ACCESS_READ)) {
      scratch.assign(bytes.size() * 2, 0);
      AudioInfo converted = info;
      converted.format = wanted;
      AudioData from{info.format, dataSize, bytes.data()};
      AudioData to{wanted, 0, scratch.data()};
      CopyData(&info, &from, &converted, &to);
      data->dataPtr = scratch.data();
    }
    writing = (access & ACCESS_WRITE) != 0;
    ++acquisitions;
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  Norvik::Lumetra::Status ReleaseAccess(AudioData* data) override {
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
  template <class T>
  void SetSamples(const std::vector<T>& samples) {
    std::memcpy(bytes.data(), samples.data(), samples.size() * sizeof(T));
    dataSize = static_cast<int32_t>(samples.size());
  }

  std::vector<uint8_t> bytes;
  std::vector<uint8_t> scratch;
  int32_t dataSize = 0;
  bool failAcquire = false;
  bool writing = false;
  int acquisitions = 0;
  int releases = 0;
};

inline LMXAudio::AudioInfo MakeInfo(int32_t bufferSize, LMXAudio::AudioFormat format, int32_t rate,
                                    int32_t channels, uint32_t mask = 0) {
  return {bufferSize, format, rate, channels, mask, {0, 0, 0}};
}

template <class T>
VectorAudio* MakeAudio(LMXAudio::AudioFormat format, int32_t rate, int32_t channels, const std::vector<T>& samples,
                       uint32_t mask = 0) {
  auto* audio = new VectorAudio(MakeInfo(static_cast<int32_t>(samples.size()), format, rate, channels, mask));
  audio->SetSamples(samples);
  return audio;
}

class FakeAllocator final : public Norvik::Lumetra::BaseImpl<LMXAllocator> {
 public:
  Norvik::Lumetra::Status Reserved2() override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Norvik::Lumetra::Status Reserved3() override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Norvik::Lumetra::Status Reserved4() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Norvik::Lumetra::Status Reserved5() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Norvik::Lumetra::Status Reserved6() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Norvik::Lumetra::Status CreateImage(Norvik::Lumetra::Image::ImageInfo*, int32_t, Norvik::Lumetra::Image::ImageData*,
                                      Norvik::Lumetra::Image**) override {
    return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED;
  }
  Norvik::Lumetra::Status CreateAudio(LMXAudio::AudioInfo* info, int32_t, LMXAudio::AudioData*,
                                      LMXAudio** audio) override {
    if (failCreate) return Norvik::Lumetra::LMX_STATUS_ALLOC_FAILED;
    lastInfo = *info;
    *audio = new VectorAudio(*info);
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  bool failCreate = false;
  LMXAudio::AudioInfo lastInfo{};
};

}  // namespace lmxtest
