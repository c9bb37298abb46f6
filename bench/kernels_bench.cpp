// Pixel kernels: each conversion at 640x480 and 1920x1080 with the scalar rows,
// SSSE3, AVX2 and AVX-512 forced in turn (ScopedCpuFeatureMask), beside the anchor
// library's equivalent conversion and beside memcpy of the larger of the two
// planes (the bytes the conversion must at least move). Names are
// Conversion/WIDTHxHEIGHT/Variant; run_kernels.sh turns one run into ratios.
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cpu/cpu_features.h"
#include "kernels/band_pool.h"
#include "kernels/pixel_kernels.h"

namespace {

namespace k = lmx;

struct Frame {
  int width, height;
  std::vector<uint8_t> src, dst, dst2;
  uint8_t* s() { return src.data(); }
  uint8_t* d() { return dst.data(); }
  uint8_t* d2() { return dst2.data(); }
};

// A conversion: source and destination bytes per pixel, and the call. Every
// plane is tightly packed (pitch = width * bytes per pixel).
struct Conversion {
  const char* name;
  int src_bpp, dst_bpp;
  std::function<void(Frame&)> ours;
  std::function<void(Frame&)> anchor;  // empty when the anchor has no equivalent
};

std::vector<Conversion> Conversions() {
  using F = Frame;
  return {
      {"YUY2ToBGRA", 2, 4, [](F& f) { k::YUY2ToBGRA(f.s(), 2 * f.width, f.d(), 4 * f.width, f.width, f.height, 255); },
       [](F& f) { libyuv::YUY2ToARGB(f.s(), 2 * f.width, f.d(), 4 * f.width, f.width, f.height); }},
      {"YUY2ToRGBA", 2, 4, [](F& f) { k::YUY2ToRGBA(f.s(), 2 * f.width, f.d(), 4 * f.width, f.width, f.height, 255); },
       [](F& f) { libyuv::YUY2ToARGB(f.s(), 2 * f.width, f.d(), 4 * f.width, f.width, f.height); }},
      // The anchor has no packed 4:2:2 to three-channel conversion; its planar
      // 4:2:2 one reads the same bytes and writes the same colour.
      {"YUY2ToBGR", 2, 3, [](F& f) { k::YUY2ToBGR(f.s(), 2 * f.width, f.d(), 3 * f.width, f.width, f.height); },
       [](F& f) {
         const size_t luma = static_cast<size_t>(f.width) * f.height;
         libyuv::I422ToRGB24(f.s(), f.width, f.s() + luma, f.width / 2, f.s() + luma + luma / 2, f.width / 2, f.d(),
                             3 * f.width, f.width, f.height);
       }},
      {"BGRAToYUY2", 4, 2, [](F& f) { k::BGRAToYUY2(f.s(), 4 * f.width, f.d(), 2 * f.width, f.width, f.height); },
       [](F& f) { libyuv::ARGBToYUY2(f.s(), 4 * f.width, f.d(), 2 * f.width, f.width, f.height); }},
      {"BGRToYUY2", 3, 2, [](F& f) { k::BGRToYUY2(f.s(), 3 * f.width, f.d(), 2 * f.width, f.width, f.height); }, {}},
      {"YUY2ToNV12", 2, 1,
       [](F& f) { k::YUY2ToNV12(f.s(), 2 * f.width, f.d(), f.width, f.d2(), f.width, f.width, f.height); },
       [](F& f) { libyuv::YUY2ToNV12(f.s(), 2 * f.width, f.d(), f.width, f.d2(), f.width, f.width, f.height); }},
      {"NV12ToYUY2",
       1,
       2,
       [](F& f) { k::NV12ToYUY2(f.s(), f.width, f.d2(), f.width, f.d(), 2 * f.width, f.width, f.height); },
       {}},
      {"YUY2ToY8", 2, 1, [](F& f) { k::YUY2ToY8(f.s(), 2 * f.width, f.d(), f.width, f.width, f.height); },
       [](F& f) { libyuv::YUY2ToY(f.s(), 2 * f.width, f.d(), f.width, f.width, f.height); }},
      {"BGRAToRGBA", 4, 4, [](F& f) { k::BGRAToRGBA(f.s(), 4 * f.width, f.d(), 4 * f.width, f.width, f.height); },
       [](F& f) { libyuv::ARGBToABGR(f.s(), 4 * f.width, f.d(), 4 * f.width, f.width, f.height); }},
      {"BGRToRGB", 3, 3, [](F& f) { k::BGRToRGB(f.s(), 3 * f.width, f.d(), 3 * f.width, f.width, f.height); },
       [](F& f) { libyuv::RAWToRGB24(f.s(), 3 * f.width, f.d(), 3 * f.width, f.width, f.height); }},
      {"BGRAToBGR", 4, 3, [](F& f) { k::BGRAToBGR(f.s(), 4 * f.width, f.d(), 3 * f.width, f.width, f.height); },
       [](F& f) { libyuv::ARGBToRGB24(f.s(), 4 * f.width, f.d(), 3 * f.width, f.width, f.height); }},
      {"BGRToBGRA", 3, 4, [](F& f) { k::BGRToBGRA(f.s(), 3 * f.width, f.d(), 4 * f.width, f.width, f.height); },
       [](F& f) { libyuv::RGB24ToARGB(f.s(), 3 * f.width, f.d(), 4 * f.width, f.width, f.height); }},
      {"BGRAToY8", 4, 1, [](F& f) { k::BGRAToY8(f.s(), 4 * f.width, f.d(), f.width, f.width, f.height); },
       [](F& f) { libyuv::ARGBToJ400(f.s(), 4 * f.width, f.d(), f.width, f.width, f.height); }},
      {"BGRToY8", 3, 1, [](F& f) { k::BGRToY8(f.s(), 3 * f.width, f.d(), f.width, f.width, f.height); },
       [](F& f) { libyuv::RGB24ToJ400(f.s(), 3 * f.width, f.d(), f.width, f.width, f.height); }},
      {"Y8ToY16", 1, 2, [](F& f) { k::Y8ToY16(f.s(), f.width, f.d(), 2 * f.width, f.width, f.height); },
       [](F& f) {
         libyuv::Convert8To16Plane(f.s(), f.width, reinterpret_cast<uint16_t*>(f.d()), f.width, 256, f.width, f.height);
       }},
      {"Y16ToY8", 2, 1, [](F& f) { k::Y16ToY8(f.s(), 2 * f.width, f.d(), f.width, f.width, f.height); },
       [](F& f) {
         libyuv::Convert16To8Plane(reinterpret_cast<const uint16_t*>(f.s()), f.width, f.d(), f.width, 256, f.width,
                                   f.height);
       }},
      {"Y16ToBGRA", 2, 4, [](F& f) { k::Y16ToBGRA(f.s(), 2 * f.width, f.d(), 4 * f.width, f.width, f.height); }, {}},
      {"DepthShift",
       2,
       2,
       [](F& f) { k::DepthShift(f.s(), 2 * f.width, f.d(), 2 * f.width, f.width, f.height, 3); },
       {}},
      {"DepthToFloat",
       2,
       4,
       [](F& f) { k::DepthToFloat(f.s(), 2 * f.width, f.d(), 4 * f.width, f.width, f.height, 0.125f); },
       {}},
      {"FloatToDepth",
       4,
       2,
       [](F& f) { k::FloatToDepth(f.s(), 4 * f.width, f.d(), 2 * f.width, f.width, f.height, 8.0f); },
       {}},
      {"Mirror1", 1, 1,
       [](F& f) { k::MirrorPlane(f.s(), f.width, f.d(), f.width, f.width, f.height, 1, k::kMirrorLeftRight); },
       [](F& f) { libyuv::MirrorPlane(f.s(), f.width, f.d(), f.width, f.width, f.height); }},
      {"Mirror4", 4, 4,
       [](F& f) { k::MirrorPlane(f.s(), 4 * f.width, f.d(), 4 * f.width, f.width, f.height, 4, k::kMirrorLeftRight); },
       [](F& f) { libyuv::ARGBMirror(f.s(), 4 * f.width, f.d(), 4 * f.width, f.width, f.height); }},
      {"Mirror2", 2, 2,
       [](F& f) { k::MirrorPlane(f.s(), 2 * f.width, f.d(), 2 * f.width, f.width, f.height, 2, k::kMirrorLeftRight); },
       [](F& f) { libyuv::MirrorUVPlane(f.s(), 2 * f.width, f.d(), 2 * f.width, f.width, f.height); }},
      {"Mirror3", 3, 3,
       [](F& f) { k::MirrorPlane(f.s(), 3 * f.width, f.d(), 3 * f.width, f.width, f.height, 3, k::kMirrorLeftRight); },
       [](F& f) { libyuv::RGB24Mirror(f.s(), 3 * f.width, f.d(), 3 * f.width, f.width, f.height); }},
      {"Mirror8",
       8,
       8,
       [](F& f) { k::MirrorPlane(f.s(), 8 * f.width, f.d(), 8 * f.width, f.width, f.height, 8, k::kMirrorLeftRight); },
       {}},
      {"MirrorYUY2",
       2,
       2,
       [](F& f) { k::MirrorYUY2Plane(f.s(), 2 * f.width, f.d(), 2 * f.width, f.width, f.height); },
       {}},
      {"Rotate90_1", 1, 1, [](F& f) { k::RotatePlane(f.s(), f.width, f.d(), f.height, f.width, f.height, 1, 90); },
       [](F& f) { libyuv::RotatePlane90(f.s(), f.width, f.d(), f.height, f.width, f.height); }},
      {"Rotate270_1", 1, 1, [](F& f) { k::RotatePlane(f.s(), f.width, f.d(), f.height, f.width, f.height, 1, 270); },
       [](F& f) { libyuv::RotatePlane270(f.s(), f.width, f.d(), f.height, f.width, f.height); }},
      {"Rotate90_2", 2, 2,
       [](F& f) { k::RotatePlane(f.s(), 2 * f.width, f.d(), 2 * f.height, f.width, f.height, 2, 90); },
       [](F& f) {
         libyuv::RotatePlane_16(reinterpret_cast<const uint16_t*>(f.s()), f.width, reinterpret_cast<uint16_t*>(f.d()),
                                f.height, f.width, f.height, libyuv::kRotate90);
       }},
      {"Rotate90_3",
       3,
       3,
       [](F& f) { k::RotatePlane(f.s(), 3 * f.width, f.d(), 3 * f.height, f.width, f.height, 3, 90); },
       {}},
      {"Rotate90_8",
       8,
       8,
       [](F& f) { k::RotatePlane(f.s(), 8 * f.width, f.d(), 8 * f.height, f.width, f.height, 8, 90); },
       {}},
      {"Rotate90_4", 4, 4,
       [](F& f) { k::RotatePlane(f.s(), 4 * f.width, f.d(), 4 * f.height, f.width, f.height, 4, 90); },
       [](F& f) { libyuv::ARGBRotate(f.s(), 4 * f.width, f.d(), 4 * f.height, f.width, f.height, libyuv::kRotate90); }},
      {"Rotate270_4", 4, 4,
       [](F& f) { k::RotatePlane(f.s(), 4 * f.width, f.d(), 4 * f.height, f.width, f.height, 4, 270); },
       [](F& f) {
         libyuv::ARGBRotate(f.s(), 4 * f.width, f.d(), 4 * f.height, f.width, f.height, libyuv::kRotate270);
       }},
      {"CopyPlane",
       4,
       4,
       [](F& f) { k::CopyPlane(f.s(), 4 * f.width, f.d(), 4 * f.width, 4 * f.width, f.height); },
       {}},
  };
}

Frame MakeFrame(const Conversion& c, int width, int height) {
  Frame f{width, height, {}, {}, {}};
  f.src.resize(static_cast<size_t>(width) * height * c.src_bpp);
  for (size_t i = 0; i < f.src.size(); ++i) f.src[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
  if (c.src_bpp == 4 && std::strcmp(c.name, "FloatToDepth") == 0) {
    float* px = reinterpret_cast<float*>(f.src.data());
    for (size_t i = 0; i < f.src.size() / 4; ++i) px[i] = static_cast<float>(i % 9000) * 0.37f;
  }
  f.dst.assign(static_cast<size_t>(width) * height * c.dst_bpp, 0);
  f.dst2.assign(static_cast<size_t>(width) * height, 0);  // second plane (chroma) where used
  return f;
}

void Run(benchmark::State& state, const std::function<void(Frame&)>& call, Frame frame, uint32_t features, bool mask) {
  // The anchor runs unmasked; ours with the variant forced.
  std::unique_ptr<k::ScopedCpuFeatureMask> scope;
  if (mask) scope = std::make_unique<k::ScopedCpuFeatureMask>(features);
  for (auto _ : state) {
    call(frame);
    benchmark::DoNotOptimize(frame.dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * frame.width * frame.height);
}

void RegisterAll() {
  struct Variant {
    const char* name;
    uint32_t features;
  };
  std::vector<Variant> variants = {{"C", 0}};
  if (k::DetectedCpuFeatures() & k::kCpuHasSSSE3) variants.push_back({"SSSE3", k::kCpuHasSSSE3});
  // Each SIMD column allows its set and the ones below it: the best this
  // library does up to that set.
  if (k::DetectedCpuFeatures() & k::kCpuHasAVX2) variants.push_back({"AVX2", k::kCpuHasAVX2 | k::kCpuHasSSSE3});
  if (k::DetectedCpuFeatures() & k::kCpuHasAVX512BW) {  // with its extensions (VNNI) where present
    variants.push_back({"AVX512", k::kCpuHasAVX512VNNI | k::kCpuHasAVX512BW | k::kCpuHasAVX2 | k::kCpuHasSSSE3});
  }
  const int sizes[][2] = {{640, 480}, {1920, 1080}};
  for (const Conversion& c : Conversions()) {
    for (const auto& size : sizes) {
      const std::string base = std::string(c.name) + "/" + std::to_string(size[0]) + "x" + std::to_string(size[1]);
      for (const Variant& v : variants) {
        benchmark::RegisterBenchmark((base + "/" + v.name).c_str(), [c, size, v](benchmark::State& st) {
          Run(st, c.ours, MakeFrame(c, size[0], size[1]), v.features, true);
        })->Unit(benchmark::kMicrosecond);
      }
      if (c.anchor) {
        benchmark::RegisterBenchmark((base + "/libyuv").c_str(), [c, size](benchmark::State& st) {
          Run(st, c.anchor, MakeFrame(c, size[0], size[1]), 0, false);
        })->Unit(benchmark::kMicrosecond);
      }
      benchmark::RegisterBenchmark((base + "/memcpy").c_str(), [c, size](benchmark::State& st) {
        const size_t bytes = static_cast<size_t>(size[0]) * size[1] * std::max(c.src_bpp, c.dst_bpp);
        Frame f{size[0], size[1], std::vector<uint8_t>(bytes, 1), std::vector<uint8_t>(bytes, 0), {}};
        Run(
            st, [bytes](Frame& g) { std::memcpy(g.d(), g.s(), bytes); }, std::move(f), 0, false);
      })->Unit(benchmark::kMicrosecond);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  lmx::SetConversionThreadLimit(1);  // the kernels on one thread (band_bench times the bands)
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
