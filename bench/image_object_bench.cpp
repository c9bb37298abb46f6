// Conversions as a host sees them: format A is written into an image object
// (AcquireAccess write + ReleaseAccess, clock paused), then format B is read
// (AcquireAccess read + ReleaseAccess, timed: the conversion happens inside),
// beside libyuv's equivalent on bare buffers whose source was rewritten the same
// way. Rotations are read views (the angle in the options word); mirrors are
// exports in the mirror mode. The Valid cases time a read access of a format that
// is already up to date (lock, map and reference count only).
// Names are Pair/Object and Pair/Anchor; run_object.sh turns one run into ratios.
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "kernels/band_pool.h"
#include "bench_buffers.h"
#include "lmxallocator.h"
#include "module_factories.h"

using lmx::CreateAllocator;

using namespace Norvik::Lumetra;

namespace {

constexpr int32_t kWidth = 1920;
constexpr int32_t kHeight = 1080;
constexpr int32_t kExportMirror = 1;  // the export mode that mirrors left to right

using lmxbench::AlignedBuffer;
using lmxbench::Buffer;
using lmxbench::FillPattern;

// One plane layout of a packed or two-plane frame at 1080p.
struct Layout {
  int32_t format;
  int32_t bytesPerPixel;  // of the first plane; NV12 has a second, half-height plane
  size_t Bytes() const {
    const size_t luma = static_cast<size_t>(kWidth) * kHeight * bytesPerPixel;
    return format == Image::PIXEL_FORMAT_NV12 ? luma + luma / 2 : luma;
  }
};

// The anchor's call on bare planes: source, destination (NV12's chroma follows its luma).
using Anchor = std::function<void(const uint8_t* src, uint8_t* dst)>;

struct Pair {
  const char* name;
  Layout from;
  Layout to;
  int32_t angle;  // a rotated read view
  bool mirror;    // an export in the mirror mode instead of a read
  Anchor anchor;
};

constexpr int32_t W = kWidth, H = kHeight;
constexpr size_t kLuma = static_cast<size_t>(W) * H;
constexpr Layout kYUY2{Image::PIXEL_FORMAT_YUY2, 2}, kNV12{Image::PIXEL_FORMAT_NV12, 1},
    kBGRA{Image::PIXEL_FORMAT_BGRA, 4}, kRGBA{Image::PIXEL_FORMAT_RGBA, 4}, kBGR{Image::PIXEL_FORMAT_BGR, 3},
    kRGB{Image::PIXEL_FORMAT_RGB, 3}, kY8{Image::PIXEL_FORMAT_Y8, 1}, kY16{Image::PIXEL_FORMAT_Y16, 2};

std::vector<Pair> Pairs() {
  using namespace libyuv;
  auto u16 = [](const uint8_t* p) { return reinterpret_cast<const uint16_t*>(p); };
  // The anchor has no packed 4:2:2 to three-channel conversion; its planar 4:2:2
  // one reads the same bytes and writes the same colour.
  auto i422 = [](const uint8_t* s, uint8_t* d, auto convert) {
    convert(s, W, s + kLuma, W / 2, s + kLuma + kLuma / 2, W / 2, d, 3 * W, W, H);
  };
  return {
      {"YUY2ToBGRA", kYUY2, kBGRA, 0, false, [](auto s, auto d) { YUY2ToARGB(s, 2 * W, d, 4 * W, W, H); }},
      {"YUY2ToRGBA", kYUY2, kRGBA, 0, false, [](auto s, auto d) { YUY2ToARGB(s, 2 * W, d, 4 * W, W, H); }},
      {"YUY2ToBGR", kYUY2, kBGR, 0, false, [=](auto s, auto d) { i422(s, d, I422ToRGB24); }},
      {"YUY2ToRGB", kYUY2, kRGB, 0, false, [=](auto s, auto d) { i422(s, d, I422ToRAW); }},
      {"YUY2ToNV12", kYUY2, kNV12, 0, false, [](auto s, auto d) { YUY2ToNV12(s, 2 * W, d, W, d + kLuma, W, W, H); }},
      {"YUY2ToY8", kYUY2, kY8, 0, false, [](auto s, auto d) { YUY2ToY(s, 2 * W, d, W, W, H); }},
      {"BGRAToYUY2", kBGRA, kYUY2, 0, false, [](auto s, auto d) { ARGBToYUY2(s, 4 * W, d, 2 * W, W, H); }},
      {"RGBAToYUY2", kRGBA, kYUY2, 0, false, [](auto s, auto d) { ARGBToYUY2(s, 4 * W, d, 2 * W, W, H); }},
      {"BGRAToRGBA", kBGRA, kRGBA, 0, false, [](auto s, auto d) { ARGBToABGR(s, 4 * W, d, 4 * W, W, H); }},
      {"RGBAToBGRA", kRGBA, kBGRA, 0, false, [](auto s, auto d) { ABGRToARGB(s, 4 * W, d, 4 * W, W, H); }},
      {"BGRAToBGR", kBGRA, kBGR, 0, false, [](auto s, auto d) { ARGBToRGB24(s, 4 * W, d, 3 * W, W, H); }},
      {"BGRToBGRA", kBGR, kBGRA, 0, false, [](auto s, auto d) { RGB24ToARGB(s, 3 * W, d, 4 * W, W, H); }},
      {"BGRToRGB", kBGR, kRGB, 0, false, [](auto s, auto d) { RAWToRGB24(s, 3 * W, d, 3 * W, W, H); }},
      {"RGBToBGR", kRGB, kBGR, 0, false, [](auto s, auto d) { RAWToRGB24(s, 3 * W, d, 3 * W, W, H); }},
      {"BGRAToY8", kBGRA, kY8, 0, false, [](auto s, auto d) { ARGBToJ400(s, 4 * W, d, W, W, H); }},
      {"BGRToY8", kBGR, kY8, 0, false, [](auto s, auto d) { RGB24ToJ400(s, 3 * W, d, W, W, H); }},
      {"Y8ToY16", kY8, kY16, 0, false,
       [](auto s, auto d) { Convert8To16Plane(s, W, reinterpret_cast<uint16_t*>(d), W, 256, W, H); }},
      {"Y16ToY8", kY16, kY8, 0, false, [=](auto s, auto d) { Convert16To8Plane(u16(s), W, d, W, 256, W, H); }},
      // Two conversions by design (NV12 -> YUY2 -> BGRA) against the anchor's one.
      {"NV12ToBGRA", kNV12, kBGRA, 0, false, [](auto s, auto d) { NV12ToARGB(s, W, s + kLuma, W, d, 4 * W, W, H); }},
      {"BGRARotate90", kBGRA, kBGRA, 90, false,
       [](auto s, auto d) { ARGBRotate(s, 4 * W, d, 4 * H, W, H, kRotate90); }},
      {"BGRARotate270", kBGRA, kBGRA, 270, false,
       [](auto s, auto d) { ARGBRotate(s, 4 * W, d, 4 * H, W, H, kRotate270); }},
      {"Y8Rotate90", kY8, kY8, 90, false, [](auto s, auto d) { RotatePlane90(s, W, d, H, W, H); }},
      {"Y8Rotate270", kY8, kY8, 270, false, [](auto s, auto d) { RotatePlane270(s, W, d, H, W, H); }},
      {"BGRAMirror", kBGRA, kBGRA, 0, true, [](auto s, auto d) { ARGBMirror(s, 4 * W, d, 4 * W, W, H); }},
      {"BGRMirror", kBGR, kBGR, 0, true, [](auto s, auto d) { RGB24Mirror(s, 3 * W, d, 3 * W, W, H); }},
      {"Y8Mirror", kY8, kY8, 0, true, [](auto s, auto d) { MirrorPlane(s, W, d, W, W, H); }},
  };
}

// One allocator and one image of the source format for the life of a benchmark.
class ObjectFixture {
 public:
  explicit ObjectFixture(int32_t format) {
    Base* object = nullptr;
    if (CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object) < 0 || !object) return;
    allocator_ = static_cast<LMXAllocator*>(object);
    Image::ImageInfo info{W, H, format, 0};
    if (allocator_->CreateImage(&info, 0, nullptr, &image_) < 0) image_ = nullptr;
  }
  ~ObjectFixture() {
    if (image_) image_->Release();
    if (allocator_) allocator_->Release();
  }
  ObjectFixture(const ObjectFixture&) = delete;
  ObjectFixture& operator=(const ObjectFixture&) = delete;

  Image* image() const { return image_; }

  // Writes the source pattern through a write access, which leaves every other
  // format of the image stale.
  bool Write(const Layout& layout, const uint8_t* src) {
    Image::ImageData data{};
    if (image_->AcquireAccess(Image::ACCESS_WRITE, static_cast<Image::PixelFormat>(layout.format), 0, &data) < 0)
      return false;
    const size_t row = static_cast<size_t>(W) * layout.bytesPerPixel;
    for (int32_t y = 0; y < H; ++y) std::memcpy(data.planes[0] + y * data.pitches[0], src + y * row, row);
    if (layout.format == Image::PIXEL_FORMAT_NV12)
      for (int32_t y = 0; y < H / 2; ++y)
        std::memcpy(data.planes[1] + y * data.pitches[1], src + kLuma + y * static_cast<size_t>(W), W);
    return image_->ReleaseAccess(&data) >= 0;
  }

  bool Read(int32_t format, int32_t angle) {
    Image::ImageData data{};
    if (image_->AcquireAccess(Image::ACCESS_READ, static_cast<Image::PixelFormat>(format), angle, &data) < 0)
      return false;
    benchmark::DoNotOptimize(data.planes[0]);
    return image_->ReleaseAccess(&data) >= 0;
  }

  bool ExportMirrored(const Layout& layout, uint8_t* dst) {
    Image::ImageData data{};
    data.format = static_cast<Image::PixelFormat>(layout.format);
    data.planes[0] = dst;
    data.pitches[0] = W * layout.bytesPerPixel;
    return image_->ExportData(&data, kExportMirror) >= 0;
  }

 private:
  LMXAllocator* allocator_ = nullptr;
  Image* image_ = nullptr;
};

void SetBytes(benchmark::State& state, const Pair& pair) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(pair.from.Bytes() + pair.to.Bytes()));
}

void Object(benchmark::State& state, const Pair& pair) {
  ObjectFixture fixture(pair.from.format);
  if (!fixture.image()) return state.SkipWithError("image creation failed");
  const Buffer src = AlignedBuffer(pair.from.Bytes());
  const Buffer dst = AlignedBuffer(pair.to.Bytes());
  FillPattern(src.get(), pair.from.Bytes());
  for (auto _ : state) {
    state.PauseTiming();
    const bool written = fixture.Write(pair.from, src.get());
    state.ResumeTiming();
    const bool done =
        pair.mirror ? fixture.ExportMirrored(pair.to, dst.get()) : fixture.Read(pair.to.format, pair.angle);
    if (!written || !done) return state.SkipWithError("access refused");
  }
  SetBytes(state, pair);
}

void AnchorCase(benchmark::State& state, const Pair& pair) {
  std::vector<uint8_t> pattern(pair.from.Bytes());
  FillPattern(pattern.data(), pattern.size());
  const Buffer src = AlignedBuffer(pattern.size());
  const Buffer dst = AlignedBuffer(pair.to.Bytes());
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(src.get(), pattern.data(), pattern.size());
    state.ResumeTiming();
    pair.anchor(src.get(), dst.get());
    benchmark::DoNotOptimize(dst.get());
    benchmark::ClobberMemory();
  }
  SetBytes(state, pair);
}

// A read access of a format that is already valid: the native YUY2 plane, or the
// BGRA plane once it has been converted.
void ObjectValid(benchmark::State& state, Image::PixelFormat format) {
  ObjectFixture fixture(Image::PIXEL_FORMAT_YUY2);
  std::vector<uint8_t> pattern(kYUY2.Bytes());
  FillPattern(pattern.data(), pattern.size());
  if (!fixture.image() || !fixture.Write(kYUY2, pattern.data()) || !fixture.Read(format, 0))
    return state.SkipWithError("access refused");
  for (auto _ : state)
    if (!fixture.Read(format, 0)) return state.SkipWithError("access refused");
}

const int kRegistered = [] {
  // One thread: these figures are CPU time of the calling thread, the whole
  // conversion only when no band runs elsewhere (band_bench times the threads).
  lmx::SetConversionThreadLimit(1);
  static const std::vector<Pair> pairs = Pairs();
  for (const Pair& pair : pairs) {
    benchmark::RegisterBenchmark((std::string(pair.name) + "/Object").c_str(), Object, pair)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark((std::string(pair.name) + "/Anchor").c_str(), AnchorCase, pair)
        ->Unit(benchmark::kMicrosecond);
  }
  return 0;
}();

}  // namespace

BENCHMARK_CAPTURE(ObjectValid, YUY2, Image::PIXEL_FORMAT_YUY2)->Name("Valid/YUY2")->Unit(benchmark::kNanosecond);
BENCHMARK_CAPTURE(ObjectValid, BGRA, Image::PIXEL_FORMAT_BGRA)->Name("Valid/BGRA")->Unit(benchmark::kNanosecond);

BENCHMARK_MAIN();
