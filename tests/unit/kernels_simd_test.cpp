// SIMD variants against the scalar rows, bit for bit, through the plane drivers:
// every variant this processor has is forced in turn with ScopedCpuFeatureMask
// and compared with the scalar result on random images of odd widths and
// heights, unaligned rows and pitches larger than a row. Each plane ends exactly
// at the end of its allocation (an overrun fails under AddressSanitizer) and
// everything outside its rows is a sentinel that must survive.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "cpu_features.h"
#include "kernels/pixel_kernels.h"

namespace {

using namespace lmx;
using Norvik::Lumetra::Status;

constexpr uint8_t kSentinel = 0xC3;

struct Shape {
  int row_bytes;
  int rows;
};

// A plane whose last row ends at the last byte of its allocation, `lead` bytes
// after the allocation's start (so rows start unaligned) and `padding` bytes
// between rows.
class EndPlane {
 public:
  EndPlane(Shape shape, int lead, int padding)
      : shape_(shape), lead_(lead), pitch_(shape.row_bytes + padding),
        bytes_(static_cast<size_t>(lead + (shape.rows > 0 ? pitch_ * (shape.rows - 1) + shape.row_bytes : 1)),
               kSentinel) {}

  uint8_t* data() { return bytes_.data() + lead_; }
  int pitch() const { return pitch_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

  void Randomize(std::mt19937& rng) {
    for (int r = 0; r < shape_.rows; ++r)
      for (int b = 0; b < shape_.row_bytes; ++b) data()[r * pitch_ + b] = static_cast<uint8_t>(rng());
  }

  // Lead and row padding still hold the sentinel.
  bool OutsideRowsIntact() const {
    for (size_t i = 0; i < bytes_.size(); ++i) {
      const long offset = static_cast<long>(i) - lead_;
      const bool payload = offset >= 0 && offset % pitch_ < shape_.row_bytes && offset / pitch_ < shape_.rows;
      if (!payload && bytes_[i] != kSentinel) return false;
    }
    return true;
  }

 private:
  Shape shape_;
  int lead_;
  int pitch_;
  std::vector<uint8_t> bytes_;
};

using Planes = std::vector<EndPlane>;

// One conversion: the shapes of its source and destination planes for a size,
// and the call of its plane driver.
struct Case {
  std::string name;
  std::function<std::vector<Shape>(int w, int h)> sources;
  std::function<std::vector<Shape>(int w, int h)> destinations;
  std::function<Status(Planes& s, Planes& d, int w, int h)> run;
};

using Driver = Status (*)(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t);

Case OnePlane(std::string name, int src_bpp, int dst_bpp, Driver driver) {
  return {std::move(name), [=](int w, int h) { return std::vector<Shape>{{w * src_bpp, h}}; },
          [=](int w, int h) { return std::vector<Shape>{{w * dst_bpp, h}}; },
          [=](Planes& s, Planes& d, int w, int h) {
            return driver(s[0].data(), s[0].pitch(), d[0].data(), d[0].pitch(), w, h);
          }};
}

template <typename Fn>
Case OnePlaneWith(std::string name, int src_bpp, int dst_bpp, Fn call) {
  return {std::move(name), [=](int w, int h) { return std::vector<Shape>{{w * src_bpp, h}}; },
          [=](int w, int h) { return std::vector<Shape>{{w * dst_bpp, h}}; },
          [=](Planes& s, Planes& d, int w, int h) {
            return call(s[0].data(), s[0].pitch(), d[0].data(), d[0].pitch(), w, h);
          }};
}

std::vector<Case> AllCases() {
  std::vector<Case> cases = {
      OnePlaneWith("YUY2ToBGRA", 2, 4,
                   [](auto... a) { return YUY2ToBGRA(a..., static_cast<uint8_t>(200)); }),
      OnePlaneWith("YUY2ToRGBA", 2, 4, [](auto... a) { return YUY2ToRGBA(a..., static_cast<uint8_t>(255)); }),
      OnePlane("YUY2ToBGR", 2, 3, YUY2ToBGR),
      OnePlane("YUY2ToRGB", 2, 3, YUY2ToRGB),
      OnePlane("YUY2ToY8", 2, 1, YUY2ToY8),
      OnePlane("BGRAToYUY2", 4, 2, BGRAToYUY2),
      OnePlane("RGBAToYUY2", 4, 2, RGBAToYUY2),
      OnePlane("BGRToYUY2", 3, 2, BGRToYUY2),
      OnePlane("RGBToYUY2", 3, 2, RGBToYUY2),
      OnePlane("BGRAToRGBA", 4, 4, BGRAToRGBA),
      OnePlane("BGRToRGB", 3, 3, BGRToRGB),
      OnePlane("BGRAToBGR", 4, 3, BGRAToBGR),
      OnePlane("BGRAToRGB", 4, 3, BGRAToRGB),
      OnePlane("BGRToBGRA", 3, 4, BGRToBGRA),
      OnePlane("BGRToRGBA", 3, 4, BGRToRGBA),
      OnePlane("BGRAToY8", 4, 1, BGRAToY8),
      OnePlane("RGBAToY8", 4, 1, RGBAToY8),
      OnePlane("BGRToY8", 3, 1, BGRToY8),
      OnePlane("RGBToY8", 3, 1, RGBToY8),
      OnePlane("Y8ToBGR", 1, 3, Y8ToBGR),
      OnePlane("Y8ToY16", 1, 2, Y8ToY16),
      OnePlane("Y16ToY8", 2, 1, Y16ToY8),
      OnePlane("Y16ToBGRA", 2, 4, Y16ToBGRA),
      OnePlaneWith("CopyPlane", 3, 3, [](auto s, auto sp, auto d, auto dp, int w, int h) {
        return CopyPlane(s, sp, d, dp, 3 * w, h);
      }),
  };
  for (int shift : {-40, -16, -15, -3, 0, 1, 5, 15, 16, 33}) {
    cases.push_back(OnePlaneWith("DepthShift" + std::to_string(shift), 2, 2,
                                 [shift](auto... a) { return DepthShift(a..., shift); }));
  }
  for (float scale : {1.0f, 0.125f, 0.1f, -3.5f}) {
    cases.push_back(OnePlaneWith("DepthToFloat" + std::to_string(scale), 2, 4,
                                 [scale](auto... a) { return DepthToFloat(a..., scale); }));
  }
  // Random bytes as floats include NaNs, infinities, negatives and denormals.
  for (float factor : {1.0f, 8.0f, 1e-30f, 1e30f}) {
    cases.push_back(OnePlaneWith("FloatToDepth" + std::to_string(factor), 4, 2,
                                 [factor](auto... a) { return FloatToDepth(a..., factor); }));
  }
  cases.push_back(OnePlane("MirrorYUY2", 2, 2, MirrorYUY2Plane));
  for (int bpp : {1, 2, 3, 4, 8}) {
    cases.push_back(OnePlaneWith("MirrorLeftRight" + std::to_string(bpp), bpp, bpp, [bpp](auto... a) {
      return MirrorPlane(a..., bpp, kMirrorLeftRight);
    }));
    cases.push_back(OnePlaneWith("Rotate180_" + std::to_string(bpp), bpp, bpp,
                                 [bpp](auto... a) { return RotatePlane(a..., bpp, 180); }));
    // Quarter turns work on tiles of rows: taller planes (18, 25, 32 and 46 rows)
    // give whole tiles, partial tiles at the bottom and both.
    for (int degrees : {90, 270}) {
      auto tall = [](int h) { return 7 * h + 11; };
      cases.push_back({"Rotate" + std::to_string(degrees) + "_" + std::to_string(bpp),
                       [=](int w, int h) { return std::vector<Shape>{{w * bpp, tall(h)}}; },
                       [=](int w, int h) { return std::vector<Shape>{{tall(h) * bpp, w}}; },
                       [=](Planes& s, Planes& d, int w, int h) {
                         return RotatePlane(s[0].data(), s[0].pitch(), d[0].data(), d[0].pitch(), w, tall(h), bpp,
                                            degrees);
                       }});
    }
  }
  cases.push_back({"YUY2ToNV12", [](int w, int h) { return std::vector<Shape>{{2 * w, h}}; },
                   [](int w, int h) { return std::vector<Shape>{{w, h}, {w, h / 2}}; },
                   [](Planes& s, Planes& d, int w, int h) {
                     return YUY2ToNV12(s[0].data(), s[0].pitch(), d[0].data(), d[0].pitch(), d[1].data(),
                                       d[1].pitch(), w, h);
                   }});
  cases.push_back({"NV12ToYUY2", [](int w, int h) { return std::vector<Shape>{{w, h}, {w, h / 2}}; },
                   [](int w, int h) { return std::vector<Shape>{{2 * w, h}}; },
                   [](Planes& s, Planes& d, int w, int h) {
                     return NV12ToYUY2(s[0].data(), s[0].pitch(), s[1].data(), s[1].pitch(), d[0].data(),
                                       d[0].pitch(), w, h);
                   }});
  // In place (the reorders allow it): the source plane is also the destination.
  cases.push_back({"BGRAToRGBAInPlace", [](int w, int h) { return std::vector<Shape>{{4 * w, h}}; },
                   [](int, int) { return std::vector<Shape>{}; },
                   [](Planes& s, Planes&, int w, int h) {
                     return BGRAToRGBA(s[0].data(), s[0].pitch(), s[0].data(), s[0].pitch(), w, h);
                   }});
  cases.push_back({"BGRToRGBInPlace", [](int w, int h) { return std::vector<Shape>{{3 * w, h}}; },
                   [](int, int) { return std::vector<Shape>{}; },
                   [](Planes& s, Planes&, int w, int h) {
                     return BGRToRGB(s[0].data(), s[0].pitch(), s[0].data(), s[0].pitch(), w, h);
                   }});
  // Bottom-up destination (negative pitch).
  cases.push_back({"YUY2ToBGRAFlipped", [](int w, int h) { return std::vector<Shape>{{2 * w, h}}; },
                   [](int w, int h) { return std::vector<Shape>{{4 * w, h}}; },
                   [](Planes& s, Planes& d, int w, int h) {
                     uint8_t* last = d[0].data() + static_cast<ptrdiff_t>(h - 1) * d[0].pitch();
                     return YUY2ToBGRA(s[0].data(), s[0].pitch(), last, -d[0].pitch(), w, h, 255);
                   }});
  return cases;
}

struct Variant {
  uint32_t feature;
  const char* name;
};

std::vector<Variant> AvailableVariants() {
  std::vector<Variant> out;
  for (Variant v : {Variant{kCpuHasSSSE3, "SSSE3"}, Variant{kCpuHasAVX2, "AVX2"}, Variant{kCpuHasAVX512BW, "AVX512"},
                    Variant{kCpuHasAVX512VNNI, "AVX512VNNI"}}) {
    if (DetectedCpuFeatures() & v.feature) out.push_back(v);
  }
  return out;
}

// Runs one case with the given features on fresh copies of the same random
// planes; returns sources and destinations afterwards.
struct Result {
  Status status;
  Planes sources, destinations;
};

Result RunWith(uint32_t features, const Case& c, int w, int h, int lead, int padding, uint32_t seed) {
  std::mt19937 rng(seed);
  Result r{};
  for (Shape s : c.sources(w, h)) {
    r.sources.emplace_back(s, lead, padding);
    r.sources.back().Randomize(rng);
  }
  for (Shape s : c.destinations(w, h)) r.destinations.emplace_back(s, lead + 1, padding + 2);
  ScopedCpuFeatureMask mask(features);
  r.status = c.run(r.sources, r.destinations, w, h);
  return r;
}

bool SameBytes(const Planes& a, const Planes& b) {
  for (size_t i = 0; i < a.size(); ++i)
    if (a[i].bytes() != b[i].bytes()) return false;
  return true;
}

bool AllIntact(const Planes& planes) {
  for (const EndPlane& p : planes)
    if (!p.OutsideRowsIntact()) return false;
  return true;
}

TEST(SimdKernels, MatchScalarOnOddSizesUnalignedRowsAndWidePitches) {
  const std::vector<Variant> variants = AvailableVariants();
  if (variants.empty()) GTEST_SKIP() << "no SIMD instruction set on this processor";
  const int widths[] = {2, 3, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 47, 63, 64, 65, 97, 130};
  const int heights[] = {1, 2, 3, 5};
  uint32_t seed = 1;
  for (const Case& c : AllCases()) {
    for (int w : widths) {
      for (int h : heights) {
        const int lead = 1 + (w + h) % 7, padding = (3 * w + h) % 11;
        ++seed;
        const Result scalar = RunWith(0, c, w, h, lead, padding, seed);
        ASSERT_TRUE(AllIntact(scalar.destinations) && AllIntact(scalar.sources)) << c.name;
        for (const Variant& v : variants) {
          const Result simd = RunWith(v.feature, c, w, h, lead, padding, seed);
          SCOPED_TRACE(c.name + " " + v.name + " " + std::to_string(w) + "x" + std::to_string(h));
          ASSERT_EQ(simd.status, scalar.status);
          ASSERT_TRUE(AllIntact(simd.destinations) && AllIntact(simd.sources));
          ASSERT_TRUE(SameBytes(simd.destinations, scalar.destinations));
          ASSERT_TRUE(SameBytes(simd.sources, scalar.sources));
        }
      }
    }
  }
}

// The YUY2 to four-channel kernels over every (Y, U, V) triple, in every variant
// including the scalar one, against the fixed-point formula evaluated here
// independently (64-bit arithmetic, floor division, explicit clamp). The input
// is a plane of pixel pairs (Y, U, Y, V): one row per (U, V), Y across it.
TEST(SimdKernels, YUY2ToFourChannelExactOverAllTriples) {
  std::vector<Variant> variants = AvailableVariants();
  variants.insert(variants.begin(), Variant{0, "C"});
  auto floor_shift = [](int64_t v) { return v >= 0 ? v / 65536 : -((-v + 65535) / 65536); };
  auto clamp = [](int64_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); };

  constexpr int kWidth = 512, kRowsPerChunk = 256;  // one chunk per U value
  std::vector<uint8_t> src(static_cast<size_t>(kRowsPerChunk) * kWidth * 2);
  std::vector<uint8_t> expected_bgra(static_cast<size_t>(kRowsPerChunk) * kWidth * 4);
  std::vector<uint8_t> expected_rgba(expected_bgra.size()), out(expected_bgra.size());
  for (int u_byte = 0; u_byte < 256; ++u_byte) {
    for (int v_byte = 0; v_byte < 256; ++v_byte) {
      for (int y = 0; y < 256; ++y) {
        const size_t pair = static_cast<size_t>(v_byte) * 256 + y;
        uint8_t* s = &src[4 * pair];
        s[0] = s[2] = static_cast<uint8_t>(y);
        s[1] = static_cast<uint8_t>(u_byte);
        s[3] = static_cast<uint8_t>(v_byte);
        const int64_t u = u_byte - 128, v = v_byte - 128;
        const int64_t luma = 76284 * int64_t{y} - 1187776;
        const uint8_t red = clamp(floor_shift(luma + 104595 * v));
        const uint8_t green = clamp(floor_shift(luma - (25690 * u + 53281 * v)));
        const uint8_t blue = clamp(floor_shift(luma + 132186 * u));
        for (int p = 0; p < 2; ++p) {
          uint8_t* b = &expected_bgra[8 * pair + 4 * p];
          uint8_t* r = &expected_rgba[8 * pair + 4 * p];
          b[0] = blue, b[1] = green, b[2] = red, b[3] = 255;
          r[0] = red, r[1] = green, r[2] = blue, r[3] = 255;
        }
      }
    }
    for (const Variant& variant : variants) {
      ScopedCpuFeatureMask mask(variant.feature);
      ASSERT_EQ(YUY2ToBGRA(src.data(), 2 * kWidth, out.data(), 4 * kWidth, kWidth, kRowsPerChunk, 255), 0);
      ASSERT_EQ(out, expected_bgra) << variant.name << " BGRA, U " << u_byte;
      ASSERT_EQ(YUY2ToRGBA(src.data(), 2 * kWidth, out.data(), 4 * kWidth, kWidth, kRowsPerChunk, 255), 0);
      ASSERT_EQ(out, expected_rgba) << variant.name << " RGBA, U " << u_byte;
    }
  }
}

// The four-channel grey kernels over every colour, in every SIMD variant,
// against the scalar rows: one 4096 x 4096 BGRA plane holds each 24-bit colour
// once (the fourth byte varies too and must be ignored), converted a band of
// rows at a time.
TEST(SimdKernels, FourChannelGreyMatchesScalarOverAllColours) {
  const std::vector<Variant> variants = AvailableVariants();
  if (variants.empty()) GTEST_SKIP() << "no SIMD instruction set on this processor";
  constexpr int kWidth = 4096, kRows = 256;
  std::vector<uint8_t> src(static_cast<size_t>(kWidth) * kRows * 4);
  std::vector<uint8_t> expected(static_cast<size_t>(kWidth) * kRows), out(expected.size());
  for (uint32_t band = 0; band < (1u << 24) / (kWidth * kRows); ++band) {
    for (uint32_t i = 0; i < kWidth * kRows; ++i) {
      const uint32_t colour = band * kWidth * kRows + i;
      std::memcpy(&src[4 * static_cast<size_t>(i)], &colour, 3);
      src[4 * static_cast<size_t>(i) + 3] = static_cast<uint8_t>(i * 37);
    }
    for (auto driver : {BGRAToY8, RGBAToY8}) {
      {
        ScopedCpuFeatureMask scalar(0);
        ASSERT_EQ(driver(src.data(), 4 * kWidth, expected.data(), kWidth, kWidth, kRows), 0);
      }
      for (const Variant& variant : variants) {
        ScopedCpuFeatureMask mask(variant.feature);
        ASSERT_EQ(driver(src.data(), 4 * kWidth, out.data(), kWidth, kWidth, kRows), 0);
        ASSERT_EQ(out, expected) << variant.name << ", band " << band;
      }
    }
  }
}

TEST(SimdKernels, DetectionIsStableAndMaskRestrictsIt) {
  const uint32_t detected = DetectedCpuFeatures();
  EXPECT_EQ(DetectedCpuFeatures(), detected);
  // Each set implies the ones below it.
  auto implies = [detected](uint32_t higher, uint32_t lower) { return !(detected & higher) || (detected & lower); };
  EXPECT_TRUE(implies(kCpuHasAVX512VNNI, kCpuHasAVX512BW));
  EXPECT_TRUE(implies(kCpuHasAVX512BW, kCpuHasAVX2));
  EXPECT_TRUE(implies(kCpuHasAVX2, kCpuHasSSE41));
  EXPECT_TRUE(implies(kCpuHasSSE41, kCpuHasSSSE3));
  EXPECT_TRUE(implies(kCpuHasSSSE3, kCpuHasSSE2));
  {
    ScopedCpuFeatureMask only_ssse3(kCpuHasSSSE3);
    EXPECT_EQ(CpuFeatures(), detected & kCpuHasSSSE3);
    {
      ScopedCpuFeatureMask none(0);
      EXPECT_EQ(CpuFeatures(), 0u);
    }
    EXPECT_EQ(CpuFeatures(), detected & kCpuHasSSSE3);
  }
  EXPECT_EQ(CpuFeatures(), detected);
}

}  // namespace
