// Conversion routing between the buffers of one image: rotation and format
// dispatch, the conversion table, and the depth scale rules.
#include "coreaccel_baseimage_route.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "kernels/pixel_format_table.h"
#include "kernels/pixel_kernels.h"
#include "lmxutils.h"

namespace lmx {
namespace {

using namespace Norvik::Lumetra;
using Format = Image::PixelFormat;

constexpr uint8_t kOpaque = 255;

// Names the intermediate format and refuses the direct conversion.
Status Via(int32_t format, Format* interm) {
  if (interm) *interm = static_cast<Format>(format);
  return LMX_STATUS_PARAM_UNSUPPORTED;
}

bool SamePlanes(const Image::ImageData& a, const Image::ImageData& b) {
  for (int c = 0; c < 4; ++c)
    if (a.planes[c] != b.planes[c] || a.pitches[c] != b.pitches[c]) return false;
  return true;
}

bool IsRightAngle(int32_t degrees) { return degrees == 0 || degrees == 90 || degrees == 180 || degrees == 270; }

// Row bytes of a plane, or -1 when they do not fit the kernels' 32-bit counts.
int32_t RowBytes(const LMXImageService::PlaneInfo::Plane& plane) {
  const uint64_t bytes = static_cast<uint64_t>(plane.width) * plane.bytesPerPixel;
  return bytes > static_cast<uint64_t>(std::numeric_limits<int32_t>::max()) ? -1 : static_cast<int32_t>(bytes);
}

bool FitsInt32(uint32_t value) { return value <= static_cast<uint32_t>(std::numeric_limits<int32_t>::max()); }

// Whether every plane of the description fits the signed 32-bit sizes an image's
// buffers are allocated with (rows times row bytes, in 64 bits; a negative width
// or height wraps to a huge one). A description that fails describes buffers no
// image can hold, so nothing here may walk its rows.
bool PlanesFitInt32(const Image::ImageInfo& info) {
  LMXImageService::PlaneInfo layout;
  const int num_planes = ComputePlaneLayout(info.width, info.height, info.format, &layout);
  for (int c = 0; c < num_planes; ++c) {
    const auto& plane = layout.plane[c];
    const uint64_t limit = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());
    const uint64_t row = static_cast<uint64_t>(plane.width) * plane.bytesPerPixel;  // below 2^35
    if (row > limit || plane.height > limit || (row != 0 && plane.height > limit / row)) return false;
  }
  return true;
}

Status CopyPlanes(const Image::ImageInfo* src_info, const Image::ImageData* src, const Image::ImageData* dst) {
  LMXImageService::PlaneInfo layout;
  const int num_planes = ComputePlaneLayout(src_info->width, src_info->height, src_info->format, &layout);
  LMX_CHECK(num_planes > 0, LMX_STATUS_PARAM_UNSUPPORTED);
  for (int c = 0; c < num_planes; ++c) {
    const int32_t row_bytes = RowBytes(layout.plane[c]);
    LMX_CHECK(row_bytes > 0 && FitsInt32(layout.plane[c].height), LMX_STATUS_PARAM_UNSUPPORTED);
    const Status sts = CopyPlane(src->planes[c], src->pitches[c], dst->planes[c], dst->pitches[c], row_bytes,
                                 static_cast<int32_t>(layout.plane[c].height));
    if (sts < 0) return sts;
  }
  return LMX_STATUS_NO_ERROR;
}

Status RotatePlanes(const Image::ImageInfo* src_info, const Image::ImageData* src, const Image::ImageInfo* dst_info,
                    const Image::ImageData* dst) {
  const int32_t src_degrees = (src_info->format & kRotationMask) >> kRotationShift;
  const int32_t dst_degrees = (dst_info->format & kRotationMask) >> kRotationShift;
  LMX_CHECK(IsRightAngle(src_degrees) && IsRightAngle(dst_degrees), LMX_STATUS_PARAM_UNSUPPORTED);
  const int32_t degrees = (dst_degrees - src_degrees + 360) % 360;
  LMXImageService::PlaneInfo layout;
  const int num_planes = ComputePlaneLayout(src_info->width, src_info->height, src_info->format, &layout);
  LMX_CHECK(num_planes > 0, LMX_STATUS_PARAM_UNSUPPORTED);
  for (int c = 0; c < num_planes; ++c) {
    const LMXImageService::PlaneInfo::Plane& plane = layout.plane[c];
    LMX_CHECK(FitsInt32(plane.width) && FitsInt32(plane.height), LMX_STATUS_PARAM_UNSUPPORTED);
    const Status sts = RotatePlane(src->planes[c], src->pitches[c], dst->planes[c], dst->pitches[c],
                                   static_cast<int32_t>(plane.width), static_cast<int32_t>(plane.height),
                                   static_cast<int32_t>(plane.bytesPerPixel), degrees);
    if (sts < 0) return sts;
  }
  return LMX_STATUS_NO_ERROR;
}

bool IsConvertibleSource(int32_t format) {
  switch (format) {
    case Image::PIXEL_FORMAT_YUY2:
    case Image::PIXEL_FORMAT_NV12:
    case Image::PIXEL_FORMAT_BGRA:
    case Image::PIXEL_FORMAT_BGR:
    case Image::PIXEL_FORMAT_RGB:
    case Image::PIXEL_FORMAT_RGBA:
    case Image::PIXEL_FORMAT_Y8:
    case Image::PIXEL_FORMAT_Y8_RELATIVE:
    case Image::PIXEL_FORMAT_Y16:
    case Image::PIXEL_FORMAT_DEPTH:
    case Image::PIXEL_FORMAT_DEPTH_NATIVE:
    case Image::PIXEL_FORMAT_DEPTH_FLOAT:
      return true;
    default:
      return false;
  }
}

// The conversion table: a direct kernel for the pair, or the intermediate
// format through which the source reaches any other destination.
Status ConvertFormats(int32_t src_format, int32_t dst_format, int32_t width, int32_t height,
                      const Image::ImageData& src, const Image::ImageData& dst, DepthScaleSource& depth,
                      Format* interm) {
  LMX_CHECK(IsConvertibleSource(src_format), LMX_STATUS_PARAM_UNSUPPORTED);
  // The call texts of the depth rules name these two operations.
  const auto GetDepthScale = [&depth](float* value) { return depth.GetDepthScale(value); };
  const auto GetDepthShift = [&depth](int* value) { return depth.GetDepthShift(value); };
  const uint8_t* s0 = src.planes[0];
  const uint8_t* s1 = src.planes[1];
  const int32_t sp0 = src.pitches[0];
  const int32_t sp1 = src.pitches[1];
  uint8_t* d0 = dst.planes[0];
  uint8_t* d1 = dst.planes[1];
  const int32_t dp0 = dst.pitches[0];
  const int32_t dp1 = dst.pitches[1];
  float scale = 0.0f;
  int shift = 0;

  switch (src_format) {
    case Image::PIXEL_FORMAT_YUY2:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_NV12: return YUY2ToNV12(s0, sp0, d0, dp0, d1, dp1, width, height);
        case Image::PIXEL_FORMAT_BGRA: return YUY2ToBGRA(s0, sp0, d0, dp0, width, height, kOpaque);
        case Image::PIXEL_FORMAT_RGBA: return YUY2ToRGBA(s0, sp0, d0, dp0, width, height, kOpaque);
        case Image::PIXEL_FORMAT_BGR: return YUY2ToBGR(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_RGB: return YUY2ToRGB(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_Y8: return YUY2ToY8(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_NV12, interm);
      }
    case Image::PIXEL_FORMAT_NV12:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_YUY2: return NV12ToYUY2(s0, sp0, s1, sp1, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_Y8: return CopyPlane(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_YUY2, interm);
      }
    case Image::PIXEL_FORMAT_BGRA:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_YUY2: return BGRAToYUY2(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_BGR: return BGRAToBGR(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_RGB: return BGRAToRGB(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_RGBA: return BGRAToRGBA(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_Y8: return BGRAToY8(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_YUY2, interm);
      }
    case Image::PIXEL_FORMAT_BGR:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_YUY2: return BGRToYUY2(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_BGRA: return BGRToBGRA(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_RGBA: return BGRToRGBA(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_RGB: return BGRToRGB(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_Y8: return BGRToY8(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_YUY2, interm);
      }
    case Image::PIXEL_FORMAT_RGB:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_YUY2: return RGBToYUY2(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_BGRA: return BGRToRGBA(s0, sp0, d0, dp0, width, height);  // swap + alpha
        case Image::PIXEL_FORMAT_RGBA: return BGRToBGRA(s0, sp0, d0, dp0, width, height);  // alpha only
        case Image::PIXEL_FORMAT_BGR: return BGRToRGB(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_Y8: return RGBToY8(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_YUY2, interm);
      }
    case Image::PIXEL_FORMAT_RGBA:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_YUY2: return RGBAToYUY2(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_RGB: return BGRAToBGR(s0, sp0, d0, dp0, width, height);  // drop alpha only
        case Image::PIXEL_FORMAT_BGR: return BGRAToRGB(s0, sp0, d0, dp0, width, height);  // drop alpha + swap
        case Image::PIXEL_FORMAT_BGRA: return BGRAToRGBA(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_Y8: return RGBAToY8(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_YUY2, interm);
      }
    case Image::PIXEL_FORMAT_Y8:
    case Image::PIXEL_FORMAT_Y8_RELATIVE:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_Y16: return Y8ToY16(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_BGR:
        case Image::PIXEL_FORMAT_RGB: return Y8ToBGR(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_NV12: return Y8ToNV12(s0, sp0, d0, dp0, d1, dp1, width, height);
        default: return Via(Image::PIXEL_FORMAT_BGR, interm);
      }
    case Image::PIXEL_FORMAT_Y16:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_Y8:
        case Image::PIXEL_FORMAT_Y8_RELATIVE: return Y16ToY8(s0, sp0, d0, dp0, width, height);
        case Image::PIXEL_FORMAT_BGRA:
        case Image::PIXEL_FORMAT_RGBA: return Y16ToBGRA(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_Y8, interm);
      }
    case Image::PIXEL_FORMAT_DEPTH:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_DEPTH_NATIVE:
          LMX_CHECK_CALL(GetDepthShift(&shift));
          return DepthShift(s0, sp0, d0, dp0, width, height, shift);
        case Image::PIXEL_FORMAT_DEPTH_FLOAT:
          // Without a depth scale depth and float share their unit; with one,
          // the float is computed from the native values.
          if (GetDepthScale(&scale) < 0) return DepthToFloat(s0, sp0, d0, dp0, width, height, 1.0f);
          return Via(Image::PIXEL_FORMAT_DEPTH_NATIVE, interm);
        case Image::PIXEL_FORMAT_BGRA:
        case Image::PIXEL_FORMAT_RGBA: return Y16ToBGRA(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_DEPTH_NATIVE, interm);
      }
    case Image::PIXEL_FORMAT_DEPTH_NATIVE:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_DEPTH:
          LMX_CHECK_CALL(GetDepthShift(&shift));
          return DepthShift(s0, sp0, d0, dp0, width, height, -shift);
        case Image::PIXEL_FORMAT_DEPTH_FLOAT:
          LMX_CHECK_CALL(GetDepthScale(&scale));
          return DepthToFloat(s0, sp0, d0, dp0, width, height, scale);
        case Image::PIXEL_FORMAT_BGRA:
        case Image::PIXEL_FORMAT_RGBA: return Y16ToBGRA(s0, sp0, d0, dp0, width, height);
        default: return Via(Image::PIXEL_FORMAT_DEPTH, interm);
      }
    case Image::PIXEL_FORMAT_DEPTH_FLOAT:
      switch (dst_format) {
        case Image::PIXEL_FORMAT_DEPTH: return FloatToDepth(s0, sp0, d0, dp0, width, height, 1.0f);
        case Image::PIXEL_FORMAT_DEPTH_NATIVE:
          LMX_CHECK_CALL(GetDepthScale(&scale));
          return FloatToDepth(s0, sp0, d0, dp0, width, height, 1.0f / scale);
        default: return Via(Image::PIXEL_FORMAT_DEPTH, interm);
      }
    default:
      return LMX_STATUS_PARAM_UNSUPPORTED;  // excluded by IsConvertibleSource above
  }
}

}  // namespace

Status DepthScaleSource::GetDepthShift(int* shift) {
  LMX_CHECK(shift, LMX_STATUS_HANDLE_INVALID);
  float scale = 0.0f;
  Status sts = LMX_STATUS_NO_ERROR;
  if (LMX_CALL_FAILED(sts, GetDepthScale(&scale))) return sts;
  if (scale == 1.0f) {
    *shift = 0;
    return LMX_STATUS_NO_ERROR;
  }
  int exponent = 0;
  float mant = std::frexp(scale, &exponent);  // scale = mant * 2^exponent, mant in [0.5, 1)
  if (mant < 0.75f) {
    mant *= 2.0f;
    exponent -= 1;
  }
  LMX_CHECK(mant > 0.98 && mant <= 1.02, LMX_STATUS_PARAM_UNSUPPORTED);
  *shift = -exponent;
  return LMX_STATUS_NO_ERROR;
}

Status FixedDepthScale::GetDepthScale(float* scale) {
  if (!has_scale_ || !scale) return LMX_STATUS_FEATURE_UNSUPPORTED;
  *scale = scale_;
  return LMX_STATUS_NO_ERROR;
}

Status ConvertImageBuffer(const Image::ImageInfo* src_info, const Image::ImageData* src,
                          const Image::ImageInfo* dst_info, const Image::ImageData* dst, DepthScaleSource& depth,
                          Format* interm, ConversionHandOff* handOff) {
  LMX_CHECK(src_info && src && dst_info && dst, LMX_STATUS_HANDLE_INVALID);
  char trace_name[80] = "ImageConvert";
  if (lmsdk::LogUtil::GetLogger()->IsLevelEnabled(LOG_LEVEL_TRACE)) {
    std::snprintf(trace_name, sizeof trace_name, "ImageConvert %ls->%ls", ConversionFormatName(src_info->format),
                  ConversionFormatName(dst_info->format));
  }
  LMX_TRACE(trace_name);
  LMX_CHECK(src_info->width == dst_info->width, LMX_STATUS_PARAM_UNSUPPORTED);
  LMX_CHECK(src_info->height == dst_info->height, LMX_STATUS_PARAM_UNSUPPORTED);
  // The kernels trust sizes they are given; descriptions of impossible planes
  // (over 2 GiB, or negative sizes) are refused before any routing.
  if (handOff) {
    // The provider receives the caller's own records, as it would from the image.
    const Status offered = handOff->Offer(const_cast<Image::ImageInfo*>(src_info), const_cast<Image::ImageData*>(src),
                                          const_cast<Image::ImageInfo*>(dst_info), const_cast<Image::ImageData*>(dst),
                                          interm);
    if (offered >= 0) return offered;
  }
  LMX_CHECK(PlanesFitInt32(*src_info) && PlanesFitInt32(*dst_info), LMX_STATUS_PARAM_UNSUPPORTED);

  const int32_t src_angle = src_info->format & kRotationMask;
  const int32_t dst_angle = dst_info->format & kRotationMask;
  const int32_t src_format = src_info->format & kPixelFormatMask;
  const int32_t dst_format = dst_info->format & kPixelFormatMask;

  if (src_angle == 0 && dst_angle == 0) {
    if (src_format != dst_format) {
      return ConvertFormats(src_format, dst_format, src_info->width, src_info->height, *src, *dst, depth, interm);
    }
    if (SamePlanes(*src, *dst)) return LMX_STATUS_NO_ERROR;
    return CopyPlanes(src_info, src, dst);
  }
  // Convert first, rotate second; two rotated keys meet through the unrotated image.
  if (src_angle != 0 && dst_angle != 0) return Via(dst_format, interm);
  if (src_format != dst_format) return Via(dst_format, interm);
  return RotatePlanes(src_info, src, dst_info, dst);
}

}  // namespace lmx
