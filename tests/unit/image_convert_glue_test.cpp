// The object side of conversion: the host provider's hand-off and the depth
// scale read from the image's metadata by the routing.
#include <gtest/gtest.h>

#include <cstring>

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

// Two 64 x 2 Y8 buffers of caller bytes: the source all 5, the destination 0.
struct Planes {
  Planes() { std::memset(source, 5, sizeof(source)); }
  uint8_t source[128], dst[128] = {};
  ImageData src{Image::PIXEL_FORMAT_Y8, {}, {64}, {source}}, to{Image::PIXEL_FORMAT_Y8, {}, {64}, {dst}};
};

}  // namespace

TEST(ImageConvertGlue, TheHostProviderIsOfferedTheConversionFirst) {
  ImageObject* image = lmxtest::NewImage(8, 2, Image::PIXEL_FORMAT_Y8);
  ScriptedProvider provider;
  Base* pointer = &provider;
  ASSERT_EQ(image->AttachBuffer(lmx::kMetadataMemoryProvider, reinterpret_cast<uint8_t*>(&pointer), sizeof(pointer)),
            LMX_STATUS_NO_ERROR);
  Planes planes;
  ImageInfo info{8, 2, Image::PIXEL_FORMAT_Y8, 0}, narrower{4, 2, Image::PIXEL_FORMAT_Y8, 0};
  EXPECT_EQ(image->CopySystemBuffer(&info, &planes.src, &info, &planes.to, nullptr), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(planes.dst[0], 0xEE) << "a non-negative answer is the result";
  EXPECT_EQ(planes.dst[1], 0);
  provider.answer = LMX_STATUS_PARAM_UNSUPPORTED;
  EXPECT_EQ(image->CopySystemBuffer(&info, &planes.src, &info, &planes.to, nullptr), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(planes.dst[1], 5) << "a negative answer hands the conversion back";
  // Sizes are checked before the provider is asked.
  EXPECT_LT(image->CopySystemBuffer(&info, &planes.src, &narrower, &planes.to, nullptr), 0);
  EXPECT_EQ(provider.calls, 2);
  image->Release();
}

// The routing reads the scale from the image's metadata: DEPTH to DEPTH(NATIVE)
// shifts by its power of two (0.125: 3).
TEST(ImageConvertGlue, DepthScaleComesFromMetadata) {
  ImageObject* image = lmxtest::NewImage(8, 2, Image::PIXEL_FORMAT_Y8);
  float scale = 0, stored = 0.125f;
  EXPECT_EQ(image->GetDepthScale(&scale), LMX_STATUS_ITEM_UNAVAILABLE);
  image->AttachBuffer(lmx::kMetadataDepthScale, reinterpret_cast<uint8_t*>(&stored), sizeof(stored));
  ASSERT_EQ(image->GetDepthScale(&scale), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(scale, 0.125f);
  Planes planes;
  ImageInfo depth{2, 1, Image::PIXEL_FORMAT_DEPTH, 0}, native{2, 1, Image::PIXEL_FORMAT_DEPTH_NATIVE, 0};
  ASSERT_EQ(image->CopySystemBuffer(&depth, &planes.src, &native, &planes.to, nullptr), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(planes.dst[0], 0x28) << "0x0505 << 3 is 0x2828";
  image->Release();
}
