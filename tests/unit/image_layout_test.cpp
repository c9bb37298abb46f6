// Plane layout and format names of images.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "image/coreaccel_baseimage.h"
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
      {641, 481, Image::PIXEL_FORMAT_NV12, 2, 1, 641, 240, 1},
      {640, 480, Rotated(Image::PIXEL_FORMAT_NV12, 270), 2, 1, 240, 640, 1},
      {640, 480, Rotated(Image::PIXEL_FORMAT_NV12, 270), 2, 2, 0, 0, 0},
      {640, 480, Rotated(Image::PIXEL_FORMAT_YUY2, 90), 1, 0, 480, 640, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.format << " plane " << c.plane);
    PlaneInfo planes{};
    ImageInfo info{c.width, c.height, c.format, 0};
    ASSERT_EQ(lmx::QueryPlaneInfo(&info, 0, &planes), c.planes);
    const auto& plane = planes.plane[c.plane];
    EXPECT_EQ(std::vector<uint32_t>({plane.width, plane.height, plane.bytesPerPixel}),
              std::vector<uint32_t>({c.planeWidth, c.planeHeight, c.bytesPerPixel}));
  }
}

TEST(ImageLayout, SizeLimitsAndUnknownFormats) {
  lmxtest::ScopedCapture capture;
  // A null plane array still answers the count; sides out of range are logged, an
  // unknown format is not.
  const int32_t y8 = Image::PIXEL_FORMAT_Y8;
  for (auto [width, format, count] : {std::tuple{32767, y8, 1}, {32768, y8, 0}, {0, y8, 0}, {16, 0x12345, 0}}) {
    ImageInfo info{width, 16, format, 0};
    EXPECT_EQ(lmx::QueryPlaneInfo(&info, 0, nullptr), count) << width << ", " << format;
    EXPECT_EQ(capture->Lines().empty(), format != y8 || count > 0) << width << ", " << format;
    capture->Clear();
  }
}
