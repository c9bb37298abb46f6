// Stress: one image used by many threads at once, content checked on every frame
// (constant frames make any mix-up visible); ThreadSanitizer runs the "stress" label.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core_metadata.h"
#include "image_test_support.h"
#include "kernels/band_pool.h"
#include "kernels/pixel_kernels.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmxtest::NewAllocator;
using lmxtest::Read;
using lmxtest::Write;

namespace {

// Reads image as BGRA and returns its pixel, failing unless every pixel is that one.
// A writer between the passes through an intermediate format makes it stale and
// the read is refused as unsupported: readers retry it.
uint32_t ReadBgra(Image* image, int32_t width, int32_t height) {
  Image::ImageData data{};
  Status sts = LMX_STATUS_PARAM_UNSUPPORTED;
  for (int attempt = 0; attempt < 100 && sts == LMX_STATUS_PARAM_UNSUPPORTED; ++attempt)
    sts = Read(image, Image::PIXEL_FORMAT_BGRA, &data);
  if (sts < 0) {
    ADD_FAILURE() << "BGRA read refused: " << sts;
    return 0;
  }
  uint32_t first;
  std::memcpy(&first, data.planes[0], 4);
  int mixed = 0;
  for (int32_t i = 0; i < width * height; ++i)
    mixed += std::memcmp(&first, data.planes[0] + i / width * data.pitches[0] + i % width * 4, 4) != 0;
  EXPECT_EQ(mixed, 0) << "a torn or mixed frame";
  EXPECT_EQ(image->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
  return first;
}

}  // namespace

// One writer replaces the native Y8 frame with a new constant per generation
// while readers read the derived BGRA format through the conversion. Every frame a
// reader sees is uniform, grey, and never older than one it saw before. Every
// conversion is split into bands, the readers racing for one band thread.
TEST(StressImages, ReadersOfADerivedFormatSeeWholeFramesOfOneGeneration) {
  const int64_t threshold = lmx::SetBandThresholdBytes(0);
  lmx::SetConversionThreadLimit(2);
  constexpr int kReaders = 3, kGenerations = 60;
  constexpr int32_t kSide = 48;
  LMXAllocator* allocator = NewAllocator();
  Image::ImageInfo info{kSide, kSide, Image::PIXEL_FORMAT_Y8, 0};
  Image* image = nullptr;
  ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
  std::vector<uint8_t> zero(kSide * kSide);
  Image::ImageData frame{Image::PIXEL_FORMAT_Y8, {}, {kSide}, {zero.data()}};
  ASSERT_EQ(image->ImportData(&frame, 0), LMX_STATUS_NO_ERROR);
  lmxtest::ScopedCapture quiet(LOG_LEVEL_FATAL);  // refused writes log; keep the run quiet

  std::atomic<bool> done{false};
  std::atomic<int> reads{0};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int generation = 1; generation <= kGenerations; ++generation) {
      // Readers get a turn between generations on any scheduler (wine's included).
      while (reads.load() < generation - 1) std::this_thread::yield();
      Image::ImageData data{};
      while (Write(image, 0, &data) < 0) std::this_thread::yield();  // refused while a reader holds it
      for (int32_t y = 0; y < kSide; ++y) std::memset(data.planes[0] + y * data.pitches[0], generation * 4, kSide);
      EXPECT_EQ(image->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);  // never leaves the readers spinning
    }
    done = true;
  });
  for (int r = 0; r < kReaders; ++r)
    threads.emplace_back([&] {
      int last = 0;
      while (!done) {
        const uint32_t pixel = ReadBgra(image, kSide, kSide);
        const int grey = pixel & 0xFF;
        EXPECT_EQ((pixel >> 8) & 0xFF, static_cast<uint32_t>(grey));
        EXPECT_EQ((pixel >> 16) & 0xFF, static_cast<uint32_t>(grey));
        EXPECT_EQ(grey % 4, 0) << "a value no generation wrote";
        EXPECT_GE(grey, last) << "an older generation after a newer one";
        last = grey;
        ++reads;
        std::this_thread::yield();
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(ReadBgra(image, kSide, kSide) & 0xFF, static_cast<uint32_t>(kGenerations * 4));
  EXPECT_GT(reads.load(), 0);
  EXPECT_EQ(static_cast<lmx::ImageObject*>(image)->RefCount(), 1u);
  image->Release();
  allocator->Release();
  lmx::SetConversionThreadLimit(0);
  lmx::SetBandThresholdBytes(threshold);
}

// A conversion started inside a band, while every band thread is busy with the
// band's own job, runs on its caller and finishes.
TEST(StressImages, ConversionsInsideBandsFinish) {
  const int64_t threshold = lmx::SetBandThresholdBytes(0);
  lmx::SetConversionThreadLimit(3);
  std::vector<uint8_t> bgra(64 * 64 * 4, 200), grey(8 * 64 * 64);
  lmx::RunBands(8, 1, int64_t{1} << 30, [&](int32_t begin, int32_t end) {
    for (int32_t i = begin; i < end; ++i)
      EXPECT_EQ(lmx::BGRAToY8(bgra.data(), 256, grey.data() + i * 4096, 64, 64, 64), LMX_STATUS_NO_ERROR);
  });
  EXPECT_EQ(std::count(grey.begin(), grey.end(), 200), 8 * 64 * 64);
  lmx::SetConversionThreadLimit(0);
  lmx::SetBandThresholdBytes(threshold);
}

namespace {

// Processor time, in clock ticks, of the band threads ("lmx-band-N"); -1 where
// the threads cannot be listed.
long BandThreadTicks() {
  const std::filesystem::path tasks = "/proc/self/task";
  if (!std::filesystem::exists(tasks)) return -1;
  long ticks = 0;
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::string name, stat;
    std::getline(std::ifstream(task.path() / "comm"), name);
    if (name.rfind("lmx-band-", 0) != 0) continue;
    std::getline(std::ifstream(task.path() / "stat"), stat);
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));  // from the state on
    std::string field;
    for (int i = 3; i < 14; ++i) fields >> field;  // up to utime, the 14th
    long user = 0, system = 0;
    fields >> user >> system;
    ticks += user + system;
  }
  return ticks;
}

}  // namespace

// Banded jobs every 2 ms keep a band thread awake around each one; once they
// stop, the thread sleeps: its processor time stops growing.
TEST(StressImages, BandThreadsSleepOnceTheFramesStop) {
  const int64_t threshold = lmx::SetBandThresholdBytes(0);
  lmx::SetConversionThreadLimit(2);
  std::vector<std::atomic<int>> runs(64);
  for (int frame = 0; frame < 40; ++frame) {
    lmx::RunBands(64, 1, int64_t{1} << 30, [&](int32_t begin, int32_t end) {
      for (int32_t i = begin; i < end; ++i) ++runs[i];
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_EQ(std::count_if(runs.begin(), runs.end(), [](auto& r) { return r == 40; }), 64);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const long before = BandThreadTicks();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  if (before >= 0) {
    EXPECT_LE(BandThreadTicks() - before, 2) << "a band thread spins with no job due";
  }
  lmx::SetConversionThreadLimit(0);
  lmx::SetBandThresholdBytes(threshold);
}

// Threads churn new images of mixed sizes: each writes its own mark into a Y8
// plane, reads it as BGRA (through BGR: more recycled planes) and checks both
// before the release. A block handed to two live planes shows another thread's mark.
TEST(StressImages, RecycledPlanesBelongToOneLiveImageAtATime) {
  constexpr int kThreads = 3, kFrames = 20;
  constexpr int32_t kWidths[] = {512, 576, 640}, kHeight = 320;  // Y8 planes of cached sizes
  LMXAllocator* allocator = NewAllocator();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int frame = 0; frame < kFrames; ++frame) {
        const int32_t width = kWidths[(frame + t) % 3];
        const uint8_t mark = static_cast<uint8_t>(1 + t * 80 + frame);
        Image::ImageInfo info{width, kHeight, Image::PIXEL_FORMAT_Y8, 0};
        Image* image = nullptr;
        ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
        Image::ImageData y8{};
        ASSERT_EQ(Write(image, 0, &y8), LMX_STATUS_NO_ERROR);
        std::memset(y8.planes[0], mark, static_cast<size_t>(y8.pitches[0]) * kHeight);
        image->ReleaseAccess(&y8);
        EXPECT_EQ(ReadBgra(image, width, kHeight), mark * 0x010101u | 0xFF000000u);
        ASSERT_EQ(Read(image, 0, &y8), LMX_STATUS_NO_ERROR);
        EXPECT_EQ(std::count(y8.planes[0], y8.planes[0] + y8.pitches[0] * kHeight, mark), y8.pitches[0] * kHeight);
        image->ReleaseAccess(&y8);
        image->Release();
      }
    });
  for (auto& thread : threads) thread.join();
  allocator->Release();
}
