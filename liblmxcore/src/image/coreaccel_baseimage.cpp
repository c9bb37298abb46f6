// The plane query (size checks over the one pixel-format table of
// kernels/pixel_format_table.h) and the BaseImage operations that do not move
// pixels between buffers.
#include "image/coreaccel_baseimage.h"

#include <cstring>

#include "core_metadata.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

int32_t QueryPlaneInfo(const ImageInfo* info, int32_t /*options*/, PlaneInfo* planes) {
  PlaneInfo scratch;
  if (!planes) planes = &scratch;
  if (!info) return 0;
  LMX_CHECK(info->width && info->height, 0);
  LMX_CHECK(info->width < 32768 && info->height < 32768, 0);
  return ComputePlaneLayout(info->width, info->height, info->format, planes);
}

Status BaseImage::QueryInfo(ImageInfo* info) {
  LMX_CHECK(info, LMX_STATUS_HANDLE_INVALID);
  *info = this->info;
  return LMX_STATUS_NO_ERROR;
}

Status BaseImage::SetTimeStamp(int64_t timeStamp) {
  timeStamp_ = timeStamp;
  return LMX_STATUS_NO_ERROR;
}

Status BaseImage::SetDuration(int64_t duration) {
  duration_ = duration;
  return LMX_STATUS_NO_ERROR;
}

Status BaseImage::SetOptionsImpl(int32_t options) {
  PutOptions(options);
  return LMX_STATUS_NO_ERROR;
}

Status BaseImage::AcquireAccess(Access access, PixelFormat format, int32_t /*options*/, ImageData* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(format == 0 || format == this->data.format, LMX_STATUS_PARAM_UNSUPPORTED);
  return AcquireNativeAccess(access, 0, data);
}

Status BaseImage::ReleaseAccess(ImageData* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  Status sts = ReleaseNativeAccess(data);
  std::memset(data, 0, sizeof(*data));
  return sts;
}

int32_t BaseImage::QueryPlaneInfo(ImageInfo* info, int32_t options, PlaneInfo* planes) {
  return lmx::QueryPlaneInfo(info, options, planes);
}

int32_t BaseImage::QueryPlaneInfo(ImageInfo* info, PlaneInfo* planes) { return lmx::QueryPlaneInfo(info, 0, planes); }

Status BaseImage::SetInvalidateCallback(InvalidateCallback, void*) { return LMX_STATUS_FEATURE_UNSUPPORTED; }
Status BaseImage::AttachObject(Base*) { return LMX_STATUS_FEATURE_UNSUPPORTED; }
Status BaseImage::DetachPlane(uint8_t*) { return LMX_STATUS_ITEM_UNAVAILABLE; }
Status BaseImage::InvalidateData() { return LMX_STATUS_NO_ERROR; }

Status BaseImage::AcquireNativeAccess(Access /*access*/, int32_t /*options*/, ImageData* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  *data = this->data;
  return LMX_STATUS_NO_ERROR;
}

Status BaseImage::ReleaseNativeAccess(ImageData* /*data*/) { return LMX_STATUS_NO_ERROR; }

Status BaseImage::ReInitImpl(ImageInfo*, ImageData*, int32_t) { return LMX_STATUS_FEATURE_UNSUPPORTED; }

Status BaseImage::GetDepthScale(float* scale) {
  auto* metadata = static_cast<Metadata*>(QueryInstance(Metadata::kIid));
  if (!metadata) return LMX_STATUS_FEATURE_UNSUPPORTED;  // -1: no metadata face
  return metadata->QueryBuffer(kMetadataDepthScale, reinterpret_cast<uint8_t*>(scale), sizeof(float));
}

Base* BaseImage::GetMemoryProvider() {
  auto* metadata = static_cast<Metadata*>(QueryInstance(Metadata::kIid));
  if (!metadata) return nullptr;
  Base* provider = nullptr;
  if (metadata->QueryBufferSize(kMetadataMemoryProvider) != static_cast<int32_t>(sizeof(void*))) return nullptr;
  if (metadata->QueryBuffer(kMetadataMemoryProvider, reinterpret_cast<uint8_t*>(&provider), sizeof(void*)) < 0)
    return nullptr;
  return provider;
}

}  // namespace lmx
