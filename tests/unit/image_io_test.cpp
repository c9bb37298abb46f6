// Export, import and copy between images and caller memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "image_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmx::ImageData;
using lmx::ImageObject;
using lmxtest::NewImage;

namespace {

// Caller-owned planes of one plane format, rows pitch bytes apart, the first
// rowBytes of row y holding y * 16 + x (the rest 0).
struct CallerImage {
  CallerImage(int32_t format, int32_t rowBytes, int32_t rows, int32_t pitch) : bytes(size_t(pitch) * rows) {
    data.format = format, data.pitches[0] = pitch, data.planes[0] = bytes.data();
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < rowBytes; ++x) bytes[y * pitch + x] = static_cast<uint8_t>(y * 16 + x);
  }
  std::vector<uint8_t> bytes;
  ImageData data{};
};

}  // namespace

// Mode 1 mirrors left to right, 2 flips the rows, 3 does both; 16 mirrors top to
// bottom and 18 turns that back. Bytes past the row width are untouched.
TEST(ImageIo, ImportThenExportPlainAndFlipped) {
  ImageObject* image = NewImage(5, 3, Image::PIXEL_FORMAT_Y8);
  CallerImage source(Image::PIXEL_FORMAT_Y8, 5, 3, 7);
  ASSERT_EQ(image->ImportData(&source.data, 0), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(image->IsBufferValid(Image::PIXEL_FORMAT_Y8)) << "an import is a write";
  const struct {
    int32_t mode;
    uint8_t topLeft, topRight, bottomLeft;
  } modes[] = {{0, 0, 4, 32}, {1, 4, 0, 36}, {2, 32, 36, 0}, {3, 36, 32, 4}, {16, 32, 36, 0}, {18, 0, 4, 32}};
  for (const auto& m : modes) {
    CallerImage out(Image::PIXEL_FORMAT_Y8, 0, 3, 9);
    ASSERT_EQ(image->ExportData(&out.data, m.mode), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(std::vector<uint8_t>({out.bytes[0], out.bytes[4], out.bytes[5], out.bytes[18]}),
              std::vector<uint8_t>({m.topLeft, m.topRight, 0, m.bottomLeft}))
        << "mode " << m.mode;
  }
  EXPECT_EQ(image->RefCount(), 1u);
  image->Release();
}

TEST(ImageIo, PreconditionsAndModes) {
  ImageObject* image = NewImage(4, 2, Image::PIXEL_FORMAT_YUY2);
  EXPECT_EQ(image->ExportData(nullptr, 0), LMX_STATUS_HANDLE_INVALID);
  CallerImage out(Image::PIXEL_FORMAT_YUY2, 8, 2, 8);
  EXPECT_EQ(image->ImportData(&out.data, 4), LMX_STATUS_PARAM_UNSUPPORTED) << "no red and blue in YUY2";
  EXPECT_EQ(image->ImportData(&out.data, 8), LMX_STATUS_PARAM_UNSUPPORTED) << "an unknown mode fails";
  EXPECT_EQ(image->RefCount(), 1u) << "failed copies release their access";

  // A YUY2 mirror swaps the pixel pairs and the lumas within each pair: Y0 U Y1 V -> Y3 U' Y2 V'.
  ASSERT_EQ(image->ImportData(&out.data, 0), LMX_STATUS_NO_ERROR);
  CallerImage mirrored(Image::PIXEL_FORMAT_YUY2, 0, 2, 8);
  ASSERT_EQ(image->ExportData(&mirrored.data, 1), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(mirrored.bytes[0], out.bytes[6]);
  EXPECT_EQ(mirrored.bytes[2], out.bytes[4]);
  image->Release();

  // Mode 4 reorders RGB into BGR order.
  ImageObject* rgb = NewImage(2, 1, Image::PIXEL_FORMAT_RGB);
  CallerImage pixels(Image::PIXEL_FORMAT_RGB, 6, 1, 6), back(Image::PIXEL_FORMAT_RGB, 0, 1, 6);
  ASSERT_EQ(rgb->ImportData(&pixels.data, 4), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(rgb->ExportData(&back.data, 0), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(back.bytes, (std::vector<uint8_t>{2, 1, 0, 5, 4, 3}));
  rgb->Release();
}

TEST(ImageIo, CopyImageTakesContentAndPassesOverMissingSideData) {
  ImageObject* src = NewImage(4, 2, Image::PIXEL_FORMAT_Y8);
  ImageObject* dst = NewImage(4, 2, Image::PIXEL_FORMAT_Y8);
  CallerImage content(Image::PIXEL_FORMAT_Y8, 4, 2, 4), confidence(Image::PIXEL_FORMAT_DEPTH_CONFIDENCE, 4, 2, 4);
  std::reverse(confidence.bytes.begin(), confidence.bytes.end());
  ASSERT_EQ(src->ImportData(&content.data, 0), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(src->ImportData(&confidence.data, 0), LMX_STATUS_NO_ERROR);

  EXPECT_EQ(dst->CopyImage(nullptr), LMX_STATUS_HANDLE_INVALID);
  for (auto [width, height] : {std::pair{4, 3}, std::pair{5, 2}}) {
    ImageObject* other = NewImage(width, height, Image::PIXEL_FORMAT_Y8);
    EXPECT_EQ(other->CopyImage(src), LMX_STATUS_PARAM_UNSUPPORTED);
    other->Release();
  }
  ASSERT_EQ(dst->CopyImage(src), LMX_STATUS_NO_ERROR);
  for (CallerImage* expected : {&content, &confidence}) {
    CallerImage out(expected->data.format, 0, 2, 4);
    ASSERT_EQ(dst->ExportData(&out.data, 0), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(out.bytes, expected->bytes) << "side data comes along";
  }
  EXPECT_EQ(src->RefCount(), 1u);
  EXPECT_EQ(dst->RefCount(), 1u);
  src->Release();
  dst->Release();
}
