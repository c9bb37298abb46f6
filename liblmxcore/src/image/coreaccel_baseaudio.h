// coreaccel_baseaudio.h: BaseAudio, the base class of every audio object, and
// AudioSysMem, the system-memory storage of one audio format.
//
// BaseAudio holds the description (AudioInfo), the option flags, the time stamp
// and the current AudioData of the object, and performs the sample copy with
// format conversion (CopyAudio between objects, CopyData between two acquired
// buffers). Storage classes and the multi-format object override the hooks.
//
// Slots of the primary face, after the Audio interface's 0..10:
//   11 SetOptionsAgain  12 Reset  13 AcquireNativeAccess  14 ReleaseNativeAccess
//   15 CopyData  16 ReInitImpl
// The hooks answer LMX_STATUS_FEATURE_UNSUPPORTED here.
#pragma once

#include <cstdint>

#include "lmxaudio.h"
#include "lmximpl.h"

namespace lmx {

class BaseAudio : public Norvik::Lumetra::BaseImpl2<LMXAudio, LMXAudioService> {
 public:
  using AudioInfo = LMXAudio::AudioInfo;
  using AudioData = LMXAudio::AudioData;

  AudioInfo QueryInfo() override { return info; }
  int64_t QueryTimeStamp() override { return timeStamp_; }
  uint32_t QueryOptions() override { return options; }
  void SetTimeStamp(int64_t value) override { timeStamp_ = value; }
  void SetOptions(uint32_t value) override { options = value; }
  Norvik::Lumetra::Status CopyAudio(LMXAudio* src) override;
  Norvik::Lumetra::Status AcquireAccess(Access access, AudioFormat format, int32_t options, AudioData* data) override;
  Norvik::Lumetra::Status ReleaseAccess(AudioData* data) override;
  using LMXAudio::AcquireAccess;

  // Slot 11: the same as SetOptions (kept for callers built against that slot).
  virtual void SetOptionsAgain(uint32_t value) { options = value; }
  // Slot 12: zeroes the options, the time stamp, the description and the reserved words.
  virtual Norvik::Lumetra::Status Reset();
  // Slot 13: hands out the storage's memory (storage classes).
  virtual Norvik::Lumetra::Status AcquireNativeAccess(Access access, int32_t options, AudioData* data);
  // Slot 14: ends a native access; takes the writer's dataSize (storage classes).
  virtual Norvik::Lumetra::Status ReleaseNativeAccess(AudioData* data);
  // Slot 15: copies or converts one acquired buffer into another (see the .cpp).
  virtual Norvik::Lumetra::Status CopyData(const AudioInfo* src_info, AudioData* src, const AudioInfo* dst_info,
                                           AudioData* dst);
  // Slot 16: re-initialises the object to a new description (multi-format object).
  virtual Norvik::Lumetra::Status ReInitImpl(AudioInfo* info, AudioData* data, int32_t options);

  // LMXAudioService. Declared after the slots above on purpose: an override of a
  // second face's operation also gets an entry in the primary table, appended in
  // declaration order, so here it lands after slot 16 instead of shifting 11..16.
  Norvik::Lumetra::Status InvalidateData() override;

  // The audio counterpart of the image's CopySystemBuffer, as the multi-format
  // object calls it: audio conversions never need an intermediate format, so
  // `interm` is left untouched. Not a slot.
  Norvik::Lumetra::Status CopySystemBuffer(const AudioInfo* src_info, AudioData* src, const AudioInfo* dst_info,
                                           AudioData* dst, AudioFormat* /*interm*/) {
    return CopyData(src_info, src, dst_info, dst);
  }

 protected:
  BaseAudio() = default;
  ~BaseAudio() = default;

  void* reserved[2] = {nullptr, nullptr};
  AudioInfo info{};
  uint32_t options = 0;
  int64_t timeStamp_ = 0;
  AudioData nativeData_{};  // the storage's current buffer (storage classes)
};

// System-memory storage of one audio format. Owns the one sample block it
// allocated; adopted blocks (given at creation) are never freed here.
class AudioSysMem final : public BaseAudio {
 public:
  // `info` with `format` as the storage's format.
  AudioSysMem(const AudioInfo& info, int32_t format, uint32_t options);
  ~AudioSysMem();

  // Allocates info->bufferSize samples of info->format into `data` (dataSize 0).
  Norvik::Lumetra::Status AllocateBuffer(AudioInfo* info, AudioData* data);
  // Copies the current format, dataSize and dataPtr into `data`.
  Norvik::Lumetra::Status AcquireNativeAccess(Access access, int32_t options, AudioData* data) override;
  // Takes data->dataSize as the new count of valid samples (clamped into
  // 0..bufferSize; outside it the answer is LMX_STATUS_PARAM_UNSUPPORTED) and clears `data`.
  Norvik::Lumetra::Status ReleaseNativeAccess(AudioData* data) override;
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  // Storage creation for the multi-format object: `adopt` (may be null) is
  // copied in and not owned, its format 0 becoming `format`; otherwise the block is
  // allocated. The object is stored in `result` even when the status is negative
  // (the caller releases it); only a failed object allocation leaves it null
  // (LMX_STATUS_ALLOC_FAILED).
  static Norvik::Lumetra::Status Create(const AudioInfo& info, int32_t format, const AudioData* adopt, uint32_t options,
                                        AudioSysMem** result);

 private:
  // Blocks up to this size are allocated with the object (Create); DestroyObject's
  // unsized delete frees both.
  static constexpr int64_t kTrailingBlockBytes = 64 << 10;
  static constexpr size_t kTrailingAlignment = 16;
  uint8_t* block_ = nullptr;  // a block allocated apart from the object, owned
};

}  // namespace lmx
