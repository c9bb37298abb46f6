// Grey and depth kernels: weights in the right channel order, widening and
// narrowing as inverses, depth shifts and float conversion at their limits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "kernels/pixel_kernels.h"
#include "kernels_test_planes.h"

namespace {

using namespace lmx;
using namespace Norvik::Lumetra;
using kerneltest::GuardedPlane;

TEST(ColourToY8, WeightsFollowChannelOrder) {
  // BGR pixels: blue, green, red, white, black.
  const uint8_t bgr[15] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255, 0, 0, 0};
  const uint8_t expected[5] = {29, 150, 76, 255, 0};  // 0.114, 0.587, 0.299 of 255, rounded
  uint8_t grey[5];
  ASSERT_EQ(BGRToY8(bgr, 15, grey, 5, 5, 1), 0);
  EXPECT_EQ(0, std::memcmp(grey, expected, 5));
  uint8_t rgb[15];
  ASSERT_EQ(BGRToRGB(bgr, 15, rgb, 15, 5, 1), 0);
  ASSERT_EQ(RGBToY8(rgb, 15, grey, 5, 5, 1), 0);
  EXPECT_EQ(0, std::memcmp(grey, expected, 5));
  uint8_t bgra[20], rgba[20];
  ASSERT_EQ(BGRToBGRA(bgr, 15, bgra, 20, 5, 1), 0);
  EXPECT_EQ(bgra[3], 255);
  ASSERT_EQ(BGRToRGBA(bgr, 15, rgba, 20, 5, 1), 0);
  EXPECT_EQ(rgba[2], 255) << "blue moves to the third byte";
  ASSERT_EQ(BGRAToY8(bgra, 20, grey, 5, 5, 1), 0);
  EXPECT_EQ(0, std::memcmp(grey, expected, 5));
  ASSERT_EQ(RGBAToY8(rgba, 20, grey, 5, 5, 1), 0);
  EXPECT_EQ(0, std::memcmp(grey, expected, 5));
}

TEST(GreyWidening, NarrowingInvertsWidening) {
  uint8_t all[256];
  for (int v = 0; v < 256; ++v) all[v] = static_cast<uint8_t>(v);
  GuardedPlane wide(512, 1), narrow(256, 1), bgra(1024, 1);
  ASSERT_EQ(Y8ToY16(all, 256, wide.data(), wide.pitch(), 256, 1), 0);
  uint16_t top;
  std::memcpy(&top, wide.data() + 510, 2);
  EXPECT_EQ(top, 65535);
  ASSERT_EQ(Y16ToY8(wide.data(), wide.pitch(), narrow.data(), narrow.pitch(), 256, 1), 0);
  EXPECT_EQ(0, std::memcmp(narrow.data(), all, 256));
  ASSERT_EQ(Y16ToBGRA(wide.data(), wide.pitch(), bgra.data(), bgra.pitch(), 256, 1), 0);
  for (int v = 0; v < 256; ++v) {
    EXPECT_EQ(bgra.at(0, 4 * v), v);
    EXPECT_EQ(bgra.at(0, 4 * v + 3), 255);
  }
  EXPECT_TRUE(wide.Intact() && narrow.Intact() && bgra.Intact());
}

TEST(Y8ToNV12, CopiesLumaAndFillsNeutralChroma) {
  const int width = 3, height = 3;
  GuardedPlane src(width, height), luma(width, height, 2), chroma(width, height / 2, 2);
  std::mt19937 rng(1);
  src.Randomize(rng);
  ASSERT_EQ(Y8ToNV12(src.data(), src.pitch(), luma.data(), luma.pitch(), chroma.data(), chroma.pitch(), width, height),
            0);
  EXPECT_TRUE(luma.SamePayload(src));
  for (int b = 0; b < width; ++b) EXPECT_EQ(chroma.at(0, b), 128);
  EXPECT_TRUE(luma.Intact() && chroma.Intact());
}

uint16_t Load16(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}

TEST(DepthKernels, ShiftSaturatesAndFloatRoundsAndSaturates) {
  const uint16_t depth[4] = {0, 1, 1000, 20000};
  uint8_t src[8], out[8];
  std::memcpy(src, depth, 8);
  ASSERT_EQ(DepthShift(src, 8, out, 8, 4, 1, 3), 0);
  EXPECT_EQ(Load16(out + 4), 8000);
  EXPECT_EQ(Load16(out + 6), 65535) << "saturates";
  ASSERT_EQ(DepthShift(out, 8, out, 8, 4, 1, -3), 0);
  EXPECT_EQ(Load16(out + 2), 1);
  EXPECT_EQ(Load16(out + 4), 1000);
  ASSERT_EQ(DepthShift(src, 8, out, 8, 4, 1, 40), 0);
  EXPECT_EQ(Load16(out), 0);
  EXPECT_EQ(Load16(out + 2), 65535);

  uint8_t floats[16];
  ASSERT_EQ(DepthToFloat(src, 8, floats, 16, 4, 1, 0.125f), 0);
  float f;
  std::memcpy(&f, floats + 8, 4);
  EXPECT_EQ(f, 125.0f);

  const float values[6] = {-3.0f, 0.49f, 0.5f, 1234.6f, 70000.0f, std::numeric_limits<float>::quiet_NaN()};
  uint8_t fsrc[24], d16[12];
  std::memcpy(fsrc, values, 24);
  ASSERT_EQ(FloatToDepth(fsrc, 24, d16, 12, 6, 1, 1.0f), 0);
  const uint16_t expected[6] = {0, 0, 1, 1235, 65535, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(Load16(d16 + 2 * i), expected[i]) << i;
  // Unaligned rows are fine: samples are loaded bytewise.
  uint8_t odd[9] = {0};
  ASSERT_EQ(DepthShift(src, 8, odd + 1, 8, 4, 1, 0), 0);
  EXPECT_EQ(Load16(odd + 5), 1000);
}

}  // namespace
