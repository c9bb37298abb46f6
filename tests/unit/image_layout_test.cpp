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

TEST(ImageLayout, TwoPlaneFormatsHalveTheSecondPlaneAfterWhichRotationSwaps) {
  PlaneInfo planes{};
  ImageInfo nv12{640, 480, Image::PIXEL_FORMAT_NV12, 0};
  ASSERT_EQ(lmx::QueryPlaneInfo(&nv12, 0, &planes), 2);
  EXPECT_EQ(planes.plane[0].width, 640u);
  EXPECT_EQ(planes.plane[0].height, 480u);
  EXPECT_EQ(planes.plane[1].width, 640u);
  EXPECT_EQ(planes.plane[1].height, 240u);
  EXPECT_EQ(planes.plane[1].bytesPerPixel, 1u);

  ImageInfo odd{641, 481, Image::PIXEL_FORMAT_NV12, 0};
  ASSERT_EQ(lmx::QueryPlaneInfo(&odd, 0, &planes), 2);
  EXPECT_EQ(planes.plane[1].width, 641u);
  EXPECT_EQ(planes.plane[1].height, 240u);

  ImageInfo rotatedNv12{640, 480, Rotated(Image::PIXEL_FORMAT_NV12, 270), 0};
  ASSERT_EQ(lmx::QueryPlaneInfo(&rotatedNv12, 0, &planes), 2);
  EXPECT_EQ(planes.plane[1].width, 240u) << "halving comes before the swap";
  EXPECT_EQ(planes.plane[1].height, 640u);
  EXPECT_EQ(planes.plane[2].width, 0u) << "unused entries are cleared";
}

TEST(ImageLayout, RotationSwapsOnlyAtNinetyAndTwoSeventy) {
  PlaneInfo planes{};
  ImageInfo r90{640, 480, Rotated(Image::PIXEL_FORMAT_YUY2, 90), 0};
  ASSERT_EQ(lmx::QueryPlaneInfo(&r90, 0, &planes), 1);
  EXPECT_EQ(planes.plane[0].width, 480u);
  EXPECT_EQ(planes.plane[0].height, 640u);
  EXPECT_EQ(planes.plane[0].bytesPerPixel, 2u);
  ImageInfo r180{640, 480, Rotated(Image::PIXEL_FORMAT_YUY2, 180), 0};
  ASSERT_EQ(lmx::QueryPlaneInfo(&r180, 0, &planes), 1);
  EXPECT_EQ(planes.plane[0].width, 640u);

  ImageInfo depth{8, 8, Rotated(Image::PIXEL_FORMAT_DEPTH_NATIVE, 90), 0};
  ASSERT_EQ(lmx::QueryPlaneInfo(&depth, 0, &planes), 1);
  EXPECT_EQ(planes.plane[0].bytesPerPixel, 2u);
  EXPECT_STREQ(lmx::PixelFormatName(depth.format), L"Unknown") << "the name lookup does not mask";
}

TEST(ImageLayout, SizeLimitsAndUnknownFormats) {
  lmxtest::ScopedCapture capture;
  ImageInfo info{32767, 1, Image::PIXEL_FORMAT_Y8, 0};
  EXPECT_EQ(lmx::QueryPlaneInfo(&info, 0, nullptr), 1) << "a null plane array still answers the count";
  info.width = 32768;
  EXPECT_EQ(lmx::QueryPlaneInfo(&info, 0, nullptr), 0);
  EXPECT_TRUE(capture->Contains("failed on info->width < 32768 && info->height < 32768"));
  info.width = 0;
  EXPECT_EQ(lmx::QueryPlaneInfo(&info, 0, nullptr), 0);
  EXPECT_TRUE(capture->Contains("failed on info->width && info->height"));

  capture->Clear();
  ImageInfo unknown{16, 16, 0x12345, 0};
  EXPECT_EQ(lmx::QueryPlaneInfo(&unknown, 0, nullptr), 0);
  EXPECT_TRUE(capture->Lines().empty()) << "an unknown format is not logged";
}

TEST(ImageLayout, NamesComeFromTheTable) {
  EXPECT_STREQ(lmx::PixelFormatName(Image::PIXEL_FORMAT_YUY2), L"YUY2");
  EXPECT_STREQ(lmx::PixelFormatName(Image::PIXEL_FORMAT_DEPTH_NATIVE), L"DEPTH(NATIVE)");
  EXPECT_STREQ(lmx::PixelFormatName(Image::PIXEL_FORMAT_DEPTH_CONFIDENCE), L"DEPTH(CONF)");
  EXPECT_STREQ(lmx::PixelFormatName(Image::PIXEL_FORMAT_Y8_RELATIVE), L"Y8_REL");
  EXPECT_STREQ(lmx::PixelFormatName(Image::PIXEL_FORMAT_NV21), L"Unknown");
  EXPECT_STREQ(lmx::kernels::ConversionFormatName(Image::PIXEL_FORMAT_NV21), L"NV21") << "only traces name it";
  EXPECT_STREQ(lmx::PixelFormatName(0x7FFF), L"Unknown");
}
