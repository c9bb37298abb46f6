// coreaccel_multibuffer.h: the image (and audio) object that holds one content in
// several formats at once.
//
// MultiBuffer<BASE, INFO, DATA> keeps one storage object per format key (pixel
// format plus rotation << 21), created lazily. A reader that asks for a format not
// present or stale gets it converted, under the object's lock, from a valid one
// (CopySystemBuffer), through at most three intermediate formats that the
// conversion names. A write makes every other non-attachable format stale when it
// is released. Each successful acquisition holds one reference on the object.
//
// Faces, in memory order: BASE's (images: Image, LMXImageService,
// LMXImageServiceOld; audio: Audio, LMXAudioService), then LMXReleaseService,
// Reference, Metadata and LMXMetadataInternal (the object is its own metadata
// store; it answers only the first Metadata identifier).
//
// Concurrency: any thread may acquire and release. `lock` (recursive) guards
// `buffers` and `access_list` and is held during a conversion. m_bWriteFinished is
// read without the lock while waiting and again under it; it is written only
// under the lock. The reference count is atomic (full ordering; lmx::RefCount).
//
// The member definitions are in coreaccel_multibuffer.cpp, which instantiates the
// template for images and for audio.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstddef>
#include <map>
#include <memory_resource>
#include <mutex>
#include <utility>
#include <vector>

#include "core_metadata.h"
#include "image/coreaccel_baseaudio.h"
#include "image/coreaccel_baseimage.h"
#include "lmx/platform/recursive_lock.h"
#include "lmxsession.h"

// What the session hands an image or audio object under 0x852193AF: told of each
// successful acquisition (1 image, 2 depth-like image, 3 audio) once the object's
// options setter received 0xC8136925.
// Slots: 0 QueryInstance, 1 Release, 2 OnAcquire, 3 Destroy.
class LMXAccessObserver : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = static_cast<Norvik::Lumetra::InterfaceId>(0x852193AF);
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  virtual void OnAcquire(int32_t kind) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXAccessObserver() = default;
};

namespace lmx {

using AudioInfo = LMXAudio::AudioInfo;
using AudioData = LMXAudio::AudioData;

// What the template needs to know of its family (image or audio).
template <class BASE>
struct MultiBufferTraits;

template <>
struct MultiBufferTraits<BaseImage> {
  using Format = Norvik::Lumetra::Image::PixelFormat;
  // AcquireAccess turns its options' low 9 bits (and the mirroring metadata) into
  // the rotation bits of the key.
  static constexpr bool kHasRotation = true;
  // Conversions write the "Format conversion [...]" line.
  static constexpr bool kLogsConversion = true;
  // The side-data formats: never tracked, never made stale by a write.
  static bool IsAttachable(int32_t key) { return lmx::IsAttachable(key); }
  // Storage of one key; the object's memory provider (metadata 0x24740F79) is handed on.
  static Norvik::Lumetra::Status CreateStorage(BaseImage& object, const ImageInfo& info, int32_t key,
                                               const ImageData* adopt, int32_t options, BaseImage** storage);
  static ImageInfo Describe(BaseImage* storage) {
    ImageInfo description{};
    storage->GetImageInfo(&description);
    return description;
  }
  static int32_t CountPlanes(const ImageInfo* info) { return QueryPlaneInfo(info, 0, nullptr); }
  // A conversion through an intermediate format in one pass
  // (ConvertThroughIntermediate), unless the object's memory provider converts:
  // it is offered each step.
  static Norvik::Lumetra::Status ConvertThrough(BaseImage& object, ImageInfo* src_info, ImageData* src,
                                                ImageInfo* mid_info, ImageData* mid, ImageInfo* dst_info,
                                                ImageData* dst);
  // 2 for depth-like native formats, 1 otherwise.
  static int32_t ObserverKind(int32_t nativeFormat) { return IsDepthLike(nativeFormat) ? 2 : 1; }
};

template <>
struct MultiBufferTraits<BaseAudio> {
  using Format = LMXAudio::AudioFormat;
  static constexpr bool kHasRotation = false;
  static constexpr bool kLogsConversion = false;
  static bool IsAttachable(int32_t) { return false; }
  static Norvik::Lumetra::Status CreateStorage(BaseAudio& object, const AudioInfo& info, int32_t key,
                                               const AudioData* adopt, int32_t options, BaseAudio** storage);
  static AudioInfo Describe(BaseAudio* storage) { return storage->QueryInfo(); }
  static Norvik::Lumetra::Status ConvertThrough(BaseAudio&, AudioInfo*, AudioData*, AudioInfo*, AudioData*, AudioInfo*,
                                                AudioData*) {
    return Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED;
  }
  // One block of samples for the two sample formats; none for any other code.
  static int32_t CountPlanes(const AudioInfo* info) {
    return info->format == LMXAudio::AUDIO_FORMAT_PCM || info->format == LMXAudio::AUDIO_FORMAT_IEEE_FLOAT ? 1 : 0;
  }
  static int32_t ObserverKind(int32_t) { return 3; }
};

// The entry points in which the image and audio faces differ, forwarded to the
// multi-format object OBJECT (which derives from this class). These classes add
// no virtual operations of their own, so BASE's slots keep their places.
template <class BASE, class OBJECT>
class MultiBufferFace;

template <class OBJECT>
class MultiBufferFace<BaseImage, OBJECT> : public BaseImage {
 public:
  // The options setter (last slot).
  Norvik::Lumetra::Status SetOptionsImpl(int32_t options) override {
    if (Self().TakeNotifyOption(options)) return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
    return BaseImage::SetOptionsImpl(options);
  }
  Norvik::Lumetra::Status SetInvalidateCallback(LMXImageService::InvalidateCallback callback, void* argument) override {
    return Self().KeepInvalidateCallback(callback, argument);
  }
  Norvik::Lumetra::Status AttachObject(Norvik::Lumetra::Base* object) override {
    return Self().KeepAttachedObject(object);
  }

 private:
  OBJECT& Self() { return static_cast<OBJECT&>(*this); }
};

template <class OBJECT>
class MultiBufferFace<BaseAudio, OBJECT> : public BaseAudio {
 public:
  // Both options setters of the audio face take the notification value.
  void SetOptions(uint32_t options) override {
    if (!Self().TakeNotifyOption(static_cast<int32_t>(options))) BaseAudio::SetOptions(options);
  }
  void SetOptionsAgain(uint32_t options) override {
    if (!Self().TakeNotifyOption(static_cast<int32_t>(options))) BaseAudio::SetOptionsAgain(options);
  }

 private:
  OBJECT& Self() { return static_cast<OBJECT&>(*this); }
};

template <class BASE, class INFO, class DATA>
class MultiBuffer : public MultiBufferFace<BASE, MultiBuffer<BASE, INFO, DATA>>,
                    public LMXReleaseService,
                    public Norvik::Lumetra::Reference,
                    public LMXMetadataStore<MetadataFaces> {
 public:
  using Status = Norvik::Lumetra::Status;
  using Base = Norvik::Lumetra::Base;
  using InterfaceId = Norvik::Lumetra::InterfaceId;
  using Access = typename BASE::Access;
  using Traits = MultiBufferTraits<BASE>;
  using Format = typename Traits::Format;

  // The options value that turns observer notification on instead of being stored.
  static constexpr int32_t kNotifyOption = static_cast<int32_t>(0xC8136925);

  // One format of the object.
  struct NativeBuffer {
    BASE* buffer = nullptr;  // owns the planes of this format
    int32_t format = 0;      // the key under which it is stored
    int32_t valid = 0;       // holds the current content
  };

  // Copies info (and adopts data's planes as the native format), starts the count
  // at 1, keeps the session's observer, and reports the initialisation's status in
  // *sts: LMX_STATUS_PARAM_UNSUPPORTED for data without info.
  MultiBuffer(Norvik::Lumetra::Session* session, INFO* info, DATA* data, int32_t options, Status* sts);

  // Base, Reference, LMXReleaseService.
  void* QueryInstance(InterfaceId iid) override;
  void Release() override { refCount_.Release(this); }
  uint32_t AddRef() override { return refCount_.AddRef(); }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
  Status SetReleaseHandler(ReleaseHandler handler, void* context) override {
    return refCount_.SetReleaseHandler(handler, context);
  }
  Status AddDependent(Base* dependent) override { return refCount_.AddDependent(dependent); }

  // Image and audio entry points (rotation from metadata 0x61516733 applies to images only).
  Status AcquireAccess(Access access, Format format, int32_t options, DATA* data) override;
  using BASE::AcquireAccess;  // the audio face's three-argument form
  Status ReleaseAccess(DATA* data) override;
  // Hands out the planes of the native format's buffer as they are.
  Status AcquireNativeAccess(Access access, int32_t option, DATA* data) override;
  // Refused while any access is outstanding; drops every buffer of the old description.
  Status ReInitImpl(INFO* info, DATA* data, int32_t options) override;
  // LMXImageService / LMXAudioService: every buffer stale, callback run, attached objects released.
  Status InvalidateData() override;

  // The options setters' common part: true (and notification on) for kNotifyOption.
  bool TakeNotifyOption(int32_t options);
  // LMXImageService's SetInvalidateCallback and AttachObject (images only).
  Status KeepInvalidateCallback(LMXImageService::InvalidateCallback callback, void* argument);
  Status KeepAttachedObject(Base* object);

  // The retry loop around InternalAcquireAccess, with up to three intermediate passes.
  Status AcquireAccessMulti(Access access, void* accelerator, int32_t key, DATA* data);
  // One attempt: wait for a write to finish, find or create the buffer, convert
  // into it when reading a stale buffer, hand out its planes. `onward`, when not
  // 0, is the key this buffer is an intermediate for: where a one-pass kernel
  // exists, its stale buffer is converted in the same pass (and logged as if
  // converted next).
  Status InternalAcquireAccess(Access access, void* accelerator, int32_t key, DATA* data, bool bAllocationAllowed,
                               Format* interm, int32_t onward = 0);
  // The buffer of a key, created (adopting data, or allocating) when absent.
  Status GetBuffer(INFO* info, int32_t key, DATA* data, int32_t options, bool bAllocationAllowed,
                   NativeBuffer** native);
  // Side-data acquisition: no access record, no reference, always allowed to allocate.
  Status GetAttachableBuffer(Access access, int32_t format, DATA* data);

  // Observations for tests and diagnostics.
  uint32_t RefCount() const { return refCount_.Count(); }
  size_t BufferCount();
  bool IsBufferValid(int32_t key);

  ~MultiBuffer();

 private:
  Status Init(INFO* info, DATA* data, int32_t options);
  // Converts `source` into `mid` and on into the stale buffer of key `onward` in
  // one pass; true when done (`mid` and the onward buffer then both hold the content).
  bool ConvertOnward(NativeBuffer& source, NativeBuffer& mid, int32_t onward, NativeBuffer** through)
      LMX_REQUIRES(lock);
  // The "Format conversion [...]" line of a conversion into `format`.
  void LogConversion(const NativeBuffer* tried, int32_t format, bool converted, int32_t named) LMX_REQUIRES(lock);
  void DropBuffers() LMX_REQUIRES(lock);

  lmx::RefCount refCount_;  // the count, the release handler and the dependents
  LMXImageService::InvalidateCallback invalidateCallback_ = nullptr;
  void* invalidateArgument_ = nullptr;
  std::vector<Base*> attached_;
  std::map<int32_t, NativeBuffer> buffers LMX_GUARDED_BY(lock);
  // The outstanding acquisitions: each caller's record and the buffer it holds. A
  // handful at most, searched in order. The vector keeps its room, which starts in
  // the object itself, so acquiring an object allocates nothing (up to four
  // acquisitions at once; beyond them the room comes from the heap, and stays).
  using AccessRecord = std::pair<DATA*, NativeBuffer*>;
  alignas(AccessRecord) std::byte accessRoom_[8 * sizeof(AccessRecord)];
  std::pmr::monotonic_buffer_resource accessArena_{accessRoom_, sizeof(accessRoom_)};
  std::pmr::vector<AccessRecord> access_list LMX_GUARDED_BY(lock){&accessArena_};
  typename std::pmr::vector<AccessRecord>::iterator FindAccess(DATA* data) LMX_REQUIRES(lock) {
    return std::find_if(access_list.begin(), access_list.end(),
                        [data](const auto& entry) { return entry.first == data; });
  }
  lmx::RecursiveLock lock;
  std::atomic<bool> m_bWriteFinished{true};
  std::atomic<bool> notify_{false};
  LMXAccessObserver* observer = nullptr;
};

using ImageObject = MultiBuffer<BaseImage, ImageInfo, ImageData>;
using AudioObject = MultiBuffer<BaseAudio, AudioInfo, AudioData>;
extern template class MultiBuffer<BaseImage, ImageInfo, ImageData>;
extern template class MultiBuffer<BaseAudio, AudioInfo, AudioData>;

}  // namespace lmx
