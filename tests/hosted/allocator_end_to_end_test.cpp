// The product as a host uses it: the library loaded at run time, the allocator
// created through the export table with no session, images written in one
// format and read in another by the real kernels, audio read as float.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "lmxallocator.h"
#include "module_host.h"
#include "support/planes.h"

using namespace Norvik::Lumetra;

namespace {

class AllocatorEndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(module_.Load(lmxhost::DefaultCoreLibraryPath()));
    for (auto* entry : module_.Entries()) {
      if (lmxhost::FourCCText(entry->desc.code) != "AEMU") continue;
      Base* object = nullptr;
      ASSERT_EQ(entry->factory(nullptr, nullptr, nullptr, entry, LMXAllocator::kIid, &object), LMX_STATUS_NO_ERROR);
      allocator_ = object->QueryInstance<LMXAllocator>();
    }
    ASSERT_NE(allocator_, nullptr);
  }
  void TearDown() override {
    if (allocator_) allocator_->Release();
  }

  lmxhost::Module module_;
  LMXAllocator* allocator_ = nullptr;
};

constexpr int32_t kWidth = 64;
constexpr int32_t kHeight = 48;

// A description of caller planes of one format.
Image::ImageData Describe(int32_t format, std::initializer_list<lmxtest::GuardedPlane*> planes) {
  Image::ImageData data{};
  data.format = format;
  int c = 0;
  for (auto* plane : planes) {
    data.planes[c] = plane->data();
    data.pitches[c++] = plane->pitch();
  }
  return data;
}
std::vector<uint8_t> Pixel(lmxtest::GuardedPlane& plane, int32_t x, int32_t y, int32_t bpp) {
  return std::vector<uint8_t>(plane.row(y) + x * bpp, plane.row(y) + (x + 1) * bpp);
}

}  // namespace

TEST_F(AllocatorEndToEnd, ImagesConvertBetweenFormatsThroughTheRealKernels) {
  // Top half studio-range red (Y 81, U 90, V 240), bottom half white (Y 235, U = V = 128).
  lmxtest::GuardedPlane yuy2(kWidth * 2, kHeight, 32), bgra(kWidth * 4, kHeight), bgr(kWidth * 3, kHeight);
  const uint8_t pair[2][4] = {{81, 90, 81, 240}, {235, 128, 235, 128}};
  for (int32_t y = 0; y < kHeight; ++y)
    for (int32_t x = 0; x < kWidth; x += 2) std::memcpy(yuy2.row(y) + x * 2, pair[y >= 24], 4);
  Image::ImageInfo info{kWidth, kHeight, Image::PIXEL_FORMAT_YUY2, 0};
  Image::ImageData data = Describe(Image::PIXEL_FORMAT_YUY2, {&yuy2});
  Image* image = nullptr;
  ASSERT_EQ(allocator_->CreateImage(&info, 0, &data, &image), LMX_STATUS_NO_ERROR);
  data = Describe(Image::PIXEL_FORMAT_BGRA, {&bgra});
  ASSERT_EQ(image->ExportData(&data, 0), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(Pixel(bgra, 0, 0, 4), (std::vector<uint8_t>{0, 0, 254, 255}));
  EXPECT_EQ(Pixel(bgra, 63, 47, 4), (std::vector<uint8_t>{255, 255, 255, 255}));
  // Exported again with the vertical flip: the white rows come first.
  ASSERT_EQ(image->ExportData(&data, 2), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(Pixel(bgra, 5, 0, 4)[2], 255);
  EXPECT_EQ(Pixel(bgra, 5, 47, 4)[0], 0);
  EXPECT_TRUE(bgra.Intact());
  image->Release();

  // The same red as NV12 read as BGR: no direct kernel, converted through YUY2.
  lmxtest::GuardedPlane luma(kWidth, kHeight, 0, 81, 0, 0), chroma(kWidth, kHeight / 2, 0, 90, 0, 0);
  for (int32_t i = 1; i < kWidth * kHeight / 2; i += 2) chroma.data()[i] = 240;
  info.format = Image::PIXEL_FORMAT_NV12;
  data = Describe(Image::PIXEL_FORMAT_NV12, {&luma, &chroma});
  ASSERT_EQ(allocator_->CreateImage(&info, 0, &data, &image), LMX_STATUS_NO_ERROR);
  data = Describe(Image::PIXEL_FORMAT_BGR, {&bgr});
  ASSERT_EQ(image->ExportData(&data, 0), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(Pixel(bgr, 33, 20, 3), (std::vector<uint8_t>{0, 0, 254}));
  Image::ImageData held{};
  EXPECT_EQ(image->AcquireAccess(Image::ACCESS_READ, Image::PIXEL_FORMAT_YUY2, 0, &held), LMX_STATUS_NO_ERROR)
      << "the intermediate buffer stays valid";
  EXPECT_EQ(held.planes[0][0], 81);
  EXPECT_EQ(image->ReleaseAccess(&held), LMX_STATUS_NO_ERROR);
  image->Release();
}
