// audio_converter.h: AudioConverter, the resampling audio converter.
//
// Fed the consecutive chunks of one stream, it mixes each chunk down to mono
// 16-bit, resamples it with a 64-tap polyphase filter and stores it into a new
// audio object of the requested rate. Between calls it keeps the filter bank, the
// last `history` input samples (plus any not yet consumed; held as the float
// images the resampler reads in place, so a chunk is converted once) and the
// fractional read position, so each chunk continues where the previous one ended; the output of a
// call ends `history` input samples before the end of its input, plus the
// fraction of a sample the call's read position started at. So the chunking moves
// where one call's output stops by less than one input sample, never the samples:
// the concatenated outputs of any chunking are the same stream.
//
// Destination audio objects come from the object given to the factory, asked for
// the allocator interface (0x492D6A23) and its CreateAudio: a new one every call.
// (Reusing one the host has released would delay the release handler and the
// dependents the host gave it until the converter let go of it.)
//
// Not locked: one stream on one thread at a time.
#pragma once

#include <cstdint>

#include "lmxaudio.h"
#include "lmximpl.h"
#include "lmxsession.h"

namespace lmx {

class AudioConverter final : public Norvik::Lumetra::BaseImpl<LMXAudioConversion> {
 public:
  explicit AudioConverter(Norvik::Lumetra::Base* allocator);
  ~AudioConverter();

  Norvik::Lumetra::Status ConvertAudio(LMXAudio* src, const LMXAudio::AudioInfo& dst_info, LMXAudio*& dst) override;
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
  Norvik::Lumetra::Status MixChannels(const int16_t* src, const LMXAudio::AudioInfo& src_info, int16_t* dst,
                                      const LMXAudio::AudioInfo& dst_info, int32_t frames) override;

 private:
  // A new audio object of `info` from the allocator, or null.
  LMXAudio* CreateDestination(LMXAudio::AudioInfo info);
  void FreeResampler();

  Norvik::Lumetra::Base* allocator;
  int32_t srcRate = 0;
  int32_t dstRate = 0;
  int16_t* inBuf = nullptr;   // history, then input not yet consumed
  int16_t* outBuf = nullptr;  // output of one resampler pass
  int32_t bufLen = 0;
  int32_t history = 0;
  double time = 0.0;  // next output's position in inBuf, in input samples
  int32_t lastread = 0;
  uint8_t* state = nullptr;
  LMXAudio::AudioInfo monoInfo{0, LMXAudio::AUDIO_FORMAT_PCM, 0, 1, 0, {0, 0, 0}};
  // The mono signal inBuf describes (history, then input not yet consumed) as the
  // resampler reads it: each 16-bit sample's float image, s * 2^-15, between pads
  // of kResamplerFloatPad finite samples. The 16-bit samples themselves pass
  // through inBuf only where they are made (a mix, a float source's rounding).
  float* floats_ = nullptr;
};

// The export table's audio converter factory. Like every factory of the table, arguments 2
// to 5 are ignored and the new object's primary interface goes to the last one.
Norvik::Lumetra::Status CreateAudioConverter(Norvik::Lumetra::Session* session, LMXSchedulerService* scheduler,
                                             Norvik::Lumetra::Service::Accelerator* accelerator,
                                             Norvik::Lumetra::Service::DLLExportTable* entry, int32_t iid,
                                             Norvik::Lumetra::Base** result);

}  // namespace lmx
