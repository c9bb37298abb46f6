// Conversion routing between the buffers of one image: rotation and format
// dispatch, the conversion table, and the depth scale rules.
#include "image/coreaccel_baseimage_route.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "image/pixel_format_table.h"
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

// The plane query's sizes are unsigned copies of signed fields: a negative width
// or height arrives as a huge value, and any product of them is checked.
Checked RowBytes(const LMXImageService::PlaneInfo::Plane& plane) {
  return CheckedMul(plane.width, plane.bytesPerPixel);
}

// Whether every plane of the description fits the signed 32-bit sizes an image's
// buffers are allocated with. A description that fails describes buffers no
// image can hold, so nothing here may walk its rows.
bool PlanesFitInt32(const Image::ImageInfo& info) {
  LMXImageService::PlaneInfo layout;
  const int num_planes = ComputePlaneLayout(info.width, info.height, info.format, &layout);
  for (int c = 0; c < num_planes; ++c) {
    const auto& plane = layout.plane[c];
    if (!IsSize32(RowBytes(plane)) || !IsSize32(plane.height) || !IsSize32(CheckedMul(RowBytes(plane), plane.height)))
      return false;
  }
  return true;
}

Status CopyPlanes(const Image::ImageInfo* src_info, const Image::ImageData* src, const Image::ImageData* dst) {
  LMXImageService::PlaneInfo layout;
  const int num_planes = ComputePlaneLayout(src_info->width, src_info->height, src_info->format, &layout);
  LMX_CHECK(num_planes > 0, LMX_STATUS_PARAM_UNSUPPORTED);
  for (int c = 0; c < num_planes; ++c) {
    const Checked row_bytes = RowBytes(layout.plane[c]);
    LMX_CHECK(IsSize32(row_bytes) && *row_bytes > 0 && IsSize32(layout.plane[c].height), LMX_STATUS_PARAM_UNSUPPORTED);
    const Status sts = CopyPlane(src->planes[c], src->pitches[c], dst->planes[c], dst->pitches[c],
                                 static_cast<int32_t>(*row_bytes), static_cast<int32_t>(layout.plane[c].height));
    if (sts < 0) return sts;
  }
  return LMX_STATUS_NO_ERROR;
}

Status RotatePlanes(const Image::ImageInfo* src_info, const Image::ImageData* src, const Image::ImageInfo* dst_info,
                    const Image::ImageData* dst) {
  const int32_t src_degrees = KeyDegrees(src_info->format);
  const int32_t dst_degrees = KeyDegrees(dst_info->format);
  LMX_CHECK(IsRightAngle(src_degrees) && IsRightAngle(dst_degrees), LMX_STATUS_PARAM_UNSUPPORTED);
  const int32_t degrees = (dst_degrees - src_degrees + 360) % 360;
  LMXImageService::PlaneInfo layout;
  const int num_planes = ComputePlaneLayout(src_info->width, src_info->height, src_info->format, &layout);
  LMX_CHECK(num_planes > 0, LMX_STATUS_PARAM_UNSUPPORTED);
  for (int c = 0; c < num_planes; ++c) {
    const LMXImageService::PlaneInfo::Plane& plane = layout.plane[c];
    LMX_CHECK(IsSize32(plane.width) && IsSize32(plane.height), LMX_STATUS_PARAM_UNSUPPORTED);
    const Status sts =
        RotatePlane(src->planes[c], src->pitches[c], dst->planes[c], dst->pitches[c], static_cast<int32_t>(plane.width),
                    static_cast<int32_t>(plane.height), static_cast<int32_t>(plane.bytesPerPixel), degrees);
    if (sts < 0) return sts;
  }
  return LMX_STATUS_NO_ERROR;
}

// One conversion between two unrotated buffers of the same size: their planes,
// the image's depth scale and where an intermediate format is named. The depth
// rules are its members, so their failed calls are logged as "calling
// GetDepthShift(&shift)" and "calling GetDepthScale(&scale)".
struct Conversion {
  const uint8_t* s0;
  int32_t sp0;
  const uint8_t* s1;
  int32_t sp1;
  uint8_t* d0;
  int32_t dp0;
  uint8_t* d1;
  int32_t dp1;
  int32_t width;
  int32_t height;
  DepthScaleSource& depth;
  Format* interm;

  Status GetDepthScale(float* scale) { return depth.GetDepthScale(scale); }
  Status GetDepthShift(int* shift) { return depth.GetDepthShift(shift); }

  // DEPTH <-> DEPTH(NATIVE): shifted by the depth scale's power of two.
  Status DepthToNative() {
    int shift = 0;
    LMX_CHECK_CALL(GetDepthShift(&shift));
    return DepthShift(s0, sp0, d0, dp0, width, height, shift);
  }
  Status NativeToDepth() {
    int shift = 0;
    LMX_CHECK_CALL(GetDepthShift(&shift));
    return DepthShift(s0, sp0, d0, dp0, width, height, -shift);
  }
  // Without a depth scale depth and float share their unit; with one, the float
  // is computed from the native values.
  Status DepthToFloat() {
    float scale = 0.0f;
    if (GetDepthScale(&scale) < 0) return lmx::DepthToFloat(s0, sp0, d0, dp0, width, height, 1.0f);
    return Via(Image::PIXEL_FORMAT_DEPTH_NATIVE, interm);
  }
  Status NativeToFloat() {
    float scale = 0.0f;
    LMX_CHECK_CALL(GetDepthScale(&scale));
    return lmx::DepthToFloat(s0, sp0, d0, dp0, width, height, scale);
  }
  Status FloatToNative() {
    float scale = 0.0f;
    LMX_CHECK_CALL(GetDepthScale(&scale));
    return FloatToDepth(s0, sp0, d0, dp0, width, height, 1.0f / scale);
  }
};

// A row of the conversion table: the kernel that converts src into dst, or, for
// dst kAnyOther, the format through which src reaches every destination that has
// no row of its own (the caller converts in two steps).
constexpr int32_t kAnyOther = 0;
struct Route {
  int32_t src;
  int32_t dst;
  Status (*run)(Conversion& c);  // null for a kAnyOther row
  int32_t via;                   // kAnyOther rows only
};

constexpr Route Kernel(int32_t src, int32_t dst, Status (*run)(Conversion& c)) { return {src, dst, run, 0}; }

// The kernels of the common shape: one source plane into one destination plane.
template <Status (*kKernel)(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t)>
Status OnePlane(Conversion& c) {
  return kKernel(c.s0, c.sp0, c.d0, c.dp0, c.width, c.height);
}
constexpr Route Otherwise(int32_t src, int32_t via) { return {src, kAnyOther, nullptr, via}; }

// Every conversion between two unrotated formats. A source without rows cannot be
// converted; the YUY2 to colour kernels answer statuses of their own for odd sizes.
constexpr Image::PixelFormat YUY2 = Image::PIXEL_FORMAT_YUY2, NV12 = Image::PIXEL_FORMAT_NV12,
                             BGRA = Image::PIXEL_FORMAT_BGRA, BGR = Image::PIXEL_FORMAT_BGR,
                             RGBA = Image::PIXEL_FORMAT_RGBA, RGB = Image::PIXEL_FORMAT_RGB,
                             Y8 = Image::PIXEL_FORMAT_Y8, Y8_REL = Image::PIXEL_FORMAT_Y8_RELATIVE,
                             Y16 = Image::PIXEL_FORMAT_Y16, DEPTH = Image::PIXEL_FORMAT_DEPTH,
                             NATIVE = Image::PIXEL_FORMAT_DEPTH_NATIVE, FLOAT = Image::PIXEL_FORMAT_DEPTH_FLOAT;
using C = Conversion;
constexpr Route kRoutes[] = {
    // Luma-chroma: YUY2 to everything of colour and grey; NV12 through YUY2.
    Kernel(YUY2, NV12, [](C& c) { return YUY2ToNV12(c.s0, c.sp0, c.d0, c.dp0, c.d1, c.dp1, c.width, c.height); }),
    Kernel(YUY2, BGRA, [](C& c) { return YUY2ToBGRA(c.s0, c.sp0, c.d0, c.dp0, c.width, c.height, kOpaque); }),
    Kernel(YUY2, RGBA, [](C& c) { return YUY2ToRGBA(c.s0, c.sp0, c.d0, c.dp0, c.width, c.height, kOpaque); }),
    Kernel(YUY2, BGR, OnePlane<YUY2ToBGR>),
    Kernel(YUY2, RGB, OnePlane<YUY2ToRGB>),
    Kernel(YUY2, Y8, OnePlane<YUY2ToY8>),
    Otherwise(YUY2, NV12),
    Kernel(NV12, YUY2, [](C& c) { return NV12ToYUY2(c.s0, c.sp0, c.s1, c.sp1, c.d0, c.dp0, c.width, c.height); }),
    Kernel(NV12, Y8, OnePlane<CopyPlane>),  // the luma plane
    Otherwise(NV12, YUY2),
    // Colour: to YUY2, to grey, and between the four layouts. The RGB-ordered
    // sources reuse the BGR-ordered kernels with the channel swap added or dropped.
    Kernel(BGRA, YUY2, OnePlane<BGRAToYUY2>),
    Kernel(BGRA, BGR, OnePlane<BGRAToBGR>),
    Kernel(BGRA, RGB, OnePlane<BGRAToRGB>),
    Kernel(BGRA, RGBA, OnePlane<BGRAToRGBA>),
    Kernel(BGRA, Y8, OnePlane<BGRAToY8>),
    Otherwise(BGRA, YUY2),
    Kernel(BGR, YUY2, OnePlane<BGRToYUY2>),
    Kernel(BGR, BGRA, OnePlane<BGRToBGRA>),
    Kernel(BGR, RGBA, OnePlane<BGRToRGBA>),
    Kernel(BGR, RGB, OnePlane<BGRToRGB>),
    Kernel(BGR, Y8, OnePlane<BGRToY8>),
    Otherwise(BGR, YUY2),
    Kernel(RGB, YUY2, OnePlane<RGBToYUY2>),
    Kernel(RGB, BGRA, OnePlane<BGRToRGBA>),  // swap + alpha
    Kernel(RGB, RGBA, OnePlane<BGRToBGRA>),  // alpha only
    Kernel(RGB, BGR, OnePlane<BGRToRGB>),
    Kernel(RGB, Y8, OnePlane<RGBToY8>),
    Otherwise(RGB, YUY2),
    Kernel(RGBA, YUY2, OnePlane<RGBAToYUY2>),
    Kernel(RGBA, RGB, OnePlane<BGRAToBGR>),  // drop alpha
    Kernel(RGBA, BGR, OnePlane<BGRAToRGB>),  // drop + swap
    Kernel(RGBA, BGRA, OnePlane<BGRAToRGBA>),
    Kernel(RGBA, Y8, OnePlane<RGBAToY8>),
    Otherwise(RGBA, YUY2),
    // Grey: Y8 (and Y8_REL, which has the same rows: RouteSource); Y16 down to 8
    // bits or rendered as colour.
    Kernel(Y8, Y16, OnePlane<Y8ToY16>),
    Kernel(Y8, BGR, OnePlane<Y8ToBGR>),
    Kernel(Y8, RGB, OnePlane<Y8ToBGR>),
    Kernel(Y8, NV12, [](C& c) { return Y8ToNV12(c.s0, c.sp0, c.d0, c.dp0, c.d1, c.dp1, c.width, c.height); }),
    Otherwise(Y8, BGR),
    Kernel(Y16, Y8, OnePlane<Y16ToY8>),
    Kernel(Y16, Y8_REL, OnePlane<Y16ToY8>),
    Kernel(Y16, BGRA, OnePlane<Y16ToBGRA>),
    Kernel(Y16, RGBA, OnePlane<Y16ToBGRA>),
    Otherwise(Y16, Y8),
    // Depth: the three units through the depth scale (Conversion's rules); depth
    // and native depth rendered as grey colour, 0 to 255.
    Kernel(DEPTH, NATIVE, [](C& c) { return c.DepthToNative(); }),
    Kernel(DEPTH, FLOAT, [](C& c) { return c.DepthToFloat(); }),
    Kernel(DEPTH, BGRA, OnePlane<Y16ToBGRA>),
    Kernel(DEPTH, RGBA, OnePlane<Y16ToBGRA>),
    Otherwise(DEPTH, NATIVE),
    Kernel(NATIVE, DEPTH, [](C& c) { return c.NativeToDepth(); }),
    Kernel(NATIVE, FLOAT, [](C& c) { return c.NativeToFloat(); }),
    Kernel(NATIVE, BGRA, OnePlane<Y16ToBGRA>),
    Kernel(NATIVE, RGBA, OnePlane<Y16ToBGRA>),
    Otherwise(NATIVE, DEPTH),
    Kernel(FLOAT, DEPTH, [](C& c) { return FloatToDepth(c.s0, c.sp0, c.d0, c.dp0, c.width, c.height, 1.0f); }),
    Kernel(FLOAT, NATIVE, [](C& c) { return c.FloatToNative(); }),
    Otherwise(FLOAT, DEPTH),
};

// Relative grey converts as grey.
constexpr int32_t RouteSource(int32_t format) { return format == Y8_REL ? Y8 : format; }

// The source's row for dst, else its kAnyOther row; null for a source without rows.
const Route* FindRoute(int32_t src, int32_t dst) {
  src = RouteSource(src);
  const Route* otherwise = nullptr;
  for (const Route& route : kRoutes) {
    if (route.src != src) continue;
    if (route.dst == dst) return &route;
    if (route.dst == kAnyOther) otherwise = &route;
  }
  return otherwise;
}

bool IsConvertibleSource(int32_t format) { return FindRoute(format, kAnyOther) != nullptr; }

// Runs the table's kernel for the pair, or names its intermediate format.
Status ConvertFormats(int32_t src_format, int32_t dst_format, Conversion conversion) {
  LMX_CHECK(IsConvertibleSource(src_format), LMX_STATUS_PARAM_UNSUPPORTED);
  const Route* route = FindRoute(src_format, dst_format);
  if (!route->run) return Via(route->via, conversion.interm);
  return route->run(conversion);
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

Status ConvertThroughIntermediate(const Image::ImageInfo* src_info, const Image::ImageData* src,
                                  const Image::ImageInfo* mid_info, const Image::ImageData* mid,
                                  const Image::ImageInfo* dst_info, const Image::ImageData* dst) {
  LMX_CHECK(src_info && src && mid_info && mid && dst_info && dst, LMX_STATUS_HANDLE_INVALID);
  // NV12 names YUY2 on its way to colour: those ends go in one pass.
  const int32_t orders[][2] = {{BGRA, kColourBGRA}, {RGBA, kColourRGBA}, {BGR, kColourBGR}, {RGB, kColourRGB}};
  const auto order = std::find_if(std::begin(orders), std::end(orders),
                                  [&](const int32_t(&pair)[2]) { return pair[0] == dst_info->format; });
  if (src_info->format != NV12 || mid_info->format != YUY2 || order == std::end(orders))
    return LMX_STATUS_PARAM_UNSUPPORTED;
  for (const Image::ImageInfo* info : {mid_info, dst_info})
    if (info->width != src_info->width || info->height != src_info->height) return LMX_STATUS_PARAM_UNSUPPORTED;
  for (const Image::ImageInfo* info : {src_info, mid_info, dst_info})
    if (!PlanesFitInt32(*info)) return LMX_STATUS_PARAM_UNSUPPORTED;
  return NV12ToYUY2ToColour(src->planes[0], src->pitches[0], src->planes[1], src->pitches[1], mid->planes[0],
                            mid->pitches[0], dst->planes[0], dst->pitches[0], src_info->width, src_info->height,
                            (*order)[1]);
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
    const Status offered =
        handOff->Offer(const_cast<Image::ImageInfo*>(src_info), const_cast<Image::ImageData*>(src),
                       const_cast<Image::ImageInfo*>(dst_info), const_cast<Image::ImageData*>(dst), interm);
    if (offered >= 0) return offered;
  }
  LMX_CHECK(PlanesFitInt32(*src_info) && PlanesFitInt32(*dst_info), LMX_STATUS_PARAM_UNSUPPORTED);

  const int32_t src_angle = KeyDegrees(src_info->format);
  const int32_t dst_angle = KeyDegrees(dst_info->format);
  const int32_t src_format = KeyFormat(src_info->format);
  const int32_t dst_format = KeyFormat(dst_info->format);

  if (src_angle == 0 && dst_angle == 0) {
    if (src_format != dst_format) {
      return ConvertFormats(
          src_format, dst_format,
          {src->planes[0], src->pitches[0], src->planes[1], src->pitches[1], dst->planes[0], dst->pitches[0],
           dst->planes[1], dst->pitches[1], src_info->width, src_info->height, depth, interm});
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
