// The allocator service: creates the multi-format image and audio objects.
#include <new>

#include "image/coreaccel_multibuffer.h"
#include "image/plane_cache.h"
#include "kernels/band_pool.h"
#include "lmxallocator.h"
#include "lmxutils.h"
#include "image/coreaccel_manager.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {

class AllocatorImpl final : public LMXAddRefImpl<LMXBaseImpl<LMXAllocator, LMXAllocatorOptions>> {
 public:
  explicit AllocatorImpl(Session* session) : session(session) {}
  ~AllocatorImpl() {
    LMX_LOG_IN("AllocatorImpl::~AllocatorImpl()", LOG_LEVEL_DEBUG, L"this = " << static_cast<const void*>(this));
  }

  Status Reserved2() override { return LMX_STATUS_NO_ERROR; }
  Status Reserved3() override { return LMX_STATUS_NO_ERROR; }
  Status Reserved4() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved5() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }
  Status Reserved6() override { return LMX_STATUS_FEATURE_UNSUPPORTED; }

  // The body of CreateImage and CreateAudio: a new multi-format object of the
  // session, owned by the caller, or nothing when its construction failed.
  template <class OBJECT, class INFO, class DATA, class FACE>
  Status CreateObject(INFO* info, int32_t options, DATA* data, FACE** buffer) {
    LMX_CHECK(buffer, LMX_STATUS_HANDLE_INVALID);
    LMX_CHECK(info || !data, LMX_STATUS_HANDLE_INVALID);
    *buffer = nullptr;
    Status sts = LMX_STATUS_ALLOC_FAILED;
    auto* obj = new (std::nothrow) OBJECT(session, info, data, options, &sts);
    LMX_CHECK(obj, LMX_STATUS_ALLOC_FAILED);
    if (sts < 0) {
      obj->Destroy(kDestroyFreeMemory);  // never reaches the caller
      return sts;
    }
    *buffer = obj;
    return sts;
  }

  Status CreateImage(ImageInfo* info, int32_t options, ImageData* data, Image** buffer) override try {
    LMX_TRACE("CreateImage");
    return CreateObject<ImageObject>(info, options, data, buffer);
  }
  LMX_EDGE_CATCH

  Status CreateAudio(AudioInfo* info, int32_t options, AudioData* data, Speech::Audio** buffer) override try {
    LMX_TRACE("CreateAudio");
    return CreateObject<AudioObject>(info, options, data, buffer);
  }
  LMX_EDGE_CATCH

  // LMXAllocatorOptions: the plane cache's bound and the band pool's thread limit.
  Status SetOption(int32_t option, int64_t value) override {
    LMX_CHECK(option == LMX_OPTION_PLANE_CACHE_MB || option == LMX_OPTION_CONVERSION_THREADS,
              LMX_STATUS_FEATURE_UNSUPPORTED);
    if (option == LMX_OPTION_CONVERSION_THREADS) {
      LMX_CHECK(value >= 0 && value <= kMaxConversionThreads, LMX_STATUS_PARAM_UNSUPPORTED);
      SetConversionThreadLimit(static_cast<int32_t>(value));
      return LMX_STATUS_NO_ERROR;
    }
    LMX_CHECK(value >= -1 && value <= PlaneCache::kMaxSettingMb, LMX_STATUS_PARAM_UNSUPPORTED);
    PlaneCache::Process().SetLimit(value < 0 ? PlaneCache::kAutomatic : value << 20);
    return LMX_STATUS_NO_ERROR;
  }

  Status GetOption(int32_t option, int64_t* value) override {
    LMX_CHECK(option == LMX_OPTION_PLANE_CACHE_MB || option == LMX_OPTION_CONVERSION_THREADS,
              LMX_STATUS_FEATURE_UNSUPPORTED);
    LMX_CHECK(value, LMX_STATUS_HANDLE_INVALID);
    if (option == LMX_OPTION_CONVERSION_THREADS) {
      *value = ConversionThreadLimit();
      return LMX_STATUS_NO_ERROR;
    }
    const int64_t setting = PlaneCache::Process().Setting();
    *value = setting < 0 ? -1 : setting >> 20;
    return LMX_STATUS_NO_ERROR;
  }

  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

 private:
  Session* session;  // may be null; handed to every object created
};

}  // namespace

using Norvik::Lumetra::Service::DLLExportTable;

Norvik::Lumetra::Status CreateAllocator(Norvik::Lumetra::Session* session, LMXSchedulerService*,
                                        Norvik::Lumetra::Service::Accelerator*, DLLExportTable*, int32_t,
                                        Norvik::Lumetra::Base** result) try {
  using namespace Norvik::Lumetra;
  LMX_CHECK(result, LMX_STATUS_HANDLE_INVALID);
  *result = nullptr;
  auto* allocator = new (std::nothrow) AllocatorImpl(session);
  LMX_CHECK(allocator, LMX_STATUS_ALLOC_FAILED);
  *result = static_cast<LMXAllocator*>(allocator);
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

}  // namespace lmx
