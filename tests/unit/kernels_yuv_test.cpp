// Luma-chroma kernels: the studio-range decode pinned by known pixels, its
// argument rules, the 4:2:0 <-> 4:2:2 steps, and the encode round trip.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "cpu_features.h"
#include "kernels/pixel_kernels.h"
#include "kernels_test_planes.h"

namespace {

using namespace lmx;
using namespace Norvik::Lumetra;
using kerneltest::GuardedPlane;

std::array<uint8_t, 8> DecodePair(uint8_t y, uint8_t u, uint8_t v, bool rgba = false, uint8_t alpha = 255) {
  const uint8_t src[4] = {y, u, y, v};
  std::array<uint8_t, 8> out{};
  const Status sts = rgba ? YUY2ToRGBA(src, 4, out.data(), 8, 2, 1, alpha) : YUY2ToBGRA(src, 4, out.data(), 8, 2, 1, alpha);
  EXPECT_EQ(sts, 0);
  return out;
}

TEST(YUY2ToFourChannel, KnownPixels) {
  const auto black = DecodePair(16, 128, 128);
  EXPECT_EQ((std::array<uint8_t, 8>{0, 0, 0, 255, 0, 0, 0, 255}), black);
  const auto white = DecodePair(235, 128, 128);
  EXPECT_EQ((std::array<uint8_t, 8>{255, 255, 255, 255, 255, 255, 255, 255}), white);
  const auto red = DecodePair(81, 90, 240);  // BGRA: blue, green, red, alpha
  EXPECT_EQ(red[0], 0);
  EXPECT_EQ(red[1], 0);
  EXPECT_EQ(red[2], 254);
  const auto red_rgba = DecodePair(81, 90, 240, true);
  EXPECT_EQ(red_rgba[0], 254);
  EXPECT_EQ(red_rgba[2], 0);
  const auto blue = DecodePair(41, 240, 110);
  EXPECT_EQ(blue[0], 255);
  EXPECT_EQ(blue[1], 0);
  EXPECT_EQ(blue[2], 0);
  const auto translucent = DecodePair(128, 60, 200, false, 77);
  EXPECT_EQ(translucent[3], 77);
  EXPECT_EQ(translucent[7], 77);
}

TEST(YUY2ToFourChannel, OddWidthLastPixelUsesOwnUAndPrecedingV) {
  const uint8_t src[6] = {16, 128, 16, 240, 180, 60};  // lone pixel: Y 180, U 60; pair's V 240
  GuardedPlane dst(12, 1);
  ASSERT_EQ(YUY2ToBGRA(src, 6, dst.data(), dst.pitch(), 3, 1, 9), 0);
  const auto expected = DecodePair(180, 60, 240, false, 9);
  for (int b = 0; b < 4; ++b) EXPECT_EQ(dst.at(0, 8 + b), expected[b]) << b;
  EXPECT_TRUE(dst.Intact());
}

TEST(YUY2ToFourChannel, RejectsBadArgumentsBeforeTouchingMemory) {
  const uint8_t src[8] = {16, 128, 16, 128, 16, 128, 16, 128};
  GuardedPlane dst(8, 2);
  EXPECT_EQ(YUY2ToBGRA(src, 4, dst.data(), 8, 1, 2, 255), -6);  // one pixel wide
  EXPECT_EQ(YUY2ToRGBA(src, 4, dst.data(), 8, 2, 0, 255), -6);
  EXPECT_EQ(YUY2ToBGRA(src, 4, dst.data(), 8, -2, 1, 255), -6);
  EXPECT_EQ(YUY2ToBGRA(nullptr, 4, dst.data(), 8, 2, 1, 255), -8);
  EXPECT_EQ(YUY2ToRGBA(src, 4, nullptr, 8, 2, 1, 255), -8);
  EXPECT_EQ(YUY2ToBGRA(nullptr, 4, dst.data(), 8, 1, 1, 255), -8) << "null is checked first";
  GuardedPlane untouched(8, 2);
  EXPECT_TRUE(dst.SamePayload(untouched));
  EXPECT_TRUE(dst.Intact());
}

TEST(NV12ToYUY2, CopiesPairsAndReusesChromaRows) {
  const int width = 5, height = 5;
  GuardedPlane luma(width, height, 3), chroma(width, height / 2, 2), dst(2 * width, height, 2);
  for (int r = 0; r < height; ++r)
    for (int x = 0; x < width; ++x) luma.at(r, x) = static_cast<uint8_t>(10 * r + x);
  for (int j = 0; j < height / 2; ++j)
    for (int b = 0; b < width; ++b) chroma.at(j, b) = static_cast<uint8_t>(100 + 10 * j + b);
  ASSERT_EQ(NV12ToYUY2(luma.data(), luma.pitch(), chroma.data(), chroma.pitch(), dst.data(), dst.pitch(), width,
                       height),
            0);
  for (int r = 0; r < height; ++r) {
    const int j = r / 2 < height / 2 ? r / 2 : height / 2 - 1;  // the odd last row has no chroma row of its own
    for (int i = 0; i < width / 2; ++i) {
      EXPECT_EQ(dst.at(r, 4 * i + 0), luma.at(r, 2 * i));
      EXPECT_EQ(dst.at(r, 4 * i + 1), chroma.at(j, 2 * i));
      EXPECT_EQ(dst.at(r, 4 * i + 2), luma.at(r, 2 * i + 1));
      EXPECT_EQ(dst.at(r, 4 * i + 3), chroma.at(j, 2 * i + 1));
    }
    EXPECT_EQ(dst.at(r, 8), 0xA5) << "odd last column left as it was";
    EXPECT_EQ(dst.at(r, 9), 0xA5);
  }
  EXPECT_TRUE(dst.Intact());
  // Height below 1 succeeds without writing.
  EXPECT_EQ(NV12ToYUY2(luma.data(), luma.pitch(), chroma.data(), chroma.pitch(), nullptr, 0, width, 0), 0);
}

TEST(YUY2ToNV12, AveragesChromaOfRowPairsWithRounding) {
  const int width = 3, height = 3;
  GuardedPlane src(2 * width, height), luma(width, height, 1), chroma(width, height / 2, 1);
  const uint8_t rows[3][6] = {{1, 10, 2, 20, 3, 30}, {4, 11, 5, 21, 6, 33}, {7, 90, 8, 90, 9, 90}};
  for (int r = 0; r < height; ++r)
    for (int b = 0; b < 6; ++b) src.at(r, b) = rows[r][b];
  ASSERT_EQ(YUY2ToNV12(src.data(), src.pitch(), luma.data(), luma.pitch(), chroma.data(), chroma.pitch(), width,
                       height),
            0);
  for (int r = 0; r < height; ++r)
    for (int x = 0; x < width; ++x) EXPECT_EQ(luma.at(r, x), rows[r][2 * x]);
  EXPECT_EQ(chroma.at(0, 0), 11);  // (10 + 11 + 1) / 2
  EXPECT_EQ(chroma.at(0, 1), 21);
  EXPECT_EQ(chroma.at(0, 2), 32);  // the lone pixel's U: (30 + 33 + 1) / 2
  EXPECT_TRUE(luma.Intact());
  EXPECT_TRUE(chroma.Intact()) << "the odd last row has no chroma row";
}

// Random in-gamut YUY2 (every decoded channel strictly inside 0..255).
GuardedPlane InGamutYUY2(int width, int height, std::mt19937& rng) {
  GuardedPlane src(2 * width, height);
  std::uniform_int_distribution<int> luma(16, 235), chroma(16, 240);
  for (int r = 0; r < height; ++r) {
    for (int i = 0; i < width / 2; ++i) {
      uint8_t* p = src.row(r) + 4 * i;
      for (;;) {
        p[0] = static_cast<uint8_t>(luma(rng));
        p[1] = static_cast<uint8_t>(chroma(rng));
        p[2] = static_cast<uint8_t>(luma(rng));
        p[3] = static_cast<uint8_t>(chroma(rng));
        uint8_t out[8];
        YUY2ToBGRA(p, 4, out, 8, 2, 1, 255);
        bool inside = true;
        for (int c : {0, 1, 2, 4, 5, 6}) inside = inside && out[c] > 0 && out[c] < 255;
        if (inside) break;
      }
    }
  }
  return src;
}

TEST(ColourToYUY2, RoundTripAndChannelOrdersAgree) {
  std::mt19937 rng(7);
  const int width = 64, height = 5;
  GuardedPlane yuy2 = InGamutYUY2(width, height, rng);
  GuardedPlane bgra(4 * width, height, 4), rgba(4 * width, height), bgr(3 * width, height), rgb(3 * width, height);
  GuardedPlane back(2 * width, height, 6), other(2 * width, height);
  ASSERT_EQ(YUY2ToBGRA(yuy2.data(), yuy2.pitch(), bgra.data(), bgra.pitch(), width, height, 255), 0);
  ASSERT_EQ(BGRAToYUY2(bgra.data(), bgra.pitch(), back.data(), back.pitch(), width, height), 0);
  int worst = 0;
  for (int r = 0; r < height; ++r)
    for (int b = 0; b < 2 * width; ++b) worst = std::max(worst, std::abs(yuy2.at(r, b) - back.at(r, b)));
  EXPECT_LE(worst, 2);
  EXPECT_TRUE(back.Intact());

  // The same colours in the other orders encode to the same bytes.
  ASSERT_EQ(BGRAToRGBA(bgra.data(), bgra.pitch(), rgba.data(), rgba.pitch(), width, height), 0);
  ASSERT_EQ(BGRAToBGR(bgra.data(), bgra.pitch(), bgr.data(), bgr.pitch(), width, height), 0);
  ASSERT_EQ(BGRAToRGB(bgra.data(), bgra.pitch(), rgb.data(), rgb.pitch(), width, height), 0);
  ASSERT_EQ(RGBAToYUY2(rgba.data(), rgba.pitch(), other.data(), other.pitch(), width, height), 0);
  EXPECT_TRUE(back.SamePayload(other));
  ASSERT_EQ(BGRToYUY2(bgr.data(), bgr.pitch(), other.data(), other.pitch(), width, height), 0);
  EXPECT_TRUE(back.SamePayload(other));
  ASSERT_EQ(RGBToYUY2(rgb.data(), rgb.pitch(), other.data(), other.pitch(), width, height), 0);
  EXPECT_TRUE(back.SamePayload(other));

  // Three-channel decode matches the four-channel one without alpha.
  GuardedPlane bgr_direct(3 * width, height);
  ASSERT_EQ(YUY2ToBGR(yuy2.data(), yuy2.pitch(), bgr_direct.data(), bgr_direct.pitch(), width, height), 0);
  EXPECT_TRUE(bgr_direct.SamePayload(bgr));

  // BGR -> YUY2 -> BGR for colours whose pixel pairs share chroma (as decoded
  // images do): within 3 levels per channel (2 measured on these colours).
  ASSERT_EQ(BGRToYUY2(bgr.data(), bgr.pitch(), other.data(), other.pitch(), width, height), 0);
  ASSERT_EQ(YUY2ToBGR(other.data(), other.pitch(), bgr_direct.data(), bgr_direct.pitch(), width, height), 0);
  worst = 0;
  for (int r = 0; r < height; ++r)
    for (int b = 0; b < 3 * width; ++b) worst = std::max(worst, std::abs(bgr.at(r, b) - bgr_direct.at(r, b)));
  EXPECT_LE(worst, 3);
}

TEST(YUY2ToFourChannel, NegativePitchFlipsRows) {
  std::mt19937 rng(3);
  const int width = 7, height = 4;
  GuardedPlane src(2 * width, height, 2), upright(4 * width, height), flipped(4 * width, height, 8);
  src.Randomize(rng);
  ASSERT_EQ(YUY2ToBGRA(src.data(), src.pitch(), upright.data(), upright.pitch(), width, height, 255), 0);
  ASSERT_EQ(YUY2ToBGRA(src.data(), src.pitch(), flipped.last_row(), -flipped.pitch(), width, height, 255), 0);
  for (int r = 0; r < height; ++r)
    for (int b = 0; b < 4 * width; ++b) ASSERT_EQ(flipped.at(height - 1 - r, b), upright.at(r, b));
  EXPECT_TRUE(flipped.Intact());
}

// The scalar kernels are the reference: with every feature masked off the
// result must equal the dispatched one bit for bit (odd width, padded pitch).
TEST(YUY2ToFourChannel, ScalarMaskMatchesDispatch) {
  std::mt19937 rng(13);
  const int width = 33, height = 3;
  GuardedPlane src(2 * width, height, 5), fast(4 * width, height, 1), scalar(4 * width, height, 3, 0x5A);
  src.Randomize(rng);
  const uint32_t features = CpuFeatures();
  ASSERT_EQ(YUY2ToRGBA(src.data(), src.pitch(), fast.data(), fast.pitch(), width, height, 255), 0);
  {
    ScopedCpuFeatureMask scalar_only(0);
    EXPECT_EQ(CpuFeatures(), 0u);
    ASSERT_EQ(YUY2ToRGBA(src.data(), src.pitch(), scalar.data(), scalar.pitch(), width, height, 255), 0);
  }
  EXPECT_EQ(CpuFeatures(), features);
  EXPECT_TRUE(scalar.SamePayload(fast));
  EXPECT_TRUE(scalar.Intact() && fast.Intact());
}

}  // namespace
