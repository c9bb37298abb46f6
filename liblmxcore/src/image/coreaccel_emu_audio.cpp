// AudioSysMem: system-memory storage of one audio format (one sample block).
#include <algorithm>
#include <cstdlib>
#include <new>

#include "image/coreaccel_baseaudio.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

AudioSysMem::AudioSysMem(const AudioInfo& source, int32_t format, uint32_t flags) {
  info = source;
  info.format = static_cast<AudioFormat>(format);
  options = flags;
}

AudioSysMem::~AudioSysMem() {
  std::free(block_);
  info = AudioInfo{};
  nativeData_ = AudioData{};
}

Status AudioSysMem::Create(const AudioInfo& info, int32_t format, const AudioData* adopt, uint32_t options,
                           AudioSysMem** result) {
  // A block of at most kTrailingBlockBytes lives right after the object, in the same
  // allocation: a converter's output of a 10 ms chunk is one allocation, not two.
  const Checked bytes = CheckedMul(info.bufferSize, SampleBytes(static_cast<AudioFormat>(format)));
  const bool trailing = !adopt && IsSize32(bytes) && *bytes <= kTrailingBlockBytes;
  const size_t objectBytes = (sizeof(AudioSysMem) + kTrailingAlignment - 1) / kTrailingAlignment * kTrailingAlignment;
  void* memory = ::operator new(
      trailing ? objectBytes + static_cast<size_t>(std::max<int64_t>(*bytes, 1)) : sizeof(AudioSysMem), std::nothrow);
  auto* storage = memory ? new (memory) AudioSysMem(info, format, options) : nullptr;
  if (result) *result = storage;
  if (!storage) return LMX_STATUS_ALLOC_FAILED;
  if (trailing) {
    storage->nativeData_ = AudioData{};
    storage->nativeData_.dataPtr = static_cast<uint8_t*>(memory) + objectBytes;
    storage->nativeData_.format = storage->info.format;
    return LMX_STATUS_NO_ERROR;
  }
  if (adopt) {
    storage->nativeData_ = *adopt;
    if (!storage->nativeData_.format) storage->nativeData_.format = static_cast<AudioFormat>(format);
    return LMX_STATUS_NO_ERROR;
  }
  return storage->AllocateBuffer(&storage->info, &storage->nativeData_);
}

// Size in bytes = bufferSize * sample size, which must fit the signed 32-bit size
// the description promises; a negative or oversized request fails like an
// allocation that returned nothing.
Status AudioSysMem::AllocateBuffer(AudioInfo* info, AudioData* data) {
  LMX_CHECK(info && data, LMX_STATUS_HANDLE_INVALID);
  *data = AudioData{};
  const Checked bytes = CheckedMul(info->bufferSize, SampleBytes(info->format));
  uint8_t* alloc_buffer = nullptr;
  if (IsSize32(bytes))
    alloc_buffer = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(std::max<int64_t>(*bytes, 1))));
  LMX_CHECK(alloc_buffer, LMX_STATUS_ALLOC_FAILED);
  std::free(block_);
  block_ = alloc_buffer;
  data->dataPtr = alloc_buffer;
  data->format = info->format;
  return LMX_STATUS_NO_ERROR;
}

Status AudioSysMem::AcquireNativeAccess(Access, int32_t, AudioData* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  data->format = nativeData_.format;
  data->dataSize = nativeData_.dataSize;
  data->dataPtr = nativeData_.dataPtr;
  return LMX_STATUS_NO_ERROR;
}

Status AudioSysMem::ReleaseNativeAccess(AudioData* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  const int32_t dataSize = data->dataSize;
  const int32_t capacity = std::max(info.bufferSize, 0);
  nativeData_.dataSize = std::clamp(dataSize, 0, capacity);
  *data = AudioData{};
  // The access is released either way; a count outside the buffer is reported.
  LMX_CHECK(dataSize >= 0 && dataSize <= info.bufferSize, LMX_STATUS_PARAM_UNSUPPORTED);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace lmx
