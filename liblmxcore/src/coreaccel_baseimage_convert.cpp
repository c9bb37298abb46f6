// BaseImage::CopySystemBuffer: the object side of converting one buffer of an
// image into another (checks, the host provider's hand-off), then the routing.
#include <cstring>
#include <string>

#include "coreaccel_baseimage.h"
#include "lmx/platform/text.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {

// Conversion traces name 0x18000 "NV21", which the names table lacks.
std::string ConversionName(int32_t format) {
  if (format == Image::PIXEL_FORMAT_NV21) return "NV21";
  return platform::WideToUtf8(PixelFormatName(format));
}

// ---------------------------------------------------------------------------
// INTERIM ROUTING, to be replaced by the conversion routing of
// kernels/convert_image.h (ConvertImageBuffer) when it is merged. It does only
// what the buffer mechanics need: equal unrotated formats copy plane by plane (or
// succeed at once on identical planes); every other pair is unsupported.
// ---------------------------------------------------------------------------
Status InterimRouteConversion(const ImageInfo& srcInfo, const ImageData& src, const ImageInfo& dstInfo,
                              const ImageData& dst) {
  if (srcInfo.format != dstInfo.format || (srcInfo.format & kRotationMask)) return LMX_STATUS_PARAM_UNSUPPORTED;
  if (std::memcmp(src.planes, dst.planes, sizeof(src.planes)) == 0 &&
      std::memcmp(src.pitches, dst.pitches, sizeof(src.pitches)) == 0)
    return LMX_STATUS_NO_ERROR;
  PlaneInfo planes{};
  const int32_t count = QueryPlaneInfo(&srcInfo, 0, &planes);
  for (int32_t c = 0; c < count; ++c) {
    if (!src.planes[c] || !dst.planes[c]) continue;
    const size_t rowBytes = static_cast<size_t>(planes.plane[c].width) * planes.plane[c].bytesPerPixel;
    for (uint32_t y = 0; y < planes.plane[c].height; ++y)
      std::memcpy(dst.planes[c] + static_cast<ptrdiff_t>(y) * dst.pitches[c],
                  src.planes[c] + static_cast<ptrdiff_t>(y) * src.pitches[c], rowBytes);
  }
  return LMX_STATUS_NO_ERROR;
}

}  // namespace

Status BaseImage::CopySystemBuffer(ImageInfo* src_info, ImageData* src, ImageInfo* dst_info, ImageData* dst,
                                   PixelFormat* interm) {
  LMX_CHECK(src_info && src && dst_info && dst, LMX_STATUS_HANDLE_INVALID);
  std::string traceName;
  if (lmsdk::LogUtil::GetLogger()->IsLevelEnabled(LOG_LEVEL_TRACE))
    traceName = "ImageConvert " + ConversionName(src_info->format) + "->" + ConversionName(dst_info->format);
  LMX_TRACE(traceName.c_str());
  LMX_CHECK(src_info->width == dst_info->width, LMX_STATUS_PARAM_UNSUPPORTED);
  LMX_CHECK(src_info->height == dst_info->height, LMX_STATUS_PARAM_UNSUPPORTED);

  // A host's memory provider may take the conversion over; a negative answer hands it back.
  if (Base* provider = GetMemoryProvider()) {
    if (auto* custom = provider->QueryInstance<LMXCustomImageFormat>()) {
      const Status sts = custom->CopySystemBuffer(src_info, src, dst_info, dst, interm);
      if (sts >= 0) return sts;
    }
  }
  return InterimRouteConversion(*src_info, *src, *dst_info, *dst);
}

}  // namespace lmx
