// BaseAudio: the description, options and time stamp of an audio object, and the
// sample copy between audio objects with conversion between 16-bit PCM and float.
#include "image/coreaccel_baseaudio.h"

#include <cstring>

#include "dsp/audio_kernels.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

Status BaseAudio::AcquireAccess(Access, AudioFormat, int32_t, AudioData*) { return LMX_STATUS_FEATURE_UNSUPPORTED; }
Status BaseAudio::ReleaseAccess(AudioData*) { return LMX_STATUS_FEATURE_UNSUPPORTED; }
Status BaseAudio::InvalidateData() { return LMX_STATUS_FEATURE_UNSUPPORTED; }
Status BaseAudio::AcquireNativeAccess(Access, int32_t, AudioData*) { return LMX_STATUS_FEATURE_UNSUPPORTED; }
Status BaseAudio::ReleaseNativeAccess(AudioData*) { return LMX_STATUS_FEATURE_UNSUPPORTED; }
Status BaseAudio::ReInitImpl(AudioInfo*, AudioData*, int32_t) { return LMX_STATUS_FEATURE_UNSUPPORTED; }

Status BaseAudio::Reset() {
  options = 0;
  timeStamp_ = 0;
  info = AudioInfo{};
  reserved[0] = reserved[1] = nullptr;
  return LMX_STATUS_NO_ERROR;
}

// Copies the source's samples into this object. CopyData converts by the two
// objects' own formats, so the destination is acquired in its own format: a
// multi-format destination acquired in the source's format would receive
// samples of the other format (and twice their room for PCM into float).
Status BaseAudio::CopyAudio(LMXAudio* src) try {
  LMX_CHECK(src, LMX_STATUS_HANDLE_INVALID);
  AudioInfo src_info = src->QueryInfo();
  AudioInfo dst_info = QueryInfo();
  LMX_CHECK(src_info.nchannels == dst_info.nchannels, LMX_STATUS_FEATURE_UNSUPPORTED);
  LMX_CHECK(src_info.sampleRate == dst_info.sampleRate, LMX_STATUS_FEATURE_UNSUPPORTED);

  AudioAccess src_access(nullptr, src, AudioFormat{}, ACCESS_READ, "BaseAudio::CopyAudio");
  AudioData& src_data = src_access.data;
  LMX_CHECK(src_data.format, LMX_STATUS_PARAM_UNSUPPORTED);
  AudioAccess dst_access(nullptr, this, dst_info.format, ACCESS_WRITE, "BaseAudio::CopyAudio");
  AudioData& dst_data = dst_access.data;
  LMX_CHECK(dst_data.format, LMX_STATUS_PARAM_UNSUPPORTED);
  // The accesses end in reverse order: destination, then source.
  return CopyData(&src_info, &src_data, &dst_info, &dst_data);
}
LMX_EDGE_CATCH

// Copies src's dataSize samples into dst, converting by the formats of the two
// descriptions. Samples never go past the destination's capacity: bufferSize
// samples of the destination buffer's own format (the record's, or the
// description's when the record names none). A negative dataSize or a source
// larger than that capacity is refused with nothing copied.
Status BaseAudio::CopyData(const AudioInfo* src_info, AudioData* src, const AudioInfo* dst_info, AudioData* dst) {
  LMX_CHECK(src_info && src && dst_info && dst, LMX_STATUS_HANDLE_INVALID);
  const int32_t dataSize = src->dataSize;
  LMX_CHECK(dataSize >= 0, LMX_STATUS_PARAM_UNSUPPORTED);
  // An overflowing product refuses the copy instead of comparing a wrapped value.
  const int64_t writeBytes = CheckedMul(dataSize, SampleBytes(dst_info->format)).value_or(INT64_MAX);
  const int32_t storedFormat = dst->format ? dst->format : dst_info->format;
  const int64_t capacityBytes = CheckedMul(dst_info->bufferSize, SampleBytes(storedFormat)).value_or(-1);
  LMX_CHECK(writeBytes <= capacityBytes, LMX_STATUS_PARAM_UNSUPPORTED);

  dst->dataSize = dataSize;
  // The primitives reject null buffers when there is something to copy.
  const bool buffers = dataSize == 0 || (src->dataPtr && dst->dataPtr);
  const auto& kernels = lmx::ActiveAudioKernels();
  if (src_info->format == dst_info->format) {
    if (src->dataPtr == dst->dataPtr) return LMX_STATUS_NO_ERROR;
    if (!buffers) return LMX_STATUS_ALLOC_FAILED;
    std::memmove(dst->dataPtr, src->dataPtr, static_cast<size_t>(dataSize) * SampleBytes(src_info->format));
    return LMX_STATUS_NO_ERROR;
  }
  if (src_info->format == AUDIO_FORMAT_IEEE_FLOAT && dst_info->format == AUDIO_FORMAT_PCM) {
    if (!buffers) return LMX_STATUS_ALLOC_FAILED;
    kernels.floatToPcm16(reinterpret_cast<const float*>(src->dataPtr), reinterpret_cast<int16_t*>(dst->dataPtr),
                         dataSize);
    return LMX_STATUS_NO_ERROR;
  }
  if (src_info->format == AUDIO_FORMAT_PCM && dst_info->format == AUDIO_FORMAT_IEEE_FLOAT) {
    if (!buffers) return LMX_STATUS_ALLOC_FAILED;
    kernels.pcm16ToFloat(reinterpret_cast<const int16_t*>(src->dataPtr), reinterpret_cast<float*>(dst->dataPtr),
                         dataSize);
    return LMX_STATUS_NO_ERROR;
  }
  return LMX_STATUS_PARAM_UNSUPPORTED;
}

}  // namespace lmx
