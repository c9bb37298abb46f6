// Image layout (format names, plane query) and the BaseImage operations that do
// not move pixels between buffers.
#include "coreaccel_baseimage.h"

#include <cstring>
#include <string>

#include "core_metadata.h"
#include "lmx/platform/text.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {

// Built-in pixel formats: printed name, plane count, bytes per pixel of plane 0.
// Two-plane formats use one byte per pixel on both planes; plane 1 has half the rows.
struct PixelFormatTraits {
  int32_t format;
  const wchar_t* name;
  int32_t planes;
  uint32_t bytesPerPixel;
};

constexpr PixelFormatTraits kPixelFormats[] = {
    {Image::PIXEL_FORMAT_YUY2, L"YUY2", 1, 2},
    {Image::PIXEL_FORMAT_NV12, L"NV12", 2, 1},
    {Image::PIXEL_FORMAT_BGRA, L"BGRA", 1, 4},
    {Image::PIXEL_FORMAT_BGR, L"BGR", 1, 3},
    {Image::PIXEL_FORMAT_Y8, L"Y8", 1, 1},
    {Image::PIXEL_FORMAT_RGBA, L"RGBA", 1, 4},
    {Image::PIXEL_FORMAT_RGB, L"RGB", 1, 3},
    {Image::PIXEL_FORMAT_NV21, L"Unknown", 2, 1},  // named only in conversion traces
    {Image::PIXEL_FORMAT_DEPTH, L"DEPTH", 1, 2},
    {Image::PIXEL_FORMAT_DEPTH_NATIVE, L"DEPTH(NATIVE)", 1, 2},
    {Image::PIXEL_FORMAT_DEPTH_FLOAT, L"DEPTH(FLOAT)", 1, 4},
    {Image::PIXEL_FORMAT_Y16, L"Y16", 1, 2},
    {Image::PIXEL_FORMAT_Y8_RELATIVE, L"Y8_REL", 1, 1},
    {Image::PIXEL_FORMAT_ATTACHED_8BPP, L"Unknown", 1, 8},
    {Image::PIXEL_FORMAT_ATTACHED_2BPP, L"Unknown", 1, 2},
    {Image::PIXEL_FORMAT_DEPTH_CONFIDENCE, L"DEPTH(CONF)", 1, 1},
    {Image::PIXEL_FORMAT_ATTACHED_1BPP, L"Unknown", 1, 1},
};

const PixelFormatTraits* FindPixelFormat(int32_t format) {
  for (const auto& traits : kPixelFormats)
    if (traits.format == format) return &traits;
  return nullptr;
}

}  // namespace

const wchar_t* PixelFormatName(int32_t format) {
  const PixelFormatTraits* traits = FindPixelFormat(format);
  return traits ? traits->name : L"Unknown";
}

int32_t QueryPlaneInfo(const ImageInfo* info, int32_t /*options*/, PlaneInfo* planes) {
  PlaneInfo scratch;
  if (!planes) planes = &scratch;
  if (!info) return 0;
  LMX_CHECK(info->width && info->height, 0);
  LMX_CHECK(info->width < 32768 && info->height < 32768, 0);
  std::memset(planes, 0, sizeof(*planes));
  const PixelFormatTraits* traits = FindPixelFormat(info->format & kPixelFormatMask);
  if (!traits) return 0;
  for (int32_t c = 0; c < traits->planes; ++c) {
    planes->plane[c].width = static_cast<uint32_t>(info->width);
    planes->plane[c].height = static_cast<uint32_t>(info->height);
    planes->plane[c].bytesPerPixel = traits->bytesPerPixel;
  }
  if (traits->planes == 2) planes->plane[1].height = static_cast<uint32_t>(info->height / 2);
  const int32_t rotation = (info->format & kRotationMask) >> kRotationShift;
  if (rotation == 90 || rotation == 270) {
    for (int32_t c = 0; c < traits->planes; ++c) std::swap(planes->plane[c].width, planes->plane[c].height);
  }
  return traits->planes;
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

int32_t BaseImage::QueryPlaneInfo(ImageInfo* info, PlaneInfo* planes) {
  return lmx::QueryPlaneInfo(info, 0, planes);
}

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
  if (metadata->QueryBufferSize(kMetadataMemoryProvider) != static_cast<int32_t>(sizeof(provider))) return nullptr;
  if (metadata->QueryBuffer(kMetadataMemoryProvider, reinterpret_cast<uint8_t*>(&provider), sizeof(provider)) < 0)
    return nullptr;
  return provider;
}

}  // namespace lmx
