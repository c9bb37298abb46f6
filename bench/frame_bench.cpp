// The per-frame path of a camera host: each frame a new image is created, written
// in the camera's format, read in another and released. Every route runs four
// ways in one program, the whole path timed:
//   New        a new image per frame (plane blocks recycled by the library)
//   NewNoCache the same with the plane cache off (every block fresh from the system)
//   Reused     one image written and read again each frame
//   Anchor     libyuv: the frame copied into a reused buffer, converted into another
// NV12 -> BGRA and BGRA -> NV12 go through YUY2 inside the object.
// Mixed/RSS creates 10,000 new images of mixed sizes and routes and reports the
// resident set it leaves behind beside the cache's bound and the working set.
// run_frames.sh turns one run into a table.
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench_buffers.h"
#include "image/plane_cache.h"
#include "lmxallocator.h"
#include "module_factories.h"

using namespace Norvik::Lumetra;
using lmxbench::AlignedBuffer;
using lmxbench::Buffer;

namespace {

struct Size {
  int32_t width, height;
};
constexpr Size kSizes[] = {{640, 480}, {1920, 1080}, {3840, 2160}};

// Bytes of a tightly packed frame of a format: plane 0 rows, then NV12's chroma rows.
size_t RowBytes(int32_t format, int32_t width) {
  return static_cast<size_t>(width) * (format == Image::PIXEL_FORMAT_BGRA   ? 4
                                       : format == Image::PIXEL_FORMAT_YUY2 ? 2
                                                                            : 1);
}
size_t FrameBytes(int32_t format, Size s) {
  const size_t luma = RowBytes(format, s.width) * s.height;
  return format == Image::PIXEL_FORMAT_NV12 ? luma + luma / 2 : luma;
}

using AnchorFn = void (*)(const uint8_t* src, uint8_t* dst, int w, int h);

struct Route {
  const char* name;
  int32_t from, to;
  AnchorFn anchor;
};

const Route kRoutes[] = {
    {"YUY2ToBGRA", Image::PIXEL_FORMAT_YUY2, Image::PIXEL_FORMAT_BGRA,
     [](const uint8_t* s, uint8_t* d, int w, int h) { libyuv::YUY2ToARGB(s, 2 * w, d, 4 * w, w, h); }},
    {"NV12ToBGRA", Image::PIXEL_FORMAT_NV12, Image::PIXEL_FORMAT_BGRA,
     [](const uint8_t* s, uint8_t* d, int w, int h) { libyuv::NV12ToARGB(s, w, s + w * h, w, d, 4 * w, w, h); }},
    {"BGRAToYUY2", Image::PIXEL_FORMAT_BGRA, Image::PIXEL_FORMAT_YUY2,
     [](const uint8_t* s, uint8_t* d, int w, int h) { libyuv::ARGBToYUY2(s, 4 * w, d, 2 * w, w, h); }},
    {"BGRAToNV12", Image::PIXEL_FORMAT_BGRA, Image::PIXEL_FORMAT_NV12,
     [](const uint8_t* s, uint8_t* d, int w, int h) { libyuv::ARGBToNV12(s, 4 * w, d, w, d + w * h, w, w, h); }},
};

LMXAllocator* Allocator() {
  static LMXAllocator* allocator = [] {
    Base* object = nullptr;
    lmx::CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object);
    return static_cast<LMXAllocator*>(object);
  }();
  return allocator;
}

// Copies a packed frame into the image's planes (each with its own pitch).
bool Write(Image* image, int32_t format, Size s, const uint8_t* src) {
  Image::ImageData data{};
  if (image->AcquireAccess(Image::ACCESS_WRITE, static_cast<Image::PixelFormat>(format), 0, &data) < 0) return false;
  const size_t row = RowBytes(format, s.width);
  for (int32_t y = 0; y < s.height; ++y) std::memcpy(data.planes[0] + y * data.pitches[0], src + y * row, row);
  if (format == Image::PIXEL_FORMAT_NV12)
    for (int32_t y = 0; y < s.height / 2; ++y)
      std::memcpy(data.planes[1] + y * data.pitches[1], src + row * s.height + y * row, row);
  return image->ReleaseAccess(&data) >= 0;
}

bool Read(Image* image, int32_t format) {
  Image::ImageData data{};
  if (image->AcquireAccess(Image::ACCESS_READ, static_cast<Image::PixelFormat>(format), 0, &data) < 0) return false;
  benchmark::DoNotOptimize(data.planes[0]);
  return image->ReleaseAccess(&data) >= 0;
}

// One frame through a new image.
bool NewFrame(const Route& route, Size s, const uint8_t* src) {
  Image::ImageInfo info{s.width, s.height, route.from, 0};
  Image* image = nullptr;
  if (Allocator()->CreateImage(&info, 0, nullptr, &image) < 0) return false;
  const bool ok = Write(image, route.from, s, src) && Read(image, route.to);
  image->Release();
  return ok;
}

const std::vector<uint8_t>& Pattern() {
  static const std::vector<uint8_t> pattern = [] {
    std::vector<uint8_t> bytes(FrameBytes(Image::PIXEL_FORMAT_BGRA, kSizes[2]));
    lmxbench::FillPattern(bytes.data(), bytes.size());
    return bytes;
  }();
  return pattern;
}

void SetBytes(benchmark::State& state, const Route& route, Size s) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(FrameBytes(route.from, s) + FrameBytes(route.to, s)));
}

// Each way runs a few frames untimed first: a host's steady state, not the first
// touch of memory that another benchmark freed or never used.
constexpr int kWarmUpFrames = 3;

void New(benchmark::State& state, const Route& route, Size s, bool cached) {
  lmx::PlaneCache& cache = lmx::PlaneCache::Process();
  const int64_t setting = cache.Setting();
  cache.SetLimit(cached ? setting : 0);
  for (int frame = 0; frame < kWarmUpFrames; ++frame) NewFrame(route, s, Pattern().data());
  for (auto _ : state)
    if (!NewFrame(route, s, Pattern().data())) return state.SkipWithError("image refused");
  cache.SetLimit(setting);
  SetBytes(state, route, s);
}

void Reused(benchmark::State& state, const Route& route, Size s) {
  Image::ImageInfo info{s.width, s.height, route.from, 0};
  Image* image = nullptr;
  if (Allocator()->CreateImage(&info, 0, nullptr, &image) < 0) return state.SkipWithError("image refused");
  auto frame = [&] { return Write(image, route.from, s, Pattern().data()) && Read(image, route.to); };
  for (int i = 0; i < kWarmUpFrames; ++i) frame();
  for (auto _ : state)
    if (!frame()) return image->Release(), state.SkipWithError("access refused");
  image->Release();
  SetBytes(state, route, s);
}

void Anchor(benchmark::State& state, const Route& route, Size s) {
  const size_t bytes = FrameBytes(route.from, s);
  const Buffer src = AlignedBuffer(bytes);
  const Buffer dst = AlignedBuffer(FrameBytes(route.to, s));
  auto frame = [&] {
    std::memcpy(src.get(), Pattern().data(), bytes);
    route.anchor(src.get(), dst.get(), s.width, s.height);
  };
  for (int i = 0; i < kWarmUpFrames; ++i) frame();
  for (auto _ : state) {
    frame();
    benchmark::DoNotOptimize(dst.get());
    benchmark::ClobberMemory();
  }
  SetBytes(state, route, s);
}

size_t ResidentBytes() {
  long pages = 0, resident = 0;
  if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(statm);
  }
  return static_cast<size_t>(resident) * 4096;
}

// 10,000 frames cycling through sizes (640x480 to 4K, one odd) and the four routes.
void MixedRss(benchmark::State& state) {
  constexpr Size kMixed[] = {{640, 480}, {1280, 720}, {1920, 1080}, {3840, 2160}, {1279, 719}};
  lmx::PlaneCache& cache = lmx::PlaneCache::Process();
  for (auto _ : state) {
    cache.Purge();
    const size_t before = ResidentBytes();
    size_t workingSet = 0;
    for (int frame = 0; frame < 10000; ++frame) {
      const Size s = kMixed[frame % 5];
      const Route& route = kRoutes[(frame / 5) % 4];
      // The planes one frame holds at once: source, destination, YUY2 on the way.
      workingSet = std::max(
          workingSet, FrameBytes(route.from, s) + FrameBytes(route.to, s) + FrameBytes(Image::PIXEL_FORMAT_YUY2, s));
      if (!NewFrame(route, s, Pattern().data())) return state.SkipWithError("image refused");
    }
    const double mb = 1.0 / (1 << 20);
    state.counters["rss_growth_MB"] = static_cast<double>(ResidentBytes() - before) * mb;
    state.counters["cache_bound_MB"] = static_cast<double>(cache.Limit()) * mb;
    state.counters["cached_MB"] = static_cast<double>(cache.CachedBytes()) * mb;
    state.counters["working_set_MB"] = static_cast<double>(workingSet) * mb;
  }
}

const int kRegistered = [] {
  for (const Route& route : kRoutes) {
    for (const Size s : kSizes) {
      const std::string name =
          std::string(route.name) + "/" + std::to_string(s.width) + "x" + std::to_string(s.height) + "/";
      benchmark::RegisterBenchmark((name + "New").c_str(), New, route, s, true)->Unit(benchmark::kMicrosecond);
      benchmark::RegisterBenchmark((name + "NewNoCache").c_str(), New, route, s, false)->Unit(benchmark::kMicrosecond);
      benchmark::RegisterBenchmark((name + "Reused").c_str(), Reused, route, s)->Unit(benchmark::kMicrosecond);
      benchmark::RegisterBenchmark((name + "Anchor").c_str(), Anchor, route, s)->Unit(benchmark::kMicrosecond);
    }
  }
  benchmark::RegisterBenchmark("Mixed/RSS", MixedRss)->Iterations(1)->Unit(benchmark::kMillisecond);
  return 0;
}();

}  // namespace

BENCHMARK_MAIN();
