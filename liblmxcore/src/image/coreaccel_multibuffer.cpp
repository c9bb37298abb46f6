// The multi-format buffer behind every image and audio object: buffer set, access
// rules, conversion hand-off, invalidation.
//
// It is part of the manager: its log lines name the manager's source, as they
// always have.
#define LMX_LOG_SOURCE_FILE "liblmxcore/src/image/coreaccel_manager.cpp"
#include <chrono>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>

#include "image/coreaccel_baseimage_route.h"
#include "image/coreaccel_emu.h"
#include "image/coreaccel_multibuffer.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {

constexpr int32_t kStorageConversionOption = 0x10000;
constexpr int kWriteWaitTries = 500;
constexpr auto kWriteWaitStep = std::chrono::milliseconds(10);
constexpr int kMaxIntermediatePasses = 3;
constexpr uint32_t kMirrorPropertyId = 304;
constexpr int32_t kMirroringMaxBytes = 8192;

// Name of a key for the conversion line: the table's name, or the decimal key.
std::wstring KeyName(int32_t key) {
  const wchar_t* name = PixelFormatName(key);
  if (std::wcscmp(name, L"Unknown") != 0) return name;
  return std::to_wstring(key);
}

}  // namespace

Status MultiBufferTraits<BaseImage>::CreateStorage(BaseImage& object, const ImageInfo& info, int32_t key,
                                                   const ImageData* adopt, int32_t options, BaseImage** storage) {
  return CreateImageSysMem(info, key, adopt, options, object.GetMemoryProvider(), storage);
}

Status MultiBufferTraits<BaseImage>::ConvertThrough(BaseImage& object, ImageInfo* src_info, ImageData* src,
                                                    ImageInfo* mid_info, ImageData* mid, ImageInfo* dst_info,
                                                    ImageData* dst) {
  if (Base* provider = object.GetMemoryProvider(); provider && provider->QueryInstance<LMXCustomImageFormat>())
    return LMX_STATUS_PARAM_UNSUPPORTED;
  return ConvertThroughIntermediate(src_info, src, mid_info, mid, dst_info, dst);
}

Status MultiBufferTraits<BaseAudio>::CreateStorage(BaseAudio& /*object*/, const AudioInfo& info, int32_t key,
                                                   const AudioData* adopt, int32_t options, BaseAudio** storage) {
  AudioSysMem* sysmem = nullptr;
  const Status sts = AudioSysMem::Create(info, key, adopt, static_cast<uint32_t>(options), &sysmem);
  *storage = sysmem;
  return sts;
}

template <class BASE, class INFO, class DATA>
MultiBuffer<BASE, INFO, DATA>::MultiBuffer(Session* session, INFO* info, DATA* data, int32_t options, Status* sts) {
  // A null session is allowed: no observer, no rebuilding of serialised objects.
  if (session) observer = static_cast<LMXAccessObserver*>(session->QueryInstance(LMXAccessObserver::kIid));
  SetSession(session);
  const Status result = Init(info, data, options);
  if (sts) *sts = result;
}

template <class BASE, class INFO, class DATA>
MultiBuffer<BASE, INFO, DATA>::~MultiBuffer() {
  {
    lmx::LockGuard guard(lock);  // uncontended: the last reference is gone
    DropBuffers();
  }
  for (Base* object : attached_)
    if (object) object->Release();
  attached_.clear();
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::Init(INFO* info, DATA* data, int32_t options) {
  this->options = options;
  if (!info) {
    LMX_CHECK(!data, LMX_STATUS_PARAM_UNSUPPORTED);
    return LMX_STATUS_NO_ERROR;  // an empty object, described later by ReInitImpl
  }
  return ReInitImpl(info, data, options);
}

template <class BASE, class INFO, class DATA>
void MultiBuffer<BASE, INFO, DATA>::DropBuffers() {
  for (auto& [key, native] : buffers)
    if (native.buffer) native.buffer->Release();
  buffers.clear();
}

template <class BASE, class INFO, class DATA>
void* MultiBuffer<BASE, INFO, DATA>::QueryInstance(InterfaceId iid) {
  if (void* face = BASE::QueryInstance(iid)) return face;
  if (iid == LMXReleaseService::kIid) return static_cast<LMXReleaseService*>(this);
  if (iid == Reference::kIid) return static_cast<Reference*>(this);
  if (iid == Metadata::kIid) return static_cast<Metadata*>(this);  // not kIid2: that is a standalone store's
  if (iid == LMXMetadataInternal::kIid) return static_cast<LMXMetadataInternal*>(this);
  return nullptr;
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::AcquireAccess(Access access, Format format, int32_t options, DATA* data) try {
  if constexpr (!Traits::kHasRotation) {
    return AcquireAccessMulti(access, nullptr, format, data);
  } else {
    int32_t angle = options & 0x1FF;
    if (angle) {
      // Each mirroring property (304) that is set turns the angle the other way.
      const int32_t size = this->QueryBufferSize(kMetadataMirroring);
      if (size > 0 && size <= kMirroringMaxBytes) {
        std::vector<uint8_t> pairs(static_cast<size_t>(size));
        if (this->QueryBuffer(kMetadataMirroring, pairs.data(), size) >= 0 && size >= 8) {
          for (int32_t offset = 0; offset + 8 <= size; offset += 8) {
            uint32_t id;
            float value;
            std::memcpy(&id, pairs.data() + offset, sizeof(id));
            std::memcpy(&value, pairs.data() + offset + 4, sizeof(value));
            if (id == kMirrorPropertyId && !(value == 0.0f)) angle = 360 - angle;
          }
        }
      }
    }
    // Format 0 names the native format; a rotated view of it needs the format spelled
    // out, or the key would carry a rotation of no format at all.
    const int32_t plain = (format == 0 && angle != 0) ? this->info.format : static_cast<int32_t>(format);
    const int32_t key = FormatKey(plain, angle);
    return AcquireAccessMulti(access, nullptr, key, data);
  }
}
LMX_EDGE_CATCH

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::AcquireAccessMulti(Access access, void* accelerator, int32_t key, DATA* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  std::memset(data, 0, sizeof(*data));
  Format interm = static_cast<Format>(0);
  for (int passes = 0;;) {
    Status sts;
    do {
      sts = InternalAcquireAccess(access, accelerator, key, data, true, &interm);
    } while (sts == LMX_STATUS_EXEC_INPROGRESS);
    if (sts >= 0 || interm == 0) return sts;
    // The conversion named an intermediate format: convert into it, then try again
    // from it alone (interm keeps its value and restricts the next source).
    DATA local{};
    if (InternalAcquireAccess(BASE::ACCESS_READ, accelerator, interm, &local, true, nullptr, key) < 0) return sts;
    ReleaseAccess(&local);
    if (++passes >= kMaxIntermediatePasses) return sts;
  }
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::InternalAcquireAccess(Access access, void* /*accelerator*/, int32_t key,
                                                            DATA* data, bool bAllocationAllowed, Format* interm,
                                                            int32_t onward) {
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "MultiBuffer::InternalAcquireAccess");
  LMX_CHECK(access == BASE::ACCESS_WRITE || access == BASE::ACCESS_READ || access == BASE::ACCESS_READ_WRITE,
            LMX_STATUS_PARAM_UNSUPPORTED);
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  if (Traits::IsAttachable(key)) return GetAttachableBuffer(access, key, data);

  if (bAllocationAllowed) {
    for (int i = 0; i < kWriteWaitTries && !m_bWriteFinished; ++i) std::this_thread::sleep_for(kWriteWaitStep);
  }
  LMX_CHECK(m_bWriteFinished, LMX_STATUS_PARAM_UNSUPPORTED);

  lmx::LockGuard guard(lock);
  // A write may have begun between the wait and the lock: the caller retries.
  if (LMX_FAILED_ON(m_bWriteFinished)) return LMX_STATUS_EXEC_INPROGRESS;
  const int32_t writing = access & BASE::ACCESS_WRITE;
  if (writing) LMX_CHECK(!access_list.size(), LMX_STATUS_PARAM_UNSUPPORTED);
  // One record cannot hold two acquisitions: the first would be lost.
  LMX_CHECK(FindAccess(data) == access_list.end(), LMX_STATUS_PARAM_UNSUPPORTED);

  const int32_t sourceFormat = interm ? static_cast<int32_t>(*interm) : 0;
  if (interm) *interm = static_cast<Format>(0);
  const int32_t format = key ? key : this->info.format;

  NativeBuffer* native = nullptr;
  Status sts = LMX_STATUS_NO_ERROR;
  if (LMX_CALL_FAILED(sts, GetBuffer(&this->info, format, 0, this->options, bAllocationAllowed, &native))) return sts;

  if ((access & BASE::ACCESS_READ) && !native->valid) {
    LMX_CHECK(bAllocationAllowed, LMX_STATUS_ITEM_UNAVAILABLE);
    const NativeBuffer* tried = nullptr;
    NativeBuffer* through = nullptr;  // the onward buffer, when converted in the same pass
    bool converted = false;
    for (auto& [sourceKey, source] : buffers) {
      if (!source.valid || !source.buffer || &source == native) continue;
      INFO srcInfo = Traits::Describe(source.buffer);
      INFO dstInfo = Traits::Describe(native->buffer);
      if (sourceFormat != 0 && sourceFormat != srcInfo.format) continue;
      tried = &source;
      if (onward && ConvertOnward(source, *native, onward, &through)) {
        converted = true;
        break;
      }
      DATA dst{};
      DATA src{};
      if (native->buffer->AcquireNativeAccess(BASE::ACCESS_WRITE, kStorageConversionOption, &dst) < 0) continue;
      if (source.buffer->AcquireNativeAccess(BASE::ACCESS_READ, kStorageConversionOption, &src) < 0) {
        native->buffer->ReleaseNativeAccess(&dst);
        continue;
      }
      const Status copied = this->CopySystemBuffer(&srcInfo, &src, &dstInfo, &dst, interm);
      source.buffer->ReleaseNativeAccess(&src);
      native->buffer->ReleaseNativeAccess(&dst);
      if (copied >= 0) {
        converted = true;
        break;
      }
    }
    if (converted) native->valid = 1;
    LogConversion(tried, format, converted, interm ? static_cast<int32_t>(*interm) : 0);
    if (through) {
      through->valid = 1;
      LogConversion(native, onward, true, 0);
    }
    if (!converted) return LMX_STATUS_PARAM_UNSUPPORTED;
  }

  // The record is made before the planes are taken, so nothing can fail after.
  access_list.emplace_back(data, native);
  if (LMX_CALL_FAILED(sts, native->buffer->AcquireNativeAccess(access, 0, data))) {
    access_list.pop_back();
    return sts;
  }
  AddRef();
  if (notify_ && observer) observer->OnAcquire(Traits::ObserverKind(this->info.format));
  // Written under the lock, which orders it for every reader that decides under
  // the lock; a release store spares the full fence of the default order.
  if (writing) m_bWriteFinished.store(false, std::memory_order_release);
  return LMX_STATUS_NO_ERROR;
}

template <class BASE, class INFO, class DATA>
bool MultiBuffer<BASE, INFO, DATA>::ConvertOnward(NativeBuffer& source, NativeBuffer& mid, int32_t onward,
                                                  NativeBuffer** through) {
  auto it = buffers.find(onward);
  if (it == buffers.end() || !it->second.buffer || it->second.valid) return false;
  BASE* ends[] = {source.buffer, mid.buffer, it->second.buffer};
  INFO infos[3];
  DATA planes[3]{};
  int acquired = 0;
  for (; acquired < 3; ++acquired) {
    infos[acquired] = Traits::Describe(ends[acquired]);
    const Access access = acquired ? BASE::ACCESS_WRITE : BASE::ACCESS_READ;
    if (ends[acquired]->AcquireNativeAccess(access, kStorageConversionOption, &planes[acquired]) < 0) break;
  }
  const bool done = acquired == 3 && Traits::ConvertThrough(*this, &infos[0], &planes[0], &infos[1], &planes[1],
                                                            &infos[2], &planes[2]) >= 0;
  for (int i = acquired - 1; i >= 0; --i) ends[i]->ReleaseNativeAccess(&planes[i]);
  if (done) *through = &it->second;
  return done;
}

template <class BASE, class INFO, class DATA>
void MultiBuffer<BASE, INFO, DATA>::LogConversion(const NativeBuffer* tried, int32_t format, bool converted,
                                                  int32_t named) {
  LoggingService* logger = lmsdk::LogUtil::GetLogger();
  if (!Traits::kLogsConversion || !logger->IsLevelEnabled(LOG_LEVEL_DEBUG)) return;  // images only
  std::wostringstream line;
  line << L"Format conversion [";
  bool first = true;
  for (const auto& [entryKey, entry] : buffers) {
    if (!first) line << L",";
    first = false;
    line << KeyName(entryKey);
    if (!entry.valid) line << L"(invalid)";
    if (&entry == tried) line << L"(*)";
  }
  line << L"] -> " << KeyName(format);
  if (!converted) line << L" conversion failed";
  if (named) line << L" interm_format=" << KeyName(named);
  const int32_t level = named ? LOG_LEVEL_DEBUG : (converted ? LOG_LEVEL_VERBOSE : LOG_LEVEL_ERROR);
  logger->LogW(level, line.str().c_str(), LMX_LOG_SOURCE_FILE, __LINE__, LMX_FUNCSIG);
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::GetBuffer(INFO* info, int32_t key, DATA* data, int32_t options,
                                                bool bAllocationAllowed, NativeBuffer** native) {
  lmx::LockGuard guard(lock);
  if (auto it = buffers.find(key); it != buffers.end() && it->second.buffer) {
    *native = &it->second;
    return LMX_STATUS_NO_ERROR;
  }
  LMX_CHECK(bAllocationAllowed || buffers.size() == 1, LMX_STATUS_ITEM_UNAVAILABLE);
  // The entry is made first and filled last: a failure on the way leaves no
  // storage without an entry and no entry without storage.
  const auto [it, made] = buffers.try_emplace(key);
  auto forget = [&, it = it, made = made] {
    lock.AssertHeld();  // this function's guard, which the analysis does not follow into the lambda
    if (made) buffers.erase(it);
  };
  BASE* storage = nullptr;
  const Status sts = Traits::CreateStorage(*this, *info, key, data, options, &storage);
  if (sts < 0 || !storage) {
    if (storage) storage->Release();
    forget();
    return sts < 0 ? sts : LMX_STATUS_ALLOC_FAILED;
  }
  it->second = {storage, key, data ? 1 : 0};
  *native = &it->second;
  return LMX_STATUS_NO_ERROR;
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::GetAttachableBuffer(Access access, int32_t format, DATA* data) {
  lmx::LockGuard guard(lock);
  NativeBuffer* native = nullptr;
  Status sts = LMX_STATUS_NO_ERROR;
  if (LMX_CALL_FAILED(sts, GetBuffer(&this->info, format, 0, this->options, true, &native))) return sts;
  if (LMX_CALL_FAILED(sts, native->buffer->AcquireNativeAccess(access, 0, data))) return sts;
  if ((access & BASE::ACCESS_READ) && !native->valid && !(access & BASE::ACCESS_WRITE)) {
    // Nothing was ever written into this side data: give the planes back.
    if (LMX_CALL_FAILED(sts, native->buffer->ReleaseNativeAccess(data))) return sts;
    std::memset(data, 0, sizeof(*data));
    return LMX_STATUS_ITEM_UNAVAILABLE;
  }
  if (access & BASE::ACCESS_WRITE) native->valid = 1;
  return LMX_STATUS_NO_ERROR;
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::ReleaseAccess(DATA* data) try {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "MultiBuffer::ReleaseAccess");
  Status sts = LMX_STATUS_NO_ERROR;
  {
    lmx::LockGuard guard(lock);
    auto it = FindAccess(data);
    // Side data is acquired without a record, so it has nothing to end. The record
    // is looked for first: an image whose native format is attachable, acquired as
    // format 0, went the normal way and holds a record, a reference and possibly
    // the write; skipping it would leak all three and block every later write.
    if (it == access_list.end() && Traits::IsAttachable(data->format)) return LMX_STATUS_NO_ERROR;
    LMX_CHECK(it != access_list.end(), LMX_STATUS_HANDLE_INVALID);
    NativeBuffer* native = it->second;
    access_list.erase(it);
    sts = native->buffer->ReleaseNativeAccess(data);
    if (!m_bWriteFinished) {
      for (auto& [key, entry] : buffers)
        if (!Traits::IsAttachable(key)) entry.valid = 0;
      native->valid = 1;
      m_bWriteFinished.store(true, std::memory_order_release);
    }
    std::memset(data, 0, sizeof(*data));
  }
  // Outside the lock: this may be the last reference, which destroys the lock too.
  Release();
  return sts;
}
LMX_EDGE_CATCH

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::AcquireNativeAccess(Access access, int32_t /*option*/, DATA* data) try {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  lmx::LockGuard guard(lock);
  NativeBuffer* native = nullptr;
  LMX_CHECK_CALL(GetBuffer(&this->info, this->info.format, 0, this->options, true, &native));
  return native->buffer->AcquireNativeAccess(access, 0, data);
}
LMX_EDGE_CATCH

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::ReInitImpl(INFO* info, DATA* data, int32_t options) try {
  LMX_CHECK(info, LMX_STATUS_HANDLE_INVALID);
  lmx::LockGuard guard(lock);
  // Storage of the old description must never be converted with the new one.
  LMX_CHECK(access_list.empty() && m_bWriteFinished, LMX_STATUS_PARAM_UNSUPPORTED);
  const int32_t numberPlanes = Traits::CountPlanes(info);
  LMX_CHECK(numberPlanes, LMX_STATUS_PARAM_UNSUPPORTED);
  DropBuffers();
  this->info = *info;
  this->options = options;
  if (data) {
    NativeBuffer* native = nullptr;
    LMX_CHECK_CALL(GetBuffer(&this->info, this->info.format, data, this->options, true, &native));
  }
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

template <class BASE, class INFO, class DATA>
bool MultiBuffer<BASE, INFO, DATA>::TakeNotifyOption(int32_t options) {
  if (options != kNotifyOption) return false;
  notify_ = true;
  return true;
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::KeepInvalidateCallback(LMXImageService::InvalidateCallback callback,
                                                             void* argument) {
  lmx::LockGuard guard(lock);
  invalidateCallback_ = callback;
  invalidateArgument_ = callback ? argument : nullptr;
  return LMX_STATUS_NO_ERROR;
}

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::KeepAttachedObject(Base* object) try {
  LMX_CHECK(object, LMX_STATUS_HANDLE_INVALID);
  lmx::LockGuard guard(lock);
  attached_.push_back(object);
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

template <class BASE, class INFO, class DATA>
Status MultiBuffer<BASE, INFO, DATA>::InvalidateData() try {
  lmx::LockGuard guard(lock);
  if (!buffers.empty()) {
    LMX_LOG(LOG_LEVEL_VERBOSE,
            L"Invalidating image " << static_cast<const void*>(this) << L" with " << buffers.size() << L" buffers");
  }
  for (auto& [key, entry] : buffers) entry.valid = 0;
  if (auto callback = std::exchange(invalidateCallback_, nullptr))
    callback(std::exchange(invalidateArgument_, nullptr));
  std::vector<Base*> objects = std::move(attached_);
  attached_.clear();
  for (Base* object : objects)
    if (object) object->Release();
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

template <class BASE, class INFO, class DATA>
size_t MultiBuffer<BASE, INFO, DATA>::BufferCount() {
  lmx::LockGuard guard(lock);
  return buffers.size();
}

template <class BASE, class INFO, class DATA>
bool MultiBuffer<BASE, INFO, DATA>::IsBufferValid(int32_t key) {
  lmx::LockGuard guard(lock);
  auto it = buffers.find(key);
  return it != buffers.end() && it->second.valid;
}

template class MultiBuffer<BaseImage, ImageInfo, ImageData>;
template class MultiBuffer<BaseAudio, AudioInfo, AudioData>;

}  // namespace lmx
