// The plane drivers of pixel_kernels.h: known answers in every variant, every
// SIMD variant bit-exact to the scalar rows on odd sizes, unaligned rows and
// wide pitches, argument rules.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "cpu/cpu_features.h"
#include "kernels/pixel_kernels.h"
#include "support/planes.h"

namespace {

using namespace lmx;
using lmxtest::GuardedPlane;
using Bytes = std::vector<uint8_t>;

struct Variant {
  uint32_t feature;
  const char* name;
};

// The scalar rows (mask 0) first, then every SIMD set this processor has.
std::vector<Variant> Variants(bool with_scalar) {
  std::vector<Variant> out;
  if (with_scalar) out.push_back({0, "C"});
  for (Variant v : {Variant{kCpuHasSSSE3, "SSSE3"}, Variant{kCpuHasAVX2, "AVX2"}, Variant{kCpuHasAVX512BW, "AVX512"},
                    Variant{kCpuHasAVX512VNNI, "AVX512VNNI"}})
    if (DetectedCpuFeatures() & v.feature) out.push_back(v);
  return out;
}

template <class T>
Bytes AsBytes(std::initializer_list<T> values) {
  Bytes out(values.size() * sizeof(T));
  std::memcpy(out.data(), std::data(values), out.size());
  return out;
}

// Known answers: one small conversion per row, checked in every variant.

struct Known {
  const char* name;
  std::function<Bytes()> run;
  Bytes expected;
};
void PrintTo(const Known& k, std::ostream* os) { *os << k.name; }

// A conversion of `in` into `bytes` fresh bytes (0xEE) that must succeed.
template <class Fn>
std::function<Bytes()> Out(Bytes in, int bytes, Fn call) {
  return [=] {
    Bytes out(static_cast<size_t>(bytes), 0xEE);
    EXPECT_EQ(call(in.data(), out.data()), 0);
    return out;
  };
}
// One row of `width` pixels in, one out.
template <class Fn>
std::function<Bytes()> Row(Bytes in, int width, int dst_bytes, Fn call) {
  const auto src_bytes = static_cast<int32_t>(in.size());
  return Out(in, dst_bytes, [=](auto src, auto dst) { return call(src, src_bytes, dst, dst_bytes, width, 1); });
}

// clang-format off
const Known kKnown[] = {
    // Studio-range decode: black, white, saturated red (254), blue; alpha taken as given.
    {"YUY2ToBGRA", Row({16, 128, 16, 128, 235, 128, 235, 128, 81, 90, 81, 240, 41, 240, 41, 110}, 8, 32,
                       [](auto... a) { return YUY2ToBGRA(a..., 77); }),
     {0, 0, 0, 77, 0, 0, 0, 77, 255, 255, 255, 77, 255, 255, 255, 77, 0, 0, 254, 77, 0, 0, 254, 77, 255, 0, 0, 77,
      255, 0, 0, 77}},
    {"YUY2ToRGB", Row({81, 90, 81, 240}, 2, 6, YUY2ToRGB), {254, 0, 0, 254, 0, 0}},
    // Odd width: the lone last pixel (Y 180, U 60) takes the preceding pair's V (240).
    {"YUY2ToBGROddWidth", Row({16, 128, 16, 240, 180, 60}, 3, 9, YUY2ToBGR), {0, 0, 179, 0, 0, 179, 54, 126, 255}},
    {"YUY2ToY8", Row({1, 2, 3, 4, 5, 6}, 3, 3, YUY2ToY8), {1, 3, 5}},
    // Encode: pure red; chroma of a pair is the rounded mean of both pixels.
    {"BGRToYUY2", Row({0, 0, 255, 0, 0, 255}, 2, 4, BGRToYUY2), {82, 90, 82, 240}},
    {"RGBAToYUY2OddWidth", Row({255, 0, 0, 9, 255, 255, 255, 9, 0, 0, 255, 9}, 3, 6, RGBAToYUY2),
     {82, 109, 235, 184, 41, 240}},
    {"BGRAToRGBA", Row({1, 2, 3, 4}, 1, 4, BGRAToRGBA), {3, 2, 1, 4}},
    {"BGRAToRGB", Row({1, 2, 3, 4}, 1, 3, BGRAToRGB), {3, 2, 1}},
    {"BGRToRGBA", Row({1, 2, 3}, 1, 4, BGRToRGBA), {3, 2, 1, 255}},
    // Grey weights 0.114 B, 0.587 G, 0.299 R in each channel order.
    {"BGRToY8", Row({255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255}, 4, 4, BGRToY8), {29, 150, 76, 255}},
    {"RGBToY8", Row({255, 0, 0, 0, 255, 0, 0, 0, 255}, 3, 3, RGBToY8), {76, 150, 29}},
    {"RGBAToY8", Row({255, 0, 0, 1, 0, 0, 255, 2}, 2, 2, RGBAToY8), {76, 29}},
    {"Y8ToY16", Row({0, 1, 255}, 3, 6, Y8ToY16), AsBytes<uint16_t>({0, 257, 65535})},
    {"Y16ToBGRA", Row(AsBytes<uint16_t>({0x12FF, 0xFF00}), 2, 8, Y16ToBGRA), {0x12, 0x12, 0x12, 255, 255, 255, 255, 255}},
    {"DepthShiftUp", Row(AsBytes<uint16_t>({0, 1, 1000, 20000}), 4, 8, [](auto... a) { return DepthShift(a..., 3); }),
     AsBytes<uint16_t>({0, 8, 8000, 65535})},
    {"DepthShiftDown", Row(AsBytes<uint16_t>({7, 8, 65535}), 3, 6, [](auto... a) { return DepthShift(a..., -3); }),
     AsBytes<uint16_t>({0, 1, 8191})},
    {"DepthShiftFar", Row(AsBytes<uint16_t>({0, 1}), 2, 4, [](auto... a) { return DepthShift(a..., 40); }),
     AsBytes<uint16_t>({0, 65535})},
    {"DepthToFloat", Row(AsBytes<uint16_t>({1000}), 1, 4, [](auto... a) { return DepthToFloat(a..., 0.125f); }),
     AsBytes<float>({125.0f})},
    // Rounded to nearest, negatives and NaN to 0, saturated at 65535.
    {"FloatToDepth",
     Row(AsBytes<float>({-3.0f, 0.49f, 0.5f, 1234.6f, 70000.0f, std::numeric_limits<float>::quiet_NaN()}), 6, 12,
         [](auto... a) { return FloatToDepth(a..., 1.0f); }),
     AsBytes<uint16_t>({0, 0, 1, 1235, 65535, 0})},
    {"MirrorLeftRight2", Row({1, 2, 3, 4, 5, 6}, 3, 6, [](auto... a) { return MirrorPlane(a..., 2, kMirrorLeftRight); }),
     {5, 6, 3, 4, 1, 2}},
    // YUY2 mirror keeps pairs valid; an odd width's lone pixel borrows the V before it.
    {"MirrorYUY2", Row({1, 10, 2, 20, 3, 30, 4, 40, 5, 50}, 5, 10, MirrorYUY2Plane),
     {5, 50, 4, 40, 3, 30, 2, 40, 1, 10}},
    {"ReorderChannels4", Row({1, 2, 3, 4, 5, 6, 7, 8}, 2, 8, [](auto... a) { return ReorderChannels(a..., 4); }),
     {3, 2, 1, 4, 7, 6, 5, 8}},
    // 3 x 2 "abc/def": a quarter turn is clockwise.
    {"Rotate90",
     Out({'a', 'b', 'c', 'd', 'e', 'f'}, 6, [](auto s, auto o) { return RotatePlane(s, 3, o, 2, 3, 2, 1, 90); }),
     {'d', 'a', 'e', 'b', 'f', 'c'}},
    // 3 x 3 YUY2 -> NV12: luma copied, chroma the rounded mean of a row pair; the odd
    // last row has luma only, also when it is the only row.
    {"YUY2ToNV12", Out({1, 10, 2, 20, 3, 30, 4, 11, 5, 21, 6, 33, 7, 90, 8, 90, 9, 90}, 12,
                       [](auto s, auto o) { return YUY2ToNV12(s, 6, o, 3, o + 9, 3, 3, 3); }),
     {1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 21, 32}},
    {"YUY2ToNV12OneRow",
     Out({1, 10, 3, 30}, 2, [](auto s, auto o) { return YUY2ToNV12(s, 4, o, 2, nullptr, 0, 2, 1); }), {1, 3}},
    // 3 x 3 NV12 -> YUY2 (luma, then chroma): the odd last row reuses the last chroma
    // row; the odd last column is left alone; a lone row gets neutral chroma.
    {"NV12ToYUY2", Out({1, 2, 3, 4, 5, 6, 7, 8, 9, 50, 60, 70}, 18,
                       [](auto s, auto o) { return NV12ToYUY2(s, 3, s + 9, 3, o, 6, 3, 3); }),
     {1, 50, 2, 60, 0xEE, 0xEE, 4, 50, 5, 60, 0xEE, 0xEE, 7, 50, 8, 60, 0xEE, 0xEE}},
    {"NV12ToYUY2OneRow", Out({1, 2}, 4, [](auto s, auto o) { return NV12ToYUY2(s, 2, nullptr, 0, o, 4, 2, 1); }),
     {1, 128, 2, 128}},
    {"Y8ToNV12", Out({1, 2, 3, 4}, 6, [](auto s, auto o) { return Y8ToNV12(s, 2, o, 2, o + 4, 2, 2, 2); }),
     {1, 2, 3, 4, 128, 128}},
};
// clang-format on

class KnownAnswer : public testing::TestWithParam<Known> {};

TEST_P(KnownAnswer, InEveryVariant) {
  for (const Variant& v : Variants(true)) {
    ScopedCpuFeatureMask mask(v.feature);
    EXPECT_EQ(GetParam().run(), GetParam().expected) << v.name;
  }
}

INSTANTIATE_TEST_SUITE_P(PixelKernels, KnownAnswer, testing::ValuesIn(kKnown),
                         [](const auto& info) { return std::string(info.param.name); });

// SIMD against scalar: random planes of odd sizes, unaligned rows, wide pitches.

struct Shape {
  int row_bytes, rows;
};
using Planes = std::vector<GuardedPlane>;

struct Case {
  std::string name;
  std::function<std::vector<Shape>(int w, int h)> sources, destinations;
  std::function<Status(Planes& s, Planes& d, int w, int h)> run;
};
// Printed by name: gtest's default prints the bytes of the case, padding included.
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

using Driver = Status (*)(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t);

template <class Fn>
Case OnePlane(std::string name, int src_bpp, int dst_bpp, Fn call) {
  return {std::move(name),
          [=](int w, int h) {
            return std::vector<Shape>{{w * src_bpp, h}};
          },
          [=](int w, int h) {
            return std::vector<Shape>{{w * dst_bpp, h}};
          },
          [=](Planes& s, Planes& d, int w, int h) {
            return call(s[0].data(), s[0].pitch(), d[0].data(), d[0].pitch(), w, h);
          }};
}

std::vector<Case> AllCases() {
  std::vector<Case> cases = {
      OnePlane("YUY2ToBGRA", 2, 4, [](auto... a) { return YUY2ToBGRA(a..., static_cast<uint8_t>(200)); }),
      OnePlane("YUY2ToRGBA", 2, 4, [](auto... a) { return YUY2ToRGBA(a..., static_cast<uint8_t>(255)); }),
  };
  const std::pair<const char*, Driver> plain[] = {
      {"YUY2ToBGR", YUY2ToBGR},   {"YUY2ToRGB", YUY2ToRGB},       {"YUY2ToY8", YUY2ToY8},   {"BGRAToYUY2", BGRAToYUY2},
      {"RGBAToYUY2", RGBAToYUY2}, {"BGRToYUY2", BGRToYUY2},       {"RGBToYUY2", RGBToYUY2}, {"BGRAToRGBA", BGRAToRGBA},
      {"BGRToRGB", BGRToRGB},     {"BGRAToBGR", BGRAToBGR},       {"BGRAToRGB", BGRAToRGB}, {"BGRToBGRA", BGRToBGRA},
      {"BGRToRGBA", BGRToRGBA},   {"BGRAToY8", BGRAToY8},         {"RGBAToY8", RGBAToY8},   {"BGRToY8", BGRToY8},
      {"RGBToY8", RGBToY8},       {"Y8ToBGR", Y8ToBGR},           {"Y8ToY16", Y8ToY16},     {"Y16ToY8", Y16ToY8},
      {"Y16ToBGRA", Y16ToBGRA},   {"MirrorYUY2", MirrorYUY2Plane}};
  auto bpp = [](const std::string& format) {
    return format == "YUY2" || format == "Y16" ? 2 : format == "Y8" ? 1 : format.size() == 4 ? 4 : 3;
  };
  for (const auto& [name, driver] : plain) {
    const std::string n = name;
    const size_t to = n.find("To");
    const int src = to == std::string::npos ? 2 : bpp(n.substr(0, to));
    const int dst = to == std::string::npos ? 2 : bpp(n.substr(to + 2));
    cases.push_back(OnePlane(n, src, dst, driver));
  }
  cases.push_back(OnePlane("CopyPlane", 3, 3, [](auto s, auto sp, auto d, auto dp, int w, int h) {
    return CopyPlane(s, sp, d, dp, 3 * w, h);
  }));
  for (int shift : {-40, -16, -15, -3, 0, 1, 5, 15, 16, 33})
    cases.push_back(OnePlane("DepthShift" + std::to_string(shift + 40), 2, 2,
                             [shift](auto... a) { return DepthShift(a..., shift); }));
  for (float scale : {1.0f, 0.1f, -3.5f})
    cases.push_back(OnePlane("DepthToFloat" + std::to_string(static_cast<int>(scale * 10 + 100)), 2, 4,
                             [scale](auto... a) { return DepthToFloat(a..., scale); }));
  // Random bytes as floats include NaNs, infinities, negatives and denormals.
  const float factors[] = {1.0f, 8.0f, 1e-30f, 1e30f};
  for (size_t i = 0; i < std::size(factors); ++i)
    cases.push_back(OnePlane("FloatToDepth" + std::to_string(i), 4, 2,
                             [factor = factors[i]](auto... a) { return FloatToDepth(a..., factor); }));
  for (int bpp_ : {1, 2, 3, 4, 8}) {
    const std::string b = std::to_string(bpp_);
    cases.push_back(OnePlane("MirrorLeftRight" + b, bpp_, bpp_,
                             [bpp_](auto... a) { return MirrorPlane(a..., bpp_, kMirrorLeftRight); }));
    cases.push_back(OnePlane("Rotate180_" + b, bpp_, bpp_, [bpp_](auto... a) { return RotatePlane(a..., bpp_, 180); }));
    // Quarter turns work on tiles of rows: taller planes give whole and partial tiles.
    for (int degrees : {90, 270}) {
      auto tall = [](int h) { return 7 * h + 11; };
      cases.push_back({"Rotate" + std::to_string(degrees) + "_" + b,
                       [=](int w, int h) {
                         return std::vector<Shape>{{w * bpp_, tall(h)}};
                       },
                       [=](int w, int h) {
                         return std::vector<Shape>{{tall(h) * bpp_, w}};
                       },
                       [=](Planes& s, Planes& d, int w, int h) {
                         return RotatePlane(s[0].data(), s[0].pitch(), d[0].data(), d[0].pitch(), w, tall(h), bpp_,
                                            degrees);
                       }});
    }
  }
  // Two-plane conversions; in place (the reorders allow it); a bottom-up destination.
  auto planes = [](std::vector<std::pair<int, int>> bpp_and_rows_divisor) {
    return [=](int w, int h) {
      std::vector<Shape> shapes;
      for (auto [bpp, divisor] : bpp_and_rows_divisor) shapes.push_back({w * bpp, h / divisor});
      return shapes;
    };
  };
  cases.push_back({"YUY2ToNV12", planes({{2, 1}}), planes({{1, 1}, {1, 2}}), [](Planes& s, Planes& d, int w, int h) {
                     return YUY2ToNV12(s[0].data(), s[0].pitch(), d[0].data(), d[0].pitch(), d[1].data(), d[1].pitch(),
                                       w, h);
                   }});
  cases.push_back({"NV12ToYUY2", planes({{1, 1}, {1, 2}}), planes({{2, 1}}), [](Planes& s, Planes& d, int w, int h) {
                     return NV12ToYUY2(s[0].data(), s[0].pitch(), s[1].data(), s[1].pitch(), d[0].data(), d[0].pitch(),
                                       w, h);
                   }});
  cases.push_back({"BGRAToRGBAInPlace", planes({{4, 1}}), planes({}), [](Planes& s, Planes&, int w, int h) {
                     return BGRAToRGBA(s[0].data(), s[0].pitch(), s[0].data(), s[0].pitch(), w, h);
                   }});
  cases.push_back({"YUY2ToBGRAFlipped", planes({{2, 1}}), planes({{4, 1}}), [](Planes& s, Planes& d, int w, int h) {
                     return YUY2ToBGRA(s[0].data(), s[0].pitch(), d[0].last_row(), -d[0].pitch(), w, h, 255);
                   }});
  return cases;
}

// The status, whether every guard held, and every plane's bytes, guards included.
struct Result {
  Status status;
  bool intact = true;
  std::vector<Bytes> bytes;
  bool operator==(const Result&) const = default;
};

// Fresh planes ending at the end of their allocation, rows starting unaligned.
Result RunWith(uint32_t features, const Case& c, int w, int h, int lead, int padding, uint32_t seed) {
  std::mt19937 rng(seed);
  Planes sources, destinations;
  for (Shape s : c.sources(w, h)) {
    sources.emplace_back(s.row_bytes, s.rows, padding, 0xC3, lead, 0);
    sources.back().Randomize(rng);
  }
  for (Shape s : c.destinations(w, h)) destinations.emplace_back(s.row_bytes, s.rows, padding + 2, 0xC3, lead + 1, 0);
  ScopedCpuFeatureMask mask(features);
  Result r{c.run(sources, destinations, w, h), true, {}};
  for (const Planes* planes : {&sources, &destinations})
    for (const GuardedPlane& p : *planes) r.intact = r.intact && p.Intact(), r.bytes.push_back(p.bytes());
  return r;
}

class SimdMatchesScalar : public testing::TestWithParam<Case> {};

TEST_P(SimdMatchesScalar, OnOddSizesUnalignedRowsAndWidePitches) {
  const std::vector<Variant> variants = Variants(false);
  if (variants.empty()) GTEST_SKIP() << "no SIMD instruction set on this processor";
  const Case& c = GetParam();
  uint32_t seed = 1;
  for (int w : {2, 3, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 47, 63, 64, 65, 97, 130}) {
    for (int h : {1, 2, 3, 5}) {
      const int lead = 1 + (w + h) % 7, padding = (3 * w + h) % 11;
      const Result scalar = RunWith(0, c, w, h, lead, padding, ++seed);
      ASSERT_TRUE(scalar.intact);
      for (const Variant& v : variants) {
        SCOPED_TRACE(std::string(v.name) + " " + std::to_string(w) + "x" + std::to_string(h));
        ASSERT_TRUE(RunWith(v.feature, c, w, h, lead, padding, seed) == scalar);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(PixelKernels, SimdMatchesScalar, testing::ValuesIn(AllCases()),
                         [](const auto& info) { return info.param.name; });

TEST(PixelKernels, BadArgumentsAreRefusedBeforeTouchingMemory) {
  const uint8_t src[8] = {16, 128, 16, 128, 16, 128, 16, 128};
  GuardedPlane dst(8, 2);
  const std::pair<Status, Status> cases[] = {
      {YUY2ToBGRA(src, 4, dst.data(), 8, 1, 2, 255), kKernelBadSize},  // one pixel wide
      {YUY2ToRGBA(src, 4, dst.data(), 8, 2, 0, 255), kKernelBadSize},
      {YUY2ToBGRA(nullptr, 4, dst.data(), 8, 1, 1, 255), kKernelNullPointer},  // null is checked first
      {YUY2ToRGBA(src, 4, nullptr, 8, 2, 1, 255), kKernelNullPointer},
      {YUY2ToBGR(src, 4, dst.data(), 8, 1, 1), Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED},
      {RotatePlane(src, 3, dst.data(), 2, 3, 2, 1, 45), Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED},
      {RotatePlane(src, 3, dst.data(), 2, 1, 2, 5, 90), Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED},
      {MirrorPlane(src, 9, dst.data(), 5, 1, 1, 5, kMirrorLeftRight), Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED},
      {MirrorPlane(src, 9, dst.data(), 9, 1, 1, 1, 3), Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED},
      {MirrorPlane(nullptr, 9, dst.data(), 9, 1, 1, 1, 1), Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID},
      {ReorderChannels(src, 8, dst.data(), 8, 2, 1, 2), Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED},
      {CopyPlane(src, 8, dst.data(), 8, std::numeric_limits<int32_t>::max(), 0),
       Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED},
  };
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << "case " << i;
  GuardedPlane untouched(8, 2);
  EXPECT_TRUE(dst.SamePayload(untouched) && dst.Intact());
}

}  // namespace
