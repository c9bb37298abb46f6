// Conversion routing: size checks, direct kernels versus named intermediates,
// rotation dispatch, and the depth scale rules.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <utility>

#include "image/coreaccel_baseimage_route.h"
#include "image/pixel_format_table.h"
#include "kernels/band_pool.h"
#include "support/planes.h"
#include "test_support.h"

namespace {

using namespace lmx;
using namespace Norvik::Lumetra;
using lmxtest::GuardedPlane;

constexpr int32_t Rotated(int32_t format, int32_t degrees) { return format | (degrees << kRotationShift); }

// The planes of one buffer of a width x height image in a format key, each buffer
// of other random bytes (or of the bytes `seed` gives).
struct Buffer {
  Buffer(int32_t width, int32_t height, int32_t key, uint32_t seed = 0) : info{width, height, key, 0} {
    LMXImageService::PlaneInfo layout;
    const int n = ComputePlaneLayout(width, height, key, &layout);
    data = {};
    data.format = key;
    static uint32_t next_seed = 1000;
    std::mt19937 rng(seed ? seed : ++next_seed);
    for (int c = 0; c < n; ++c) {
      planes.emplace_back(static_cast<int>(layout.plane[c].width * layout.plane[c].bytesPerPixel),
                          static_cast<int>(layout.plane[c].height), 3);
      planes.back().Randomize(rng);
      data.planes[c] = planes.back().data();
      data.pitches[c] = planes.back().pitch();
    }
  }
  template <class T>
  T At(int row, int x) {
    T value;
    std::memcpy(&value, &planes[0].at(row, static_cast<int>(sizeof(T)) * x), sizeof(T));
    return value;
  }
  // Payload equal to the other planes', guard bytes intact.
  bool Same(std::vector<GuardedPlane>& other) {
    for (size_t c = 0; c < planes.size(); ++c)
      if (!planes[c].SamePayload(other[c]) || !planes[c].Intact()) return false;
    return true;
  }
  Image::ImageInfo info;
  Image::ImageData data;
  std::vector<GuardedPlane> planes;
};

Status Convert(Buffer& src, Buffer& dst, DepthScaleSource& depth, Image::PixelFormat* interm = nullptr) {
  return ConvertImageBuffer(&src.info, &src.data, &dst.info, &dst.data, depth, interm);
}

TEST(ConvertImageBuffer, DirectPairsRunAndOthersNameTheIntermediate) {
  lmxtest::ScopedCapture capture;
  FixedDepthScale none;
  // Another format and a rotation convert first; two rotated keys meet through the
  // unrotated image; a source without conversions names nothing.
  const struct {
    int32_t from, to;
    Status sts;
    int32_t interm;
  } routes[] = {
      {Image::PIXEL_FORMAT_YUY2, Image::PIXEL_FORMAT_BGR, LMX_STATUS_NO_ERROR, 0},
      {Image::PIXEL_FORMAT_NV12, Image::PIXEL_FORMAT_BGR, LMX_STATUS_PARAM_UNSUPPORTED, Image::PIXEL_FORMAT_YUY2},
      {Image::PIXEL_FORMAT_YUY2, Image::PIXEL_FORMAT_Y16, LMX_STATUS_PARAM_UNSUPPORTED, Image::PIXEL_FORMAT_NV12},
      {Image::PIXEL_FORMAT_Y8, Image::PIXEL_FORMAT_DEPTH, LMX_STATUS_PARAM_UNSUPPORTED, Image::PIXEL_FORMAT_BGR},
      {Image::PIXEL_FORMAT_NV12, Rotated(Image::PIXEL_FORMAT_BGR, 90), LMX_STATUS_PARAM_UNSUPPORTED,
       Image::PIXEL_FORMAT_BGR},
      {Rotated(Image::PIXEL_FORMAT_BGR, 90), Rotated(Image::PIXEL_FORMAT_BGR, 270), LMX_STATUS_PARAM_UNSUPPORTED,
       Image::PIXEL_FORMAT_BGR},
      {Image::PIXEL_FORMAT_NV21, Image::PIXEL_FORMAT_YUY2, LMX_STATUS_PARAM_UNSUPPORTED, 0},
  };
  for (const auto& route : routes) {
    SCOPED_TRACE(testing::Message() << std::hex << route.from << " -> " << route.to);
    Buffer src(6, 4, route.from), dst(6, 4, route.to);
    auto before = dst.planes;
    auto interm = static_cast<Image::PixelFormat>(0);
    EXPECT_EQ(Convert(src, dst, none, &interm), route.sts);
    EXPECT_EQ(interm, route.interm);
    EXPECT_EQ(dst.Same(before), route.sts < 0);
    EXPECT_EQ(Convert(src, dst, none), route.sts) << "interm may be null";
  }
  EXPECT_TRUE(capture->Traced("ImageConvert YUY2->BGR"));
  EXPECT_TRUE(capture->Traced("ImageConvert NV21->YUY2"));
}

TEST(ConvertImageBuffer, SizesMustMatch) {
  lmxtest::ScopedCapture capture;
  FixedDepthScale none;
  Buffer a(4, 4, Image::PIXEL_FORMAT_BGRA), narrow(2, 4, Image::PIXEL_FORMAT_RGBA), low(4, 2, Image::PIXEL_FORMAT_RGBA);
  EXPECT_EQ(Convert(a, narrow, none), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(Convert(a, low, none), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_TRUE(narrow.planes[0].Intact() && low.planes[0].Intact());

  // Descriptions of planes no image can hold (over 2 GiB, negative sizes) are
  // refused before a kernel walks rows it was never given.
  for (auto [width, height] : {std::pair{1 << 20, 1 << 30}, std::pair{-4, 4}, std::pair{4, -4}}) {
    Image::ImageInfo bgr{width, height, Image::PIXEL_FORMAT_BGR, 0}, yuy2{width, height, Image::PIXEL_FORMAT_YUY2, 0};
    EXPECT_EQ(ConvertImageBuffer(&bgr, &a.data, &yuy2, &narrow.data, none, nullptr), LMX_STATUS_PARAM_UNSUPPORTED);
    EXPECT_TRUE(a.planes[0].Intact() && narrow.planes[0].Intact());
  }
  EXPECT_EQ(ConvertImageBuffer(&a.info, nullptr, &a.info, &a.data, none, nullptr), LMX_STATUS_HANDLE_INVALID);
}

TEST(ConvertImageBuffer, EqualKeysCopyAndRotationsTurnBack) {
  lmxtest::ScopedCapture capture;
  FixedDepthScale none;
  Buffer src(5, 5, Image::PIXEL_FORMAT_NV12), dst(5, 5, Image::PIXEL_FORMAT_NV12), back(5, 5, src.info.format);
  auto before = dst.planes;
  EXPECT_EQ(Convert(dst, dst, none), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(dst.Same(before)) << "the same planes succeed untouched";
  ASSERT_EQ(Convert(src, dst, none), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(dst.Same(src.planes));
  // NV12 to 90 degrees and back, each plane as the layout gives it; 45 is no angle.
  Buffer turned(5, 5, Rotated(Image::PIXEL_FORMAT_NV12, 90)), odd(5, 5, Rotated(Image::PIXEL_FORMAT_NV12, 45));
  ASSERT_EQ(Convert(src, turned, none), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(Convert(turned, back, none), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(back.Same(src.planes));
  for (auto& plane : turned.planes) EXPECT_TRUE(plane.Intact());
  EXPECT_EQ(Convert(src, odd, none), LMX_STATUS_PARAM_UNSUPPORTED);
}

// Every pair and rotation gives the bytes of one thread when split into bands:
// odd sizes, 4:2:0 row pairs, rotations' 64-column groups and their remainders.
TEST(ConvertImageBuffer, BandsGiveTheBytesOfOneThread) {
  const int64_t threshold = SetBandThresholdBytes(0);
  const uint64_t banded = BandedJobCount();
  FixedDepthScale scale(0.125f);
  const int32_t formats[] = {
      Image::PIXEL_FORMAT_YUY2,         Image::PIXEL_FORMAT_NV12,        Image::PIXEL_FORMAT_BGRA,
      Image::PIXEL_FORMAT_RGBA,         Image::PIXEL_FORMAT_BGR,         Image::PIXEL_FORMAT_RGB,
      Image::PIXEL_FORMAT_Y8,           Image::PIXEL_FORMAT_Y16,         Image::PIXEL_FORMAT_DEPTH,
      Image::PIXEL_FORMAT_DEPTH_NATIVE, Image::PIXEL_FORMAT_DEPTH_FLOAT, Image::PIXEL_FORMAT_Y8_RELATIVE};
  for (auto [width, height] : {std::pair{2, 1}, {7, 5}, {65, 3}, {129, 67}}) {
    for (int32_t from : formats) {
      std::vector<int32_t> keys(std::begin(formats), std::end(formats));
      for (int32_t degrees : {90, 180, 270}) keys.push_back(Rotated(from, degrees));
      for (int32_t to : keys) {
        SCOPED_TRACE(testing::Message() << width << "x" << height << " " << std::hex << from << " -> " << to);
        Buffer src(width, height, from), one(width, height, to, 7);
        SetConversionThreadLimit(1);
        const Status sts = Convert(src, one, scale);
        // Filled differently where the route writes every output byte (NV12 to YUY2
        // leaves an odd row's lone last pixel to the storage, which clears it).
        const bool whole =
            sts >= 0 && !(from == Image::PIXEL_FORMAT_NV12 && to == Image::PIXEL_FORMAT_YUY2 && width % 2);
        Buffer many(width, height, to, whole ? 8 : 7);
        SetConversionThreadLimit(4);
        EXPECT_EQ(Convert(src, many, scale), sts);
        EXPECT_TRUE(many.Same(one.planes));
      }
    }
  }
  SetConversionThreadLimit(0);
  SetBandThresholdBytes(threshold);
  EXPECT_GT(BandedJobCount(), banded);
}

// NV12 through YUY2 to colour in one banded pass: both
// destinations hold the bytes of the two steps on one thread; other triples are
// refused with nothing written.
TEST(ConvertImageBuffer, OnePassThroughTheIntermediateGivesTheTwoSteps) {
  const int64_t threshold = SetBandThresholdBytes(0);
  FixedDepthScale none;
  constexpr int32_t NV12 = Image::PIXEL_FORMAT_NV12, YUY2 = Image::PIXEL_FORMAT_YUY2;
  for (auto [width, height] : {std::pair{2, 1}, {7, 5}, {129, 67}}) {
    for (int32_t to : {Image::PIXEL_FORMAT_BGRA, Image::PIXEL_FORMAT_RGBA, Image::PIXEL_FORMAT_BGR,
                       Image::PIXEL_FORMAT_RGB, Image::PIXEL_FORMAT_Y16}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height << " " << to);
      Buffer src(width, height, NV12), mid(width, height, YUY2, 7), dst(width, height, to, 7);
      Buffer one_mid(width, height, YUY2, 7), one_dst(width, height, to, 8);
      SetConversionThreadLimit(1);
      ASSERT_EQ(Convert(src, one_mid, none), LMX_STATUS_NO_ERROR);
      const bool refused = Convert(one_mid, one_dst, none) < 0;  // YUY2 -> Y16 has no kernel
      SetConversionThreadLimit(4);
      EXPECT_EQ(ConvertThroughIntermediate(&src.info, &src.data, &mid.info, &mid.data, &dst.info, &dst.data) < 0,
                refused);
      Buffer untouched_mid(width, height, YUY2, 7), untouched_dst(width, height, to, 7);
      EXPECT_TRUE(mid.Same(refused ? untouched_mid.planes : one_mid.planes));
      EXPECT_TRUE(dst.Same(refused ? untouched_dst.planes : one_dst.planes));
    }
  }
  SetConversionThreadLimit(0);
  SetBandThresholdBytes(threshold);
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
  const uint16_t value = 103;  // within 13 bits, so that the shift by 3 keeps it
  std::memcpy(&depth.planes[0].at(1, 4), &value, 2);
  for (int r = 0; r < 2; ++r)
    for (int x = 0; x < 3; ++x) depth.planes[0].at(r, 2 * x + 1) &= 0x1F;
  ASSERT_EQ(Convert(depth, native, eighth), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(native.At<uint16_t>(1, 2), 103 << 3);
  ASSERT_EQ(Convert(native, back, eighth), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(back.Same(depth.planes));
  // Float: from native with the scale; from depth directly only without a scale.
  ASSERT_EQ(Convert(native, flt, eighth), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(flt.At<float>(1, 2), 103.0f);
  ASSERT_EQ(Convert(flt, native, eighth), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(native.At<uint16_t>(1, 2), 103 << 3);
  auto interm = static_cast<Image::PixelFormat>(0);
  EXPECT_EQ(Convert(depth, flt, eighth, &interm), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(interm, Image::PIXEL_FORMAT_DEPTH_NATIVE);
  ASSERT_EQ(Convert(depth, flt, none), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(flt.At<float>(1, 2), 103.0f);
  // A scale that is no power of two stops the shift, logged at the call.
  EXPECT_EQ(Convert(depth, native, tenth), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(Convert(native, flt, none), LMX_STATUS_FEATURE_UNSUPPORTED);
}

}  // namespace
