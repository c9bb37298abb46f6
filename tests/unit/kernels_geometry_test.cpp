// Rotation, mirror and reorder kernels: inverse pairs give the input back for
// every pixel size, on odd sizes with padded and negative pitches, and nothing
// outside the rows is written.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kernels/pixel_kernels.h"
#include "kernels_test_planes.h"

namespace {

using namespace lmx;
using namespace Norvik::Lumetra;
using kerneltest::GuardedPlane;

constexpr int kPixelSizes[] = {1, 2, 3, 4, 8};

TEST(RotatePlane, QuarterTurnsComposeToIdentity) {
  std::mt19937 rng(11);
  const int width = 5, height = 3;
  for (int bpp : kPixelSizes) {
    SCOPED_TRACE(bpp);
    GuardedPlane src(width * bpp, height, 3), tall_a(height * bpp, width, 1), tall_b(height * bpp, width);
    GuardedPlane wide_a(width * bpp, height, 5), wide_b(width * bpp, height);
    src.Randomize(rng);
    // 90 four times.
    ASSERT_EQ(RotatePlane(src.data(), src.pitch(), tall_a.data(), tall_a.pitch(), width, height, bpp, 90), 0);
    ASSERT_EQ(RotatePlane(tall_a.data(), tall_a.pitch(), wide_a.data(), wide_a.pitch(), height, width, bpp, 90), 0);
    ASSERT_EQ(RotatePlane(wide_a.data(), wide_a.pitch(), tall_b.data(), tall_b.pitch(), width, height, bpp, 90), 0);
    ASSERT_EQ(RotatePlane(tall_b.data(), tall_b.pitch(), wide_b.data(), wide_b.pitch(), height, width, bpp, 90), 0);
    EXPECT_TRUE(wide_b.SamePayload(src));
    // 90 then 270, and 180 twice.
    ASSERT_EQ(RotatePlane(tall_a.data(), tall_a.pitch(), wide_b.data(), wide_b.pitch(), height, width, bpp, 270), 0);
    EXPECT_TRUE(wide_b.SamePayload(src));
    ASSERT_EQ(RotatePlane(src.data(), src.pitch(), wide_a.data(), wide_a.pitch(), width, height, bpp, 180), 0);
    ASSERT_EQ(RotatePlane(wide_a.data(), wide_a.pitch(), wide_b.data(), wide_b.pitch(), width, height, bpp, 180), 0);
    EXPECT_TRUE(wide_b.SamePayload(src));
    for (auto* plane : {&tall_a, &tall_b, &wide_a, &wide_b}) EXPECT_TRUE(plane->Intact());
  }
}

TEST(RotatePlane, QuarterTurnIsClockwise) {
  // 3 x 2:  a b c        90:  d a       270:  c f
  //         d e f             e b             b e
  //                           f c             a d
  const uint8_t src[6] = {'a', 'b', 'c', 'd', 'e', 'f'};
  uint8_t out[6];
  ASSERT_EQ(RotatePlane(src, 3, out, 2, 3, 2, 1, 90), 0);
  EXPECT_EQ(std::string(out, out + 6), "daebfc");
  ASSERT_EQ(RotatePlane(src, 3, out, 2, 3, 2, 1, 270), 0);
  EXPECT_EQ(std::string(out, out + 6), "cfbead");
  EXPECT_EQ(RotatePlane(src, 3, out, 2, 3, 2, 1, 45), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(RotatePlane(src, 3, out, 2, 1, 2, 5, 90), LMX_STATUS_PARAM_UNSUPPORTED);
}

TEST(MirrorPlane, TwiceIsIdentityAndNegativePitchFlips) {
  std::mt19937 rng(5);
  const int width = 7, height = 3;
  for (int bpp : kPixelSizes) {
    SCOPED_TRACE(bpp);
    GuardedPlane src(width * bpp, height, 1), once(width * bpp, height, 2), twice(width * bpp, height);
    src.Randomize(rng);
    ASSERT_EQ(MirrorPlane(src.data(), src.pitch(), once.data(), once.pitch(), width, height, bpp, kMirrorLeftRight), 0);
    for (int b = 0; b < bpp; ++b) EXPECT_EQ(once.at(0, b), src.at(0, (width - 1) * bpp + b));
    ASSERT_EQ(MirrorPlane(once.data(), once.pitch(), twice.data(), twice.pitch(), width, height, bpp, kMirrorLeftRight),
              0);
    EXPECT_TRUE(twice.SamePayload(src));
    EXPECT_TRUE(once.Intact());
  }
  // Top-bottom: the same as a copy onto a negative pitch.
  GuardedPlane src(9, 4, 3), flipped(9, 4), copied(9, 4, 1);
  src.Randomize(rng);
  ASSERT_EQ(MirrorPlane(src.data(), src.pitch(), flipped.data(), flipped.pitch(), 9, 4, 1, kMirrorTopBottom), 0);
  ASSERT_EQ(CopyPlane(src.data(), src.pitch(), copied.last_row(), -copied.pitch(), 9, 4), 0);
  EXPECT_TRUE(flipped.SamePayload(copied));
  EXPECT_TRUE(copied.Intact());
  uint8_t out[16];
  EXPECT_EQ(MirrorPlane(src.data(), 9, out, 5, 1, 1, 5, kMirrorLeftRight), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(MirrorPlane(src.data(), 9, out, 9, 1, 1, 1, 3), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(MirrorPlane(nullptr, 9, out, 9, 1, 1, 1, 1), LMX_STATUS_HANDLE_INVALID);
}

TEST(MirrorYUY2Plane, KeepsPairsValid) {
  // Even width: pairs trade places with their chroma, luma swaps inside a pair.
  const uint8_t even[8] = {1, 10, 2, 20, 3, 30, 4, 40};
  uint8_t out[10];
  ASSERT_EQ(MirrorYUY2Plane(even, 8, out, 8, 4, 1), 0);
  EXPECT_EQ((std::vector<uint8_t>(out, out + 8)), (std::vector<uint8_t>{4, 30, 3, 40, 2, 10, 1, 20}));
  uint8_t back[8];
  ASSERT_EQ(MirrorYUY2Plane(out, 8, back, 8, 4, 1), 0);
  EXPECT_EQ((std::vector<uint8_t>(back, back + 8)), (std::vector<uint8_t>(even, even + 8)));
  // Odd width: each destination pair takes the chroma of the source pair holding
  // its first pixel; the lone last pixel (Y 5, U 50) has no V and borrows 40.
  const uint8_t odd[10] = {1, 10, 2, 20, 3, 30, 4, 40, 5, 50};
  ASSERT_EQ(MirrorYUY2Plane(odd, 10, out, 10, 5, 1), 0);
  EXPECT_EQ((std::vector<uint8_t>(out, out + 10)), (std::vector<uint8_t>{5, 50, 4, 40, 3, 30, 2, 40, 1, 10}));
}

TEST(ReorderChannels, SwapsRedAndBlueInPlace) {
  uint8_t rgb[6] = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(ReorderChannels(rgb, 6, rgb, 6, 2, 1, 3), 0);
  EXPECT_EQ((std::vector<uint8_t>(rgb, rgb + 6)), (std::vector<uint8_t>{3, 2, 1, 6, 5, 4}));
  uint8_t rgba[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_EQ(ReorderChannels(rgba, 8, rgba, 8, 2, 1, 4), 0);
  EXPECT_EQ((std::vector<uint8_t>(rgba, rgba + 8)), (std::vector<uint8_t>{3, 2, 1, 4, 7, 6, 5, 8}));
  EXPECT_EQ(ReorderChannels(rgba, 8, rgba, 8, 2, 1, 2), LMX_STATUS_PARAM_UNSUPPORTED);
}

}  // namespace
