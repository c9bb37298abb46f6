// Conversion routing: size checks, direct kernels versus named intermediates,
// rotation dispatch, and the depth scale rules.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "coreaccel_baseimage_route.h"
#include "kernels/pixel_format_table.h"
#include "support/planes.h"
#include "test_support.h"

namespace {

using namespace lmx;
using namespace Norvik::Lumetra;
using lmxtest::GuardedPlane;

constexpr int32_t Rotated(int32_t format, int32_t degrees) { return format | (degrees << kRotationShift); }

// The planes of one buffer of a width x height image in a format key.
struct Buffer {
  Buffer(int32_t width, int32_t height, int32_t key) : info{width, height, key, 0} {
    LMXImageService::PlaneInfo layout;
    const int n = ComputePlaneLayout(width, height, key, &layout);
    data = {};
    data.format = key;
    for (int c = 0; c < n; ++c) {
      planes.emplace_back(static_cast<int>(layout.plane[c].width * layout.plane[c].bytesPerPixel),
                          static_cast<int>(layout.plane[c].height), 3);
      data.planes[c] = planes.back().data();
      data.pitches[c] = planes.back().pitch();
    }
  }
  Image::ImageInfo info;
  Image::ImageData data;
  std::vector<GuardedPlane> planes;
};

Status Convert(Buffer& src, Buffer& dst, DepthScaleSource& depth, Image::PixelFormat* interm) {
  return ConvertImageBuffer(&src.info, &src.data, &dst.info, &dst.data, depth, interm);
}

TEST(ConvertImageBuffer, DirectPairsRunAndOthersNameTheIntermediate) {
  lmxtest::ScopedCapture capture;
  FixedDepthScale none;
  std::mt19937 rng(2);
  Buffer yuy2(6, 4, Image::PIXEL_FORMAT_YUY2), bgr(6, 4, Image::PIXEL_FORMAT_BGR);
  yuy2.planes[0].Randomize(rng);
  auto interm = static_cast<Image::PixelFormat>(0);
  EXPECT_EQ(Convert(yuy2, bgr, none, &interm), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(interm, 0);
  EXPECT_NE(bgr.planes[0].at(0, 0), 0xA5);
  EXPECT_TRUE(capture->Traced("ImageConvert YUY2->BGR"));

  Buffer nv12(6, 4, Image::PIXEL_FORMAT_NV12), y16(6, 4, Image::PIXEL_FORMAT_Y16);
  EXPECT_EQ(Convert(nv12, bgr, none, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, Image::PIXEL_FORMAT_YUY2);
  EXPECT_EQ(Convert(yuy2, y16, none, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, Image::PIXEL_FORMAT_NV12);
  EXPECT_EQ(Convert(yuy2, y16, none, nullptr), LMX_STATUS_PARAM_UNSUPPORTED) << "interm may be null";
  EXPECT_TRUE(y16.planes[0].Intact());
  Buffer y8(6, 4, Image::PIXEL_FORMAT_Y8), depth(6, 4, Image::PIXEL_FORMAT_DEPTH);
  EXPECT_EQ(Convert(y8, depth, none, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, Image::PIXEL_FORMAT_BGR);

  // YUY2 -> NV12 -> YUY2 keeps the luma (chroma is averaged over row pairs).
  Buffer again(6, 4, Image::PIXEL_FORMAT_YUY2);
  ASSERT_EQ(Convert(yuy2, nv12, none, &interm), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(Convert(nv12, again, none, &interm), LMX_STATUS_NO_ERROR);
  for (int r = 0; r < 4; ++r)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(again.planes[0].at(r, 2 * x), yuy2.planes[0].at(r, 2 * x));

  // A source without conversions fails without naming anything.
  Buffer nv21(6, 4, Image::PIXEL_FORMAT_NV21);
  interm = static_cast<Image::PixelFormat>(0);
  EXPECT_EQ(Convert(nv21, yuy2, none, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, 0);
  EXPECT_TRUE(capture->Traced("ImageConvert NV21->YUY2"));
}

TEST(ConvertImageBuffer, SizesMustMatch) {
  lmxtest::ScopedCapture capture;
  FixedDepthScale none;
  Buffer a(4, 4, Image::PIXEL_FORMAT_BGRA), narrow(2, 4, Image::PIXEL_FORMAT_RGBA), low(4, 2, Image::PIXEL_FORMAT_RGBA);
  EXPECT_EQ(Convert(a, narrow, none, nullptr), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(Convert(a, low, none, nullptr), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_TRUE(narrow.planes[0].Intact() && low.planes[0].Intact());

  // Descriptions of planes no image can hold (over 2 GiB, negative sizes) are
  // refused before a kernel walks rows it was never given.
  for (auto [width, height] : {std::pair{1 << 20, 1 << 30}, std::pair{-4, 4}, std::pair{4, -4}}) {
    Image::ImageInfo bgr{width, height, Image::PIXEL_FORMAT_BGR, 0}, yuy2{width, height, Image::PIXEL_FORMAT_YUY2, 0};
    EXPECT_EQ(ConvertImageBuffer(&bgr, &a.data, &yuy2, &narrow.data, none, nullptr), LMX_STATUS_PARAM_UNSUPPORTED);
    EXPECT_TRUE(a.planes[0].Intact() && narrow.planes[0].Intact());
  }

  Image::ImageInfo square{4, 4, Image::PIXEL_FORMAT_BGRA, 0};
  EXPECT_EQ(ConvertImageBuffer(&square, nullptr, &square, &a.data, none, nullptr), LMX_STATUS_HANDLE_INVALID);
}

TEST(ConvertImageBuffer, EqualKeysCopyOrSucceedUntouched) {
  FixedDepthScale none;
  std::mt19937 rng(4);
  Buffer src(5, 5, Image::PIXEL_FORMAT_NV12), dst(5, 5, Image::PIXEL_FORMAT_NV12);
  for (auto& p : src.planes) p.Randomize(rng);
  EXPECT_EQ(Convert(src, src, none, nullptr), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(dst.planes[0].Intact());
  ASSERT_EQ(Convert(src, dst, none, nullptr), LMX_STATUS_NO_ERROR);
  for (int c = 0; c < 2; ++c) EXPECT_TRUE(dst.planes[c].SamePayload(src.planes[c]) && dst.planes[c].Intact());
}

TEST(ConvertImageBuffer, RotationDispatch) {
  FixedDepthScale none;
  std::mt19937 rng(9);
  auto interm = static_cast<Image::PixelFormat>(0);
  // NV12 to 90 degrees and back, each plane as the layout gives it.
  Buffer nv12(6, 5, Image::PIXEL_FORMAT_NV12), turned(6, 5, Rotated(Image::PIXEL_FORMAT_NV12, 90));
  Buffer back(6, 5, Image::PIXEL_FORMAT_NV12);
  for (auto& p : nv12.planes) p.Randomize(rng);
  ASSERT_EQ(Convert(nv12, turned, none, &interm), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(Convert(turned, back, none, &interm), LMX_STATUS_NO_ERROR);
  for (int c = 0; c < 2; ++c) EXPECT_TRUE(back.planes[c].SamePayload(nv12.planes[c]) && turned.planes[c].Intact());
  // Another format and a rotation: convert first.
  Buffer bgr90(6, 5, Rotated(Image::PIXEL_FORMAT_BGR, 90)), bgr270(6, 5, Rotated(Image::PIXEL_FORMAT_BGR, 270));
  EXPECT_EQ(Convert(nv12, bgr90, none, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, Image::PIXEL_FORMAT_BGR);
  // Two rotated keys meet through the unrotated image.
  interm = static_cast<Image::PixelFormat>(0);
  EXPECT_EQ(Convert(bgr90, bgr270, none, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, Image::PIXEL_FORMAT_BGR);
  Buffer odd_angle(6, 5, Rotated(Image::PIXEL_FORMAT_NV12, 45));
  lmxtest::ScopedCapture capture;
  EXPECT_EQ(Convert(nv12, odd_angle, none, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
}

TEST(DepthScale, ShiftFromScale) {
  lmxtest::ScopedCapture capture;
  for (auto [scale, expected] : {std::pair{1.0f, 0}, {0.125f, 3}, {0.126f, 3}, {4.0f, -2}}) {
    int shift = -99;
    EXPECT_EQ(FixedDepthScale(scale).GetDepthShift(&shift), LMX_STATUS_NO_ERROR) << scale;
    EXPECT_EQ(shift, expected) << scale;
  }
  int shift = 7;
  EXPECT_EQ(FixedDepthScale(0.1f).GetDepthShift(&shift), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(FixedDepthScale().GetDepthShift(&shift), LMX_STATUS_FEATURE_UNSUPPORTED);
  EXPECT_EQ(shift, 7) << "written only on success";
}

TEST(ConvertImageBuffer, DepthRules) {
  lmxtest::ScopedCapture capture;
  FixedDepthScale eighth(0.125f), none, tenth(0.1f);
  Buffer depth(3, 2, Image::PIXEL_FORMAT_DEPTH), native(3, 2, Image::PIXEL_FORMAT_DEPTH_NATIVE);
  Buffer flt(3, 2, Image::PIXEL_FORMAT_DEPTH_FLOAT), back(3, 2, Image::PIXEL_FORMAT_DEPTH);
  for (int r = 0; r < 2; ++r)
    for (int x = 0; x < 3; ++x) {
      const uint16_t v = static_cast<uint16_t>(100 * r + x + 1);
      std::memcpy(&depth.planes[0].at(r, 2 * x), &v, 2);
    }
  auto interm = static_cast<Image::PixelFormat>(0);
  ASSERT_EQ(Convert(depth, native, eighth, &interm), LMX_STATUS_NO_ERROR);
  uint16_t n;
  std::memcpy(&n, &native.planes[0].at(1, 4), 2);
  EXPECT_EQ(n, (100 + 3) << 3);
  ASSERT_EQ(Convert(native, back, eighth, &interm), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(back.planes[0].SamePayload(depth.planes[0]));
  // Float: from native with the scale; from depth directly only without a scale.
  ASSERT_EQ(Convert(native, flt, eighth, &interm), LMX_STATUS_NO_ERROR);
  float f;
  std::memcpy(&f, &flt.planes[0].at(1, 8), 4);
  EXPECT_EQ(f, 103.0f);
  ASSERT_EQ(Convert(flt, native, eighth, &interm), LMX_STATUS_NO_ERROR);
  std::memcpy(&n, &native.planes[0].at(1, 4), 2);
  EXPECT_EQ(n, 103 << 3);
  EXPECT_EQ(Convert(depth, flt, eighth, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, Image::PIXEL_FORMAT_DEPTH_NATIVE);
  ASSERT_EQ(Convert(depth, flt, none, &interm), LMX_STATUS_NO_ERROR);
  std::memcpy(&f, &flt.planes[0].at(0, 0), 4);
  EXPECT_EQ(f, 1.0f);
  // A scale that is no power of two stops the shift, logged at the call.
  EXPECT_EQ(Convert(depth, native, tenth, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(Convert(native, flt, none, &interm), LMX_STATUS_FEATURE_UNSUPPORTED);
}

}  // namespace
