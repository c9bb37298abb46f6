// The object side of conversion: the host provider's hand-off and the depth
// scale read from the image's metadata by the routing.
#include <gtest/gtest.h>

#include <cstring>

#include "coreaccel_emu.h"
#include "image_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmx::ImageData;
using lmx::ImageInfo;
using lmx::ImageObject;

namespace {

class ScriptedProvider final : public BaseImpl<LMXCustomImageFormat> {
 public:
  Status QueryPlaneInfo(Image::ImageInfo*, LMXImageService::PlaneInfo*, int32_t*) override {
    return LMX_STATUS_FEATURE_UNSUPPORTED;
  }
  Status CopySystemBuffer(Image::ImageInfo*, Image::ImageData*, Image::ImageInfo*, Image::ImageData* dst,
                          Image::PixelFormat*) override {
    ++calls;
    if (answer >= 0) dst->planes[0][0] = 0xEE;
    return answer;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
  Status answer = LMX_STATUS_NO_ERROR;
  int calls = 0;
};

struct Planes {
  uint8_t src[2][64];
  uint8_t dst[2][64];
  ImageData srcData{};
  ImageData dstData{};
  Planes() {
    std::memset(src, 5, sizeof(src));
    std::memset(dst, 0, sizeof(dst));
    srcData.format = dstData.format = Image::PIXEL_FORMAT_Y8;
    srcData.pitches[0] = dstData.pitches[0] = 64;
    srcData.planes[0] = &src[0][0];
    dstData.planes[0] = &dst[0][0];
  }
};

}  // namespace

TEST(ImageConvertGlue, TheHostProviderIsOfferedTheConversionFirst) {
  ImageObject* image = lmxtest::NewImage(8, 2, Image::PIXEL_FORMAT_Y8);
  ScriptedProvider provider;
  Base* pointer = &provider;
  ASSERT_EQ(image->AttachBuffer(lmx::kMetadataMemoryProvider, reinterpret_cast<uint8_t*>(&pointer), sizeof(pointer)),
            LMX_STATUS_NO_ERROR);
  Planes planes;
  ImageInfo info{8, 2, Image::PIXEL_FORMAT_Y8, 0};
  EXPECT_EQ(image->CopySystemBuffer(&info, &planes.srcData, &info, &planes.dstData, nullptr), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(planes.dst[0][0], 0xEE) << "a non-negative answer is the result";
  EXPECT_EQ(planes.dst[0][1], 0);

  provider.answer = LMX_STATUS_PARAM_UNSUPPORTED;
  EXPECT_EQ(image->CopySystemBuffer(&info, &planes.srcData, &info, &planes.dstData, nullptr), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(planes.dst[0][1], 5) << "a negative answer hands the conversion back";
  EXPECT_EQ(provider.calls, 2);

  // Sizes are checked before the provider is asked.
  provider.answer = LMX_STATUS_NO_ERROR;
  ImageInfo narrower{4, 2, Image::PIXEL_FORMAT_Y8, 0};
  EXPECT_LT(image->CopySystemBuffer(&info, &planes.srcData, &narrower, &planes.dstData, nullptr), 0);
  EXPECT_EQ(provider.calls, 2);
  image->Release();
}

TEST(ImageConvertGlue, DepthScaleComesFromMetadata) {
  ImageObject* image = lmxtest::NewImage(8, 2, Image::PIXEL_FORMAT_Y8);
  float scale = 0;
  EXPECT_EQ(image->GetDepthScale(&scale), LMX_STATUS_ITEM_UNAVAILABLE);
  float stored = 0.125f;
  image->AttachBuffer(lmx::kMetadataDepthScale, reinterpret_cast<uint8_t*>(&stored), sizeof(stored));
  ASSERT_EQ(image->GetDepthScale(&scale), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(scale, 0.125f);

  // DEPTH to DEPTH(NATIVE) shifts by the scale's power of two (0.125: 3).
  uint16_t depth[2] = {5, 100};
  uint16_t native[2] = {0, 0};
  ImageInfo depthInfo{2, 1, Image::PIXEL_FORMAT_DEPTH, 0};
  ImageInfo nativeInfo{2, 1, Image::PIXEL_FORMAT_DEPTH_NATIVE, 0};
  ImageData from{};
  ImageData to{};
  from.planes[0] = reinterpret_cast<uint8_t*>(depth);
  to.planes[0] = reinterpret_cast<uint8_t*>(native);
  from.pitches[0] = to.pitches[0] = 4;
  ASSERT_EQ(image->CopySystemBuffer(&depthInfo, &from, &nativeInfo, &to, nullptr), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(native[0], 40);
  EXPECT_EQ(native[1], 800);
  image->Release();

  lmx::BaseImage* storage = nullptr;
  ASSERT_EQ(lmx::CreateImageSysMem(ImageInfo{4, 4, 0, 0}, Image::PIXEL_FORMAT_Y8, nullptr, 0, nullptr, &storage),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(storage->GetDepthScale(&scale), -1) << "an object without a metadata face";
  storage->Release();
}
