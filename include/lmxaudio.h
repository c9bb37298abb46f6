// lmxaudio.h: audio records, sample formats and the audio interfaces.
//
//   Norvik::Lumetra::Speech::Audio   an audio object (primary interface).
//     AudioInfo                      description of one buffer (capacity, format, rate, layout).
//     AudioData                      result of an acquire (format, valid samples, first sample).
//   LMXAudioService ("AUDS")         second face of an audio object.
//   LMXAudioConversion               the resampling audio converter.
//
// Sample counts (bufferSize, dataSize) count the interleaved samples of all
// channels, not frames or bytes. A format code's lowest byte is its sample size in
// bits, so one sample takes (format & 0xFF) >> 3 bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lmxbase.h"

namespace Norvik::Lumetra::Speech {

// Slots: 0 QueryInstance, 1 Release, 2 QueryInfo, 3 QueryTimeStamp, 4 QueryOptions,
// 5 SetTimeStamp, 6 SetOptions, 7 CopyAudio, 8 AcquireAccess, 9 ReleaseAccess,
// 10 Destroy. Implementation bases may add slots after Destroy.
class Audio : public Base {
 public:
  static constexpr InterfaceId kIid = 0x395A39C8;
  static constexpr InterfaceId kIid2 = 0x6A1E6C89;

  enum AudioFormat : int32_t {
    AUDIO_FORMAT_PCM = 0x4D435010,         // signed 16-bit integer
    AUDIO_FORMAT_IEEE_FLOAT = 0x544C4620,  // 32-bit float, nominal range -1.0..+1.0
  };

  enum Access : int32_t {
    ACCESS_READ = 1,
    ACCESS_WRITE = 2,
    ACCESS_READ_WRITE = 3,
  };

  struct AudioInfo {
    int32_t bufferSize;  // capacity in samples, all channels counted
    AudioFormat format;
    int32_t sampleRate;    // Hz, per channel
    int32_t nchannels;     // interleaved channels
    uint32_t channelMask;  // speaker positions; carried, never interpreted here
    uint32_t reserved[3];
  };

  struct AudioData {
    AudioFormat format;  // 0: nothing acquired
    int32_t dataSize;    // valid samples, all channels counted
    uint8_t* dataPtr;    // first sample; interleaved, native byte order
  };

  // Bytes of one sample of a format code.
  static constexpr int32_t SampleBytes(int32_t format) {
    return static_cast<int32_t>((static_cast<uint32_t>(format) & 0xFFu) >> 3);
  }

  virtual AudioInfo QueryInfo() = 0;
  virtual int64_t QueryTimeStamp() = 0;
  virtual uint32_t QueryOptions() = 0;
  virtual void SetTimeStamp(int64_t timeStamp) = 0;
  virtual void SetOptions(uint32_t options) = 0;
  // Copies the source's samples into this object (same rate and channel count).
  virtual Status CopyAudio(Audio* src) = 0;
  // Acquires the samples in `format` (0: a format the object already holds).
  virtual Status AcquireAccess(Access access, AudioFormat format, int32_t options, AudioData* data) = 0;
  // Ends an acquisition; a writer first sets data->dataSize to the samples it wrote.
  virtual Status ReleaseAccess(AudioData* data) = 0;
  virtual void Destroy(uint32_t flags) = 0;

  // The common three-argument form (options 0); not a slot.
  Status AcquireAccess(Access access, AudioFormat format, AudioData* data) {
    return AcquireAccess(access, format, 0, data);
  }

 protected:
  ~Audio() = default;
};

static_assert(sizeof(Audio::AudioInfo) == 32);
static_assert(offsetof(Audio::AudioInfo, bufferSize) == 0);
static_assert(offsetof(Audio::AudioInfo, format) == 4);
static_assert(offsetof(Audio::AudioInfo, sampleRate) == 8);
static_assert(offsetof(Audio::AudioInfo, nchannels) == 12);
static_assert(offsetof(Audio::AudioInfo, channelMask) == 16);
static_assert(offsetof(Audio::AudioInfo, reserved) == 20);
static_assert(sizeof(Audio::AudioData) == 16);
static_assert(offsetof(Audio::AudioData, format) == 0);
static_assert(offsetof(Audio::AudioData, dataSize) == 4);
static_assert(offsetof(Audio::AudioData, dataPtr) == 8);
static_assert(Audio::SampleBytes(Audio::AUDIO_FORMAT_PCM) == 2);
static_assert(Audio::SampleBytes(Audio::AUDIO_FORMAT_IEEE_FLOAT) == 4);

}  // namespace Norvik::Lumetra::Speech

// The kit's short name for the audio interface.
using LMXAudio = Norvik::Lumetra::Speech::Audio;

// Second face of an audio object.
// Slots: 0 QueryInstance, 1 Release, 2 InvalidateData, 3 Destroy.
// InvalidateData marks every format the object holds as stale; objects that keep a
// single format answer LMX_STATUS_FEATURE_UNSUPPORTED.
class LMXAudioService : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("AUDS");
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  virtual Norvik::Lumetra::Status InvalidateData() = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXAudioService() = default;
};

static_assert(LMXAudioService::kIid == 0x53445541);

// The audio converter: turns chunks of one stream into new audio objects of
// another rate, as 16-bit PCM. Uncounted (one Release ends it); not locked, one
// stream on one thread at a time.
// Slots: 0 QueryInstance, 1 Release, 2 ConvertAudio, 3 Destroy, 4 MixChannels.
class LMXAudioConversion : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = 0x5758F698;
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = 0x5758F699;

  // Creates `dst` (one reference, owned by the caller) holding `src` converted to
  // dst_info's rate. On some failures after creation `dst` already holds the new
  // object and the caller must release it.
  virtual Norvik::Lumetra::Status ConvertAudio(LMXAudio* src, const LMXAudio::AudioInfo& dst_info, LMXAudio*& dst) = 0;
  virtual void Destroy(uint32_t flags) = 0;
  // Mixes `frames` interleaved 16-bit frames down to mono; only the nchannels of the
  // two descriptions are read. A destination that is not mono gets nothing
  // (LMX_STATUS_FEATURE_UNSUPPORTED).
  virtual Norvik::Lumetra::Status MixChannels(const int16_t* src, const LMXAudio::AudioInfo& src_info, int16_t* dst,
                                              const LMXAudio::AudioInfo& dst_info, int32_t frames) = 0;

 protected:
  ~LMXAudioConversion() = default;
};
