// The multi-format image object against the bare kernel. Each iteration of the
// Stale cases first rewrites the YUY2 frame (through a write access for the object,
// directly for the kernel, with the clock paused in both), so the timed part is
// the conversion alone: AcquireAccess(READ, BGRA) + ReleaseAccess on the object,
// the YUY2 to BGRA plane driver on its own. The Valid cases time a read access
// of a format that is already up to date (lock, map and reference count only).
// Names are Case/WIDTHxHEIGHT/Variant; run_object.sh turns one run into ratios.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "kernels/pixel_kernels.h"
#include "lmxallocator.h"
#include "module_factories.h"

using namespace Norvik::Lumetra;

namespace {

// A YUY2 frame with varying luma and chroma, so no shortcut for flat input applies.
std::vector<uint8_t> Yuy2Pattern(int32_t width, int32_t height) {
  std::vector<uint8_t> bytes(static_cast<size_t>(width) * 2 * height);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + (i >> 11));
  return bytes;
}

// One allocator and one image of the given format for the life of a benchmark.
class ObjectFixture {
 public:
  ObjectFixture(int32_t width, int32_t height, int32_t format) {
    Base* object = nullptr;
    if (CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object) < 0 || !object) return;
    allocator_ = static_cast<LMXAllocator*>(object);
    Image::ImageInfo info{width, height, format, 0};
    if (allocator_->CreateImage(&info, 0, nullptr, &image_) < 0) image_ = nullptr;
  }
  ~ObjectFixture() {
    if (image_) image_->Release();
    if (allocator_) allocator_->Release();
  }
  ObjectFixture(const ObjectFixture&) = delete;
  ObjectFixture& operator=(const ObjectFixture&) = delete;

  Image* image() const { return image_; }

  // Copies rows of tightly packed YUY2 into the image through a write access,
  // which leaves every other format of the image stale.
  bool WriteYuy2(const std::vector<uint8_t>& src, int32_t width, int32_t height) {
    Image::ImageData data{};
    if (image_->AcquireAccess(Image::ACCESS_WRITE, Image::PIXEL_FORMAT_YUY2, 0, &data) < 0) return false;
    const size_t row = static_cast<size_t>(width) * 2;
    for (int32_t y = 0; y < height; ++y) std::memcpy(data.planes[0] + y * data.pitches[0], src.data() + y * row, row);
    return image_->ReleaseAccess(&data) >= 0;
  }

  bool Read(Image::PixelFormat format) {
    Image::ImageData data{};
    if (image_->AcquireAccess(Image::ACCESS_READ, format, 0, &data) < 0) return false;
    benchmark::DoNotOptimize(data.planes[0]);
    return image_->ReleaseAccess(&data) >= 0;
  }

 private:
  LMXAllocator* allocator_ = nullptr;
  Image* image_ = nullptr;
};

// A buffer aligned like the object's large planes (4096 bytes), so the kernel's
// loads and stores meet the same alignment in both cases.
struct FreeDeleter {
  void operator()(uint8_t* p) const { std::free(p); }
};
std::unique_ptr<uint8_t[], FreeDeleter> AlignedBuffer(size_t bytes) {
  return std::unique_ptr<uint8_t[], FreeDeleter>(
      static_cast<uint8_t*>(std::aligned_alloc(4096, (bytes + 4095) / 4096 * 4096)));
}

void SetBytes(benchmark::State& state, int32_t width, int32_t height) {
  // Bytes read and written by the conversion: 2 in, 4 out per pixel.
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * width * height * 6);
}

// YUY2 -> BGRA through the object, conversion included.
void ObjectStale(benchmark::State& state) {
  const auto width = static_cast<int32_t>(state.range(0));
  const auto height = static_cast<int32_t>(state.range(1));
  ObjectFixture fixture(width, height, Image::PIXEL_FORMAT_YUY2);
  if (!fixture.image()) return state.SkipWithError("image creation failed");
  const std::vector<uint8_t> src = Yuy2Pattern(width, height);
  for (auto _ : state) {
    state.PauseTiming();
    const bool written = fixture.WriteYuy2(src, width, height);
    state.ResumeTiming();
    if (!written || !fixture.Read(Image::PIXEL_FORMAT_BGRA)) return state.SkipWithError("access refused");
  }
  SetBytes(state, width, height);
}

// The same conversion with the plane driver alone, on a freshly written source.
void KernelStale(benchmark::State& state) {
  const auto width = static_cast<int32_t>(state.range(0));
  const auto height = static_cast<int32_t>(state.range(1));
  const std::vector<uint8_t> pattern = Yuy2Pattern(width, height);
  const auto src = AlignedBuffer(pattern.size());
  const auto dst = AlignedBuffer(static_cast<size_t>(width) * 4 * height);
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(src.get(), pattern.data(), pattern.size());
    state.ResumeTiming();
    const Status sts = lmx::kernels::YUY2ToBGRA(src.get(), 2 * width, dst.get(), 4 * width, width, height, 255);
    benchmark::DoNotOptimize(dst.get());
    benchmark::ClobberMemory();
    if (sts < 0) return state.SkipWithError("kernel refused");
  }
  SetBytes(state, width, height);
}

// A read access of a format that is already valid: the native YUY2 plane, or the
// BGRA plane once it has been converted.
void ObjectValid(benchmark::State& state, Image::PixelFormat format) {
  ObjectFixture fixture(1920, 1080, Image::PIXEL_FORMAT_YUY2);
  if (!fixture.image()) return state.SkipWithError("image creation failed");
  if (!fixture.WriteYuy2(Yuy2Pattern(1920, 1080), 1920, 1080) || !fixture.Read(format))
    return state.SkipWithError("access refused");
  for (auto _ : state)
    if (!fixture.Read(format)) return state.SkipWithError("access refused");
}

void Sizes(benchmark::internal::Benchmark* b) {
  b->Args({640, 480})->Args({1920, 1080})->Unit(benchmark::kMicrosecond);
}

}  // namespace

BENCHMARK(ObjectStale)->Name("YUY2ToBGRA/Object")->Apply(Sizes);
BENCHMARK(KernelStale)->Name("YUY2ToBGRA/Kernel")->Apply(Sizes);
BENCHMARK_CAPTURE(ObjectValid, YUY2, Image::PIXEL_FORMAT_YUY2)->Name("Valid/YUY2")->Unit(benchmark::kNanosecond);
BENCHMARK_CAPTURE(ObjectValid, BGRA, Image::PIXEL_FORMAT_BGRA)->Name("Valid/BGRA")->Unit(benchmark::kNanosecond);

BENCHMARK_MAIN();
