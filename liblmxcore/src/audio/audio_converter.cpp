// AudioConverter: stream resampling into new audio objects, and its factory.
#include "audio/audio_converter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "dsp/audio_kernels.h"
#include "dsp/resampler.h"
#include "lmxallocator.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;
using namespace lmx::dsp;
using Norvik::Lumetra::Service::DLLExportTable;

namespace {

constexpr std::align_val_t kSampleAlignment{64};

int16_t* AllocateSamples(int64_t count) {
  if (count <= 0 || count > INT32_MAX) return nullptr;
  return static_cast<int16_t*>(
      ::operator new[](static_cast<size_t>(count) * sizeof(int16_t), kSampleAlignment, std::nothrow));
}

void FreeSamples(int16_t* samples) {
  if (samples) ::operator delete[](samples, kSampleAlignment);
}

}  // namespace

AudioConverter::AudioConverter(Base* allocator) : allocator(allocator) {}

AudioConverter::~AudioConverter() { FreeResampler(); }

void AudioConverter::FreeResampler() {
  FreeSamples(inBuf);
  FreeSamples(outBuf);
  if (floats_) ::operator delete[](floats_, kSampleAlignment);
  floats_ = nullptr;
  vkpsResamplePolyphaseFixedRelease_16s(state);
  std::free(state);
  inBuf = outBuf = nullptr;
  state = nullptr;
}

LMXAudio* AudioConverter::CreateDestination(LMXAudio::AudioInfo info) {
  if (!allocator) return nullptr;
  auto* creator = allocator->QueryInstance<LMXAllocator>();
  if (!creator) return nullptr;
  LMXAudio* audio = nullptr;
  if (creator->CreateAudio(&info, 0, nullptr, &audio) < 0) return nullptr;
  return audio;
}

Status AudioConverter::MixChannels(const int16_t* src, const LMXAudio::AudioInfo& src_info, int16_t* dst,
                                   const LMXAudio::AudioInfo& dst_info, int32_t frames) try {
  if (dst_info.nchannels != 1) return LMX_STATUS_FEATURE_UNSUPPORTED;
  if (frames == 0) return LMX_STATUS_NO_ERROR;
  LMX_CHECK(frames > 0 && src_info.nchannels > 0, LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(src && dst, LMX_STATUS_HANDLE_INVALID);
  lmx::ActiveAudioKernels().mixToMono(src, src_info.nchannels, dst, frames);
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

Status AudioConverter::ConvertAudio(LMXAudio* src, const LMXAudio::AudioInfo& dst_info, LMXAudio*& dst) try {
  LMX_TRACE("AudioConverter::ConvertAudio");
  LMX_CHECK(src, LMX_STATUS_HANDLE_INVALID);
  const LMXAudio::AudioInfo src_info = src->QueryInfo();
  LMX_CHECK(dst_info.format == LMXAudio::AUDIO_FORMAT_PCM, LMX_STATUS_FEATURE_UNSUPPORTED);

  // Same rate and layout: a copy in the source's own format; the resampler is untouched.
  if (src_info.sampleRate == dst_info.sampleRate && src_info.nchannels == dst_info.nchannels &&
      (src_info.channelMask == dst_info.channelMask || src_info.nchannels == 1)) {
    dst = CreateDestination(src_info);
    LMX_CHECK(dst, LMX_STATUS_ALLOC_FAILED);
    dst->SetTimeStamp(src->QueryTimeStamp());
    return dst->CopyAudio(src);
  }

  // Channel counts divide sample counts below.
  LMX_CHECK(src_info.nchannels > 0 && dst_info.nchannels > 0, LMX_STATUS_HANDLE_INVALID);

  // Set-up on a change of either rate (or after a failed set-up, which leaves the
  // rates as they were but no buffers).
  if (src_info.sampleRate != srcRate || dst_info.sampleRate != dstRate || !state || !inBuf || !outBuf || !floats_) {
    FreeResampler();
    // The call texts below are logged as written, so the filter's figures appear
    // as literals; they are kConverterPresets' (checked here).
    static_assert(kConverterPresets.rolloff == 0.95f && kConverterPresets.kaiserAlpha == 9.0f &&
                  kConverterPresets.gain == 0.98f);
    history = kConverterPresets.history;
    int32_t state_size = 0, filter_len = 0, filter_num = 0;
    VkpStatus vsts = kVkpOk;
    if (LMX_CALL_FAILED(
            vsts, vkpsResamplePolyphaseFixedGetSize_16s(src_info.sampleRate, dst_info.sampleRate, 2 * history,
                                                        &state_size, &filter_len, &filter_num, vkpAlgHintAccurate)))
      return LMX_STATUS_DEVICE_FAILED;
    state = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(state_size)));
    LMX_CHECK(state, LMX_STATUS_ALLOC_FAILED);
    if (LMX_CALL_FAILED(vsts, vkpsResamplePolyphaseFixedInit_16s(src_info.sampleRate, dst_info.sampleRate, 2 * history,
                                                                 0.95f, 9.0f, state, vkpAlgHintAccurate)))
      return LMX_STATUS_DEVICE_FAILED;
    lastread = history;
    bufLen = kConverterPresets.block;
    time = history;
    inBuf = AllocateSamples(history + bufLen + kConverterPresets.inputSpare);
    const float outSamples =
        static_cast<float>(dst_info.sampleRate) * static_cast<float>(bufLen) / static_cast<float>(src_info.sampleRate);
    outBuf = AllocateSamples(static_cast<int64_t>(outSamples) + 2);
    LMX_CHECK(inBuf && outBuf, LMX_STATUS_HANDLE_INVALID);
    std::memset(inBuf, 0, static_cast<size_t>(history) * sizeof(int16_t));  // the stream starts after silence
    const size_t floatCount =
        static_cast<size_t>(history + bufLen + kConverterPresets.inputSpare + 2 * kResamplerFloatPad);
    floats_ = static_cast<float*>(::operator new[](floatCount * sizeof(float), kSampleAlignment, std::nothrow));
    LMX_CHECK(floats_, LMX_STATUS_ALLOC_FAILED);
    std::fill_n(floats_, floatCount, 0.0f);  // the silence, and finite pads
    srcRate = src_info.sampleRate;
    dstRate = dst_info.sampleRate;
    LoggingService* logger = lmsdk::LogUtil::GetLogger();
    if (logger->IsLevelEnabled(LOG_LEVEL_INFO)) {
      std::string message =
          "Audio resampler initilized in " + std::to_string(srcRate) + " Hz -> " + std::to_string(dstRate) + " Hz mode";
      logger->Log(LOG_LEVEL_INFO, message.c_str(), __FILE__, __LINE__, LMX_FUNCSIG);
    }
  }

  // A mono float source is read as it is held and rounded to 16 bits in the call,
  // as the object's own conversion would (no 16-bit copy made in it).
  const bool floatMono = src_info.format == LMXAudio::AUDIO_FORMAT_IEEE_FLOAT && src_info.nchannels == 1;
  Status sts = LMX_STATUS_NO_ERROR;
  LMXAudio::AudioData src_data{};
  if (LMX_CALL_FAILED(sts, src->AcquireAccess(
                               LMXAudio::ACCESS_READ,
                               floatMono ? LMXAudio::AUDIO_FORMAT_IEEE_FLOAT : LMXAudio::AUDIO_FORMAT_PCM, &src_data)))
    return sts;

  // Capacity of the destination: the resampled sample count plus the history, from
  // the 32-bit products rate x channels of both sides. A product beyond 32 bits
  // has no defined value: refused before anything is created.
  LMXAudio::AudioInfo dst_info2 = dst_info;
  const Checked dstRateChannels = CheckedMul(dst_info.sampleRate, dst_info.nchannels);
  const Checked srcRateChannels = CheckedMul(src_info.sampleRate, src_info.nchannels);
  if (LMX_FAILED_ON(IsSize32(dstRateChannels) && IsSize32(srcRateChannels))) {
    src->ReleaseAccess(&src_data);
    return LMX_STATUS_HANDLE_INVALID;
  }
  // The set-up refused rates below 1, so the divisor is at least 1.
  const float estimate = static_cast<float>(src_data.dataSize) * static_cast<float>(*dstRateChannels) /
                         static_cast<float>(*srcRateChannels);
  const float cap = static_cast<float>(INT32_MAX - history - 127);
  dst_info2.bufferSize = static_cast<int32_t>(std::clamp(estimate, -cap, cap)) + history;

  dst = CreateDestination(dst_info2);
  if (LMX_FAILED_ON(dst)) {
    src->ReleaseAccess(&src_data);
    return LMX_STATUS_ALLOC_FAILED;
  }
  LMXAudio::AudioData dst_data{};
  if (LMX_CALL_FAILED(sts, dst->AcquireAccess(LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_PCM, &dst_data))) {
    src->ReleaseAccess(&src_data);
    return sts;
  }
  dst->SetTimeStamp(src->QueryTimeStamp());

  const auto* source = reinterpret_cast<const int16_t*>(src_data.dataPtr);
  const auto* floatSource = reinterpret_cast<const float*>(src_data.dataPtr);
  const lmx::AudioKernelTable& kernels = lmx::ActiveAudioKernels();
  auto* destination = reinterpret_cast<int16_t*>(dst_data.dataPtr);
  const int32_t available = source ? src_data.dataSize : 0;
  int32_t srcPos = 0;
  unsigned int dstOffset = 0;
  float* ring = floats_ + kResamplerFloatPad;
  for (;;) {
    const int32_t frames = std::min((available - srcPos) / src_info.nchannels, bufLen - lastread);
    if (frames <= 0) break;
    // The 16-bit mono samples (for a mixed source, what MixChannels(source + srcPos,
    // src_info, inBuf + lastread, monoInfo, frames) gives, without its checks, which
    // hold here), held as their float images: a 16-bit mono source is read
    // straight into them, others are made in inBuf first.
    const int16_t* mono = source + srcPos;
    if (floatMono || src_info.nchannels > 1) {
      if (floatMono) {
        kernels.floatToPcm16(floatSource + srcPos, inBuf + lastread, frames);
      } else {
        kernels.mixToMono(source + srcPos, src_info.nchannels, inBuf + lastread, frames);
      }
      mono = inBuf + lastread;
    }
    kernels.pcm16ToFloat(mono, ring + lastread, frames);
    srcPos += frames * src_info.nchannels;
    lastread += frames;

    // A mono destination with room for the most a pass can yield receives the
    // outputs directly; otherwise they go through outBuf and are checked first.
    const int32_t count = lastread - history - static_cast<int32_t>(time);
    const int64_t most = std::max<int64_t>(count, 0) * dstRate / srcRate + 2;
    const bool direct = destination && dst_info.nchannels == 1 && dstOffset + most <= dst_info2.bufferSize;
    int32_t outLen = 0;
    const VkpStatus vsts = vkpsResamplePolyphaseFixed_32f(ring, count, direct ? destination + dstOffset : outBuf, 0.98f,
                                                          &time, &outLen, state);
    // Logged as the 16-bit run it stands for.
    if (lmx::detail::CallFailed(vsts,
                                "vkpsResamplePolyphaseFixed_16s(inBuf, lastread - history - (int)time, outBuf, 0.98f, "
                                "&time, &outLen, state)",
                                LMX_LOG_SOURCE_FILE, __LINE__, LMX_FUNCSIG)) {
      dst->ReleaseAccess(&dst_data);
      src->ReleaseAccess(&src_data);
      return LMX_STATUS_DEVICE_FAILED;
    }
    if (LMX_FAILED_ON(dstOffset + (unsigned int)outLen * dst_info.nchannels <= (unsigned int)dst_info2.bufferSize)) {
      dst->ReleaseAccess(&dst_data);
      src->ReleaseAccess(&src_data);
      return LMX_STATUS_PARAM_UNSUPPORTED;
    }
    // Only a mono destination receives samples; others still advance (by design).
    if (!direct) MixChannels(outBuf, monoInfo, destination + dstOffset, dst_info, outLen);
    dstOffset += outLen * dst_info.nchannels;

    // Keep the history before the next output position and whatever follows it.
    const int32_t consumed = static_cast<int32_t>(time) - history;
    const int32_t kept = lastread + history - static_cast<int32_t>(time);
    std::memmove(ring, ring + consumed, static_cast<size_t>(kept) * sizeof(float));
    lastread = kept;
    time -= consumed;
  }

  dst_data.dataSize = static_cast<int32_t>(dstOffset);
  dst->ReleaseAccess(&dst_data);
  src->ReleaseAccess(&src_data);
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

// Argument 1 is the object that creates destination audio (an allocator, or a
// session that answers the allocator interface).
Status CreateAudioConverter(Session* session, LMXSchedulerService*, Service::Accelerator*, DLLExportTable*, int32_t,
                            Base** result) try {
  auto* converter = new (std::nothrow) AudioConverter(session);
  if (result) *result = converter;
  return converter ? LMX_STATUS_NO_ERROR : LMX_STATUS_ALLOC_FAILED;
}
LMX_EDGE_CATCH

}  // namespace lmx
