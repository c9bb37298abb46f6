// Plane layout and format names of images.
#include <gtest/gtest.h>

#include "coreaccel_baseimage.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmx::ImageInfo;
using lmx::PlaneInfo;

namespace {

constexpr int32_t Rotated(int32_t format, int32_t degrees) { return format | (degrees << kRotationShift); }

}  // namespace

// The second plane of a two-plane format is halved in height, before a rotation of
// 90 or 270 swaps the sides; unused entries are cleared.
TEST(ImageLayout, PlaneSidesForTwoPlaneFormatsAndRotations) {
  const struct {
    int32_t width, height, format, planes, plane;
    uint32_t planeWidth, planeHeight, bytesPerPixel;
  } cases[] = {
      {640, 480, Image::PIXEL_FORMAT_NV12, 2, 0, 640, 480, 1},
      {640, 480, Image::PIXEL_FORMAT_NV12, 2, 1, 640, 240, 1},
      {641, 481, Image::PIXEL_FORMAT_NV12, 2, 1, 641, 240, 1},
      {640, 480, Rotated(Image::PIXEL_FORMAT_NV12, 270), 2, 1, 240, 640, 1},
      {640, 480, Rotated(Image::PIXEL_FORMAT_NV12, 270), 2, 2, 0, 0, 0},
      {640, 480, Rotated(Image::PIXEL_FORMAT_YUY2, 90), 1, 0, 480, 640, 2},
      {640, 480, Rotated(Image::PIXEL_FORMAT_YUY2, 180), 1, 0, 640, 480, 2},
      {8, 8, Rotated(Image::PIXEL_FORMAT_DEPTH_NATIVE, 90), 1, 0, 8, 8, 2},
  };
  for (const auto& c : cases) {
    PlaneInfo planes{};
    ImageInfo info{c.width, c.height, c.format, 0};
    ASSERT_EQ(lmx::QueryPlaneInfo(&info, 0, &planes), c.planes) << std::hex << c.format;
    const auto& plane = planes.plane[c.plane];
    EXPECT_EQ(plane.width, c.planeWidth) << std::hex << c.format << " plane " << c.plane;
    EXPECT_EQ(plane.height, c.planeHeight) << std::hex << c.format << " plane " << c.plane;
    EXPECT_EQ(plane.bytesPerPixel, c.bytesPerPixel) << std::hex << c.format << " plane " << c.plane;
  }
}

TEST(ImageLayout, SizeLimitsAndUnknownFormats) {
  lmxtest::ScopedCapture capture;
  ImageInfo info{32767, 1, Image::PIXEL_FORMAT_Y8, 0};
  EXPECT_EQ(lmx::QueryPlaneInfo(&info, 0, nullptr), 1) << "a null plane array still answers the count";
  info.width = 32768;
  EXPECT_EQ(lmx::QueryPlaneInfo(&info, 0, nullptr), 0);
  info.width = 0;
  EXPECT_EQ(lmx::QueryPlaneInfo(&info, 0, nullptr), 0);

  capture->Clear();
  ImageInfo unknown{16, 16, 0x12345, 0};
  EXPECT_EQ(lmx::QueryPlaneInfo(&unknown, 0, nullptr), 0);
  EXPECT_TRUE(capture->Lines().empty()) << "an unknown format is not logged";
}
