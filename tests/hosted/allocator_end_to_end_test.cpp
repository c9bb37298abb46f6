// The product as a host uses it: the library loaded at run time, the allocator
// created through the host kit with no session, an image written in one
// format and read in another by the real kernels.
#include <gtest/gtest.h>

#include <vector>

#include "lmxallocator.h"
#include "host_ref.h"
#include "module_host.h"
#include "support/planes.h"

using namespace Norvik::Lumetra;

// Studio-range red (Y 81, U 90, V 240) as NV12, exported as BGR: no direct kernel,
// converted through YUY2 by the real kernels, the intermediate left valid.
TEST(AllocatorEndToEnd, ImagesConvertBetweenFormatsThroughTheRealKernels) {
  lmxhost::Module module;  // declared first: unloaded after the allocator is released
  lmxhost::Ref<LMXAllocator> allocator;
  ASSERT_TRUE(module.Load(lmxhost::DefaultCoreLibraryPath()));
  ASSERT_EQ(module.Create(LMXAllocator::kIid, nullptr, allocator.Out()), LMX_STATUS_NO_ERROR);
  constexpr int32_t kWidth = 64, kHeight = 48;
  lmxtest::GuardedPlane luma(kWidth, kHeight, 0, 81, 0, 0), chroma(kWidth, kHeight / 2, 0, 90, 0, 0);
  lmxtest::GuardedPlane bgr(kWidth * 3, kHeight, 5);
  for (int32_t i = 1; i < kWidth * kHeight / 2; i += 2) chroma.data()[i] = 240;
  Image::ImageInfo info{kWidth, kHeight, Image::PIXEL_FORMAT_NV12, 0};
  Image::ImageData data{Image::PIXEL_FORMAT_NV12, {}, {luma.pitch(), chroma.pitch()}, {luma.data(), chroma.data()}};
  Image* image = nullptr;
  ASSERT_EQ(allocator->CreateImage(&info, 0, &data, &image), LMX_STATUS_NO_ERROR);
  data = {Image::PIXEL_FORMAT_BGR, {}, {bgr.pitch()}, {bgr.data()}};
  ASSERT_EQ(image->ExportData(&data, 2), LMX_STATUS_NO_ERROR);
  for (auto [x, y] : {std::pair{0, 0}, {33, 20}, {63, 47}})
    EXPECT_EQ(std::vector<uint8_t>(bgr.row(y) + 3 * x, bgr.row(y) + 3 * x + 3), (std::vector<uint8_t>{0, 0, 254}));
  EXPECT_TRUE(bgr.Intact());
  Image::ImageData held{};
  EXPECT_EQ(image->AcquireAccess(Image::ACCESS_READ, Image::PIXEL_FORMAT_YUY2, 0, &held), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(held.planes[0][0], 81);
  EXPECT_EQ(image->ReleaseAccess(&held), LMX_STATUS_NO_ERROR);
  image->Release();
}
