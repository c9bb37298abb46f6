// Large frames on every core: conversions through the image object as a host
// makes them (write format A, then AcquireAccess read of format B, timed), on
// one thread (SetConversionThreadLimit(1)) and on all the threads the library
// may use, into one image written again per frame and into a new image per
// frame, beside libyuv (one thread) on bare buffers. Wall-clock time: the bands
// run on other threads. Names are Pair/Size/{One,All,OneNew,AllNew,Forced,Paired,Anchor},
// and Memcpy/Size/{One,All} for the memory ceiling;
// run_bands.sh turns one run into tables.
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kernels/band_pool.h"
#include "lmxallocator.h"
#include "module_factories.h"

using namespace Norvik::Lumetra;

namespace {

struct Size {
  int32_t w, h;
};

struct Pair {
  const char* name;
  int32_t from, to, angle;
  int32_t from_bpp, to_bpp;  // bytes per pixel of the first plane; NV12 (1) has a half-height second
  // libyuv's call on bare planes (NV12's chroma follows its luma); null where it has none.
  std::function<void(const uint8_t* src, uint8_t* dst, int w, int h)> anchor;
};

size_t Bytes(int32_t format, int32_t bpp, Size s) {
  const size_t plane = static_cast<size_t>(s.w) * s.h * bpp;
  return format == Image::PIXEL_FORMAT_NV12 ? plane + plane / 2 : plane;
}

std::vector<Pair> Pairs() {
  using namespace libyuv;
  constexpr int32_t YUY2 = Image::PIXEL_FORMAT_YUY2, NV12 = Image::PIXEL_FORMAT_NV12, BGRA = Image::PIXEL_FORMAT_BGRA,
                    Y8 = Image::PIXEL_FORMAT_Y8, DEPTH = Image::PIXEL_FORMAT_DEPTH;
  auto u16 = [](auto p) { return reinterpret_cast<uint16_t*>(const_cast<uint8_t*>(p)); };
  return {
      {"YUY2ToBGRA", YUY2, BGRA, 0, 2, 4, [](auto s, auto d, int w, int h) { YUY2ToARGB(s, 2 * w, d, 4 * w, w, h); }},
      {"NV12ToBGRA", NV12, BGRA, 0, 1, 4,
       [](auto s, auto d, int w, int h) { NV12ToARGB(s, w, s + static_cast<size_t>(w) * h, w, d, 4 * w, w, h); }},
      {"BGRAToYUY2", BGRA, YUY2, 0, 4, 2, [](auto s, auto d, int w, int h) { ARGBToYUY2(s, 4 * w, d, 2 * w, w, h); }},
      {"BGRAToY8", BGRA, Y8, 0, 4, 1, [](auto s, auto d, int w, int h) { ARGBToJ400(s, 4 * w, d, w, w, h); }},
      {"BGRARotate90", BGRA, BGRA, 90, 4, 4,
       [](auto s, auto d, int w, int h) { ARGBRotate(s, 4 * w, d, 4 * h, w, h, kRotate90); }},
      {"DEPTHRotate90", DEPTH, DEPTH, 90, 2, 2,
       [=](auto s, auto d, int w, int h) { RotatePlane_16(u16(s), w, u16(d), h, w, h, kRotate90); }},
  };
}

// Bytes that vary in every channel, so no shortcut for flat input applies.
void FillPattern(uint8_t* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + (i >> 11));
}

// A frame of `format` whose bytes vary in every channel.
std::vector<uint8_t> PatternFrame(int32_t format, int32_t bpp, Size size) {
  std::vector<uint8_t> frame(Bytes(format, bpp, size));
  FillPattern(frame.data(), frame.size());
  return frame;
}

// The library's allocator; null, with the benchmark skipped, when it cannot be made.
LMXAllocator* NewAllocator(benchmark::State& state) {
  Base* object = nullptr;
  if (lmx::CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object) >= 0 && object)
    return static_cast<LMXAllocator*>(object);
  state.SkipWithError("no allocator");
  return nullptr;
}

// Copies `src` into the planes of an acquired buffer laid out as one plane of
// `bpp` bytes per pixel (plus NV12's chroma plane).
void Fill(const Image::ImageData& data, const uint8_t* src, int32_t format, int32_t bpp, Size s) {
  const size_t row = static_cast<size_t>(s.w) * bpp;
  for (int32_t y = 0; y < s.h; ++y) std::memcpy(data.planes[0] + y * data.pitches[0], src + y * row, row);
  if (format == Image::PIXEL_FORMAT_NV12)
    for (int32_t y = 0; y < s.h / 2; ++y)
      std::memcpy(data.planes[1] + y * data.pitches[1], src + row * s.h + y * row, row);
}

// A new image per frame, as a camera stream gives one: written (untimed), then read in the wanted format.
// Writes the source into `image` (which leaves every other format stale).
bool Write(Image* image, const Pair& pair, Size size, const std::vector<uint8_t>& src) {
  Image::ImageData data{};
  if (image->AcquireAccess(Image::ACCESS_WRITE, static_cast<Image::PixelFormat>(pair.from), 0, &data) < 0) return false;
  Fill(data, src.data(), pair.from, pair.from_bpp, size);
  return image->ReleaseAccess(&data) >= 0;
}

bool Read(Image* image, const Pair& pair) {
  Image::ImageData data{};
  if (image->AcquireAccess(Image::ACCESS_READ, static_cast<Image::PixelFormat>(pair.to), pair.angle, &data) < 0)
    return false;
  benchmark::DoNotOptimize(data.planes[0]);
  return image->ReleaseAccess(&data) >= 0;
}

// Per timed frame, the banded jobs since `banded` was read; per banded job, the
// caller's wake-up calls, the band thread's start after the hand-off and the
// caller's share of the bands, since `before`.
void ReportBandedJobs(benchmark::State& state, uint64_t banded, const lmx::BandTimings& before) {
  const double jobs = static_cast<double>(lmx::BandedJobCount() - banded);
  state.counters["banded"] = jobs / static_cast<double>(state.iterations());
  if (jobs <= 0) return;
  const lmx::BandTimings after = lmx::BandedJobTimings();
  state.counters["handoff_us"] = static_cast<double>(after.handoff_us - before.handoff_us) / jobs;
  const auto starts = static_cast<double>(after.helper_starts - before.helper_starts);
  if (starts > 0)
    state.counters["start_us"] = static_cast<double>(after.helper_start_us - before.helper_start_us) / starts;
  state.counters["caller_share"] =
      static_cast<double>(after.caller_bands - before.caller_bands) / static_cast<double>(after.bands - before.bands);
}

// The read access that converts, timed; the write before it is not. `fresh`: a
// new image per frame, so the destination planes are new memory each time (its
// first touch costs page faults); otherwise one image, written again per frame.
// threads 1: one thread; 0: all; -1: all, and bands at any size (what the
// threshold saves).
void Object(benchmark::State& state, const Pair& pair, Size size, int32_t threads, bool fresh) {
  LMXAllocator* allocator = NewAllocator(state);
  if (!allocator) return;
  const std::vector<uint8_t> src = PatternFrame(pair.from, pair.from_bpp, size);
  lmx::SetConversionThreadLimit(threads);
  const int64_t threshold = threads < 0 ? lmx::SetBandThresholdBytes(0) : -1;
  Image::ImageInfo info{size.w, size.h, pair.from, 0};
  Image* image = nullptr;
  // One image: its planes are touched once before timing starts.
  if (!fresh &&
      (allocator->CreateImage(&info, 0, nullptr, &image) < 0 || !Write(image, pair, size, src) || !Read(image, pair)))
    state.SkipWithError("access refused");
  const uint64_t banded = lmx::BandedJobCount();
  const lmx::BandTimings before = lmx::BandedJobTimings();
  for (auto _ : state) {
    state.PauseTiming();
    if (fresh && image) {
      image->Release();
      image = nullptr;
    }
    const bool written =
        (image || allocator->CreateImage(&info, 0, nullptr, &image) >= 0) && Write(image, pair, size, src);
    state.ResumeTiming();
    if (!written || !Read(image, pair)) {
      state.SkipWithError("access refused");
      break;
    }
  }
  ReportBandedJobs(state, banded, before);
  lmx::SetConversionThreadLimit(0);
  if (threshold >= 0) lmx::SetBandThresholdBytes(threshold);
  if (image) image->Release();
  allocator->Release();
}

// One thread and all threads on alternate frames of one image, each read timed
// on its own (the order alternates too): the speed-up of two neighbouring frames
// is free of the slow drifts of a shared machine, which move the medians of
// separate runs by a third. Reports the median of those speed-ups.
void Paired(benchmark::State& state, const Pair& pair, Size size) {
  LMXAllocator* allocator = NewAllocator(state);
  if (!allocator) return;
  const std::vector<uint8_t> src = PatternFrame(pair.from, pair.from_bpp, size);
  Image::ImageInfo info{size.w, size.h, pair.from, 0};
  Image* image = nullptr;
  if (allocator->CreateImage(&info, 0, nullptr, &image) < 0) return state.SkipWithError("no image");
  // Seconds for one written frame read on `threads` threads; negative when refused.
  auto frame = [&](int32_t threads) {
    lmx::SetConversionThreadLimit(threads);
    if (!Write(image, pair, size, src)) return -1.0;
    const auto start = std::chrono::steady_clock::now();
    const bool read = Read(image, pair);
    return read ? std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() : -1.0;
  };
  frame(1);  // the planes are touched once before timing starts
  const uint64_t banded = lmx::BandedJobCount();
  const lmx::BandTimings before = lmx::BandedJobTimings();
  std::vector<double> speedups;
  for (auto _ : state) {
    const bool one_first = speedups.size() % 2 == 0;
    const double first = frame(one_first ? 1 : 0), second = frame(one_first ? 0 : 1);
    if (first < 0 || second < 0) {
      state.SkipWithError("access refused");
      break;
    }
    const double one = one_first ? first : second, all = one_first ? second : first;
    speedups.push_back(one / all);
    state.SetIterationTime(one + all);
  }
  if (!speedups.empty()) {
    std::nth_element(speedups.begin(), speedups.begin() + speedups.size() / 2, speedups.end());
    state.counters["speedup"] = speedups[speedups.size() / 2];
  }
  ReportBandedJobs(state, banded, before);
  lmx::SetConversionThreadLimit(0);
  image->Release();
  allocator->Release();
}

void Anchor(benchmark::State& state, const Pair& pair, Size size) {
  const std::vector<uint8_t> src = PatternFrame(pair.from, pair.from_bpp, size);
  std::vector<uint8_t> dst(Bytes(pair.to, pair.to_bpp, size));
  for (auto _ : state) {
    pair.anchor(src.data(), dst.data(), size.w, size.h);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
}

// The memory ceiling: a 4K BGRA plane (33 MB) copied row by row through the
// band pool, on one thread and on all. What two threads gain here bounds what
// any memory-bound conversion of the same bytes can gain.
void Ceiling(benchmark::State& state, int32_t threads) {
  constexpr int32_t kRowBytes = 3840 * 4, kRows = 2160;
  std::vector<uint8_t> src(size_t{kRowBytes} * kRows), dst(src.size());
  FillPattern(src.data(), src.size());
  std::memcpy(dst.data(), src.data(), dst.size());
  lmx::SetConversionThreadLimit(threads);
  for (auto _ : state) {
    lmx::RunBands(kRows, 1, int64_t{2} * kRowBytes * kRows, [&](int32_t begin, int32_t end) {
      const size_t at = size_t{kRowBytes} * begin;
      std::memcpy(dst.data() + at, src.data() + at, size_t{kRowBytes} * (end - begin));
    });
    benchmark::ClobberMemory();
  }
  lmx::SetConversionThreadLimit(0);
}

const int kRegistered = [] {
  for (auto [side, threads] : {std::pair{"One", 1}, std::pair{"All", 0}})
    benchmark::RegisterBenchmark((std::string("Memcpy/3840x2160/") + side).c_str(), Ceiling, threads)
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
  static const std::vector<Pair> pairs = Pairs();
  for (const Pair& pair : pairs) {
    for (Size size : {Size{3840, 2160}, Size{1920, 1080}, Size{1280, 720}, Size{640, 480}}) {
      const std::string name = std::string(pair.name) + "/" + std::to_string(size.w) + "x" + std::to_string(size.h);
      const struct {
        const char* side;
        int32_t threads;
        bool fresh;
      } sides[] = {
          {"One", 1, false}, {"All", 0, false}, {"OneNew", 1, true}, {"AllNew", 0, true}, {"Forced", -1, false}};
      for (auto [side, threads, fresh] : sides)
        if (threads >= 0 || size.w < 3840)  // 4K is banded without forcing
          benchmark::RegisterBenchmark((name + "/" + side).c_str(), Object, pair, size, threads, fresh)
              ->Unit(benchmark::kMicrosecond)
              ->UseRealTime();
      if (size.w == 3840)
        benchmark::RegisterBenchmark((name + "/Paired").c_str(), Paired, pair, size)
            ->Unit(benchmark::kMicrosecond)
            ->UseManualTime();
      benchmark::RegisterBenchmark((name + "/Anchor").c_str(), Anchor, pair, size)
          ->Unit(benchmark::kMicrosecond)
          ->UseRealTime();
    }
  }
  return 0;
}();

}  // namespace

BENCHMARK_MAIN();
