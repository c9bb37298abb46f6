// The product as a host uses it: the library loaded at run time, the allocator
// created through the export table with no session, images written in one
// format and read in another by the real kernels, audio read as float.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "lmxallocator.h"
#include "module_host.h"

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

// Caller planes of one format, rows `pitch` bytes apart.
struct Planes {
  Planes(int32_t format, std::vector<int32_t> pitches, std::vector<int32_t> rows) {
    data.format = format;
    for (size_t c = 0; c < pitches.size(); ++c) {
      bytes.emplace_back(static_cast<size_t>(pitches[c]) * rows[c], 0);
      data.planes[c] = bytes[c].data();
      data.pitches[c] = pitches[c];
    }
  }
  const uint8_t* Pixel(int32_t x, int32_t y, int32_t bpp) const { return data.planes[0] + y * data.pitches[0] + x * bpp; }
  std::vector<std::vector<uint8_t>> bytes;
  Image::ImageData data{};
};

}  // namespace

TEST_F(AllocatorEndToEnd, ImagesConvertBetweenFormatsThroughTheRealKernels) {
  // Top half studio-range red (Y 81, U 90, V 240), bottom half white (Y 235, U = V = 128).
  Planes yuy2(Image::PIXEL_FORMAT_YUY2, {kWidth * 2 + 32}, {kHeight});
  for (int32_t y = 0; y < kHeight; ++y) {
    const uint8_t pair[2][4] = {{81, 90, 81, 240}, {235, 128, 235, 128}};
    for (int32_t x = 0; x < kWidth; x += 2) std::memcpy(&yuy2.bytes[0][y * yuy2.data.pitches[0] + x * 2], pair[y >= 24], 4);
  }
  Image::ImageInfo info{kWidth, kHeight, Image::PIXEL_FORMAT_YUY2, 0};
  Image* image = nullptr;
  ASSERT_EQ(allocator_->CreateImage(&info, 0, &yuy2.data, &image), LMX_STATUS_NO_ERROR);

  Planes bgra(Image::PIXEL_FORMAT_BGRA, {kWidth * 4}, {kHeight});
  ASSERT_EQ(image->ExportData(&bgra.data, 0), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(std::vector<uint8_t>(bgra.Pixel(0, 0, 4), bgra.Pixel(0, 0, 4) + 4), (std::vector<uint8_t>{0, 0, 254, 255}));
  EXPECT_EQ(std::vector<uint8_t>(bgra.Pixel(63, 47, 4), bgra.Pixel(63, 47, 4) + 4),
            (std::vector<uint8_t>{255, 255, 255, 255}));
  // Exported again with the vertical flip: the white rows come first.
  ASSERT_EQ(image->ExportData(&bgra.data, 2), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(bgra.Pixel(5, 0, 4)[2], 255);
  EXPECT_EQ(bgra.Pixel(5, 47, 4)[0], 0);
  image->Release();

  // The same red as NV12 read as BGR: no direct kernel, converted through YUY2.
  Planes nv12(Image::PIXEL_FORMAT_NV12, {kWidth, kWidth}, {kHeight, kHeight / 2});
  std::memset(nv12.bytes[0].data(), 81, nv12.bytes[0].size());
  for (size_t i = 0; i < nv12.bytes[1].size(); i += 2) {
    nv12.bytes[1][i] = 90;
    nv12.bytes[1][i + 1] = 240;
  }
  info.format = Image::PIXEL_FORMAT_NV12;
  ASSERT_EQ(allocator_->CreateImage(&info, 0, &nv12.data, &image), LMX_STATUS_NO_ERROR);
  Planes bgr(Image::PIXEL_FORMAT_BGR, {kWidth * 3}, {kHeight});
  ASSERT_EQ(image->ExportData(&bgr.data, 0), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(std::vector<uint8_t>(bgr.Pixel(33, 20, 3), bgr.Pixel(33, 20, 3) + 3), (std::vector<uint8_t>{0, 0, 254}));
  Image::ImageData held{};
  EXPECT_EQ(image->AcquireAccess(Image::ACCESS_READ, Image::PIXEL_FORMAT_YUY2, 0, &held), LMX_STATUS_NO_ERROR)
      << "the intermediate buffer stays valid";
  EXPECT_EQ(held.planes[0][0], 81);
  EXPECT_EQ(image->ReleaseAccess(&held), LMX_STATUS_NO_ERROR);
  image->Release();
}
