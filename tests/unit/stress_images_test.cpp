// Stress: image objects from one allocator used by many threads at once. Content
// is checked on every frame (constant frames make any mix-up visible); the
// interleavings vary from run to run, which is what ThreadSanitizer runs of the
// "stress" label are for.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "core_metadata.h"
#include "image_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmxtest::NewAllocator;
using lmxtest::Read;
using lmxtest::Write;

namespace {

constexpr int32_t kWidth = 32;
constexpr int32_t kHeight = 8;

// Caller planes for a one-plane format, rows exactly rowBytes apart.
struct Frame {
  Frame(int32_t format, int32_t rowBytes, int32_t rows) : bytes(static_cast<size_t>(rowBytes) * rows) {
    data.format = format;
    data.pitches[0] = rowBytes;
    data.planes[0] = bytes.data();
  }
  std::vector<uint8_t> bytes;
  Image::ImageData data{};
};

// A grey YUY2 frame of luma y: Y0 U Y1 V with neutral chroma.
Frame GreyYuy2(uint8_t y) {
  Frame frame(Image::PIXEL_FORMAT_YUY2, kWidth * 2, kHeight);
  for (size_t i = 0; i < frame.bytes.size(); i += 2) {
    frame.bytes[i] = y;
    frame.bytes[i + 1] = 128;
  }
  return frame;
}

// Reads image as BGRA and returns its pixel; fails the test unless every pixel is
// that one (a torn or mixed frame). A read that passes through an intermediate
// format releases it before the final pass, so a writer in between can make the
// intermediate stale and the read is refused as unsupported: readers retry it.
uint32_t ReadBgra(Image* image, int32_t width, int32_t height) {
  Image::ImageData data{};
  Status sts = LMX_STATUS_PARAM_UNSUPPORTED;
  for (int attempt = 0; attempt < 100 && sts == LMX_STATUS_PARAM_UNSUPPORTED; ++attempt)
    sts = Read(image, Image::PIXEL_FORMAT_BGRA, &data);
  if (sts < 0) {
    ADD_FAILURE() << "BGRA read refused: " << sts;
    return 0;
  }
  uint32_t first, pixel;
  std::memcpy(&first, data.planes[0], 4);
  bool uniform = true;
  for (int32_t y = 0; y < height; ++y)
    for (int32_t x = 0; x < width; ++x) {
      std::memcpy(&pixel, data.planes[0] + y * data.pitches[0] + x * 4, 4);
      uniform = uniform && pixel == first;
    }
  EXPECT_TRUE(uniform) << "a torn or mixed frame";
  EXPECT_EQ(image->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
  return first;
}

uint32_t CountOf(Base* object) {
  auto* reference = static_cast<Reference*>(object->QueryInstance(Reference::kIid));
  const uint32_t count = reference->AddRef() - 1;
  object->Release();
  return count;
}

}  // namespace

// Threads create YUY2 images of their own constant, read them as BGRA (converted
// under each image's lock), export them as Y8 and release them; every frame holds
// exactly what its creator put in.
TEST(StressImages, ManyThreadsCreateConvertExportAndRelease) {
  constexpr int kThreads = 4, kImagesPerThread = 60;
  LMXAllocator* allocator = NewAllocator();
  Image::ImageInfo info{kWidth, kHeight, Image::PIXEL_FORMAT_YUY2, 0};

  // The BGRA pixel of each grey level, found on one thread first.
  std::vector<uint32_t> expected(256);
  for (int level = 0; level < 256; ++level) {
    Image* image = nullptr;
    ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
    Frame frame = GreyYuy2(static_cast<uint8_t>(level));
    ASSERT_EQ(image->ImportData(&frame.data, 0), LMX_STATUS_NO_ERROR);
    expected[level] = ReadBgra(image, kWidth, kHeight);
    ASSERT_EQ(expected[level] >> 24, 0xFFu) << "opaque";
    ASSERT_GE(expected[level] & 0xFF, level ? expected[level - 1] & 0xFF : 0) << "brighter with the luma";
    image->Release();
  }

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < kImagesPerThread; ++i) {
        const auto level = static_cast<uint8_t>(t * 61 + i * 7);
        Image* image = nullptr;
        Image::ImageInfo mine = info;
        ASSERT_EQ(allocator->CreateImage(&mine, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
        Frame frame = GreyYuy2(level);
        ASSERT_EQ(image->ImportData(&frame.data, 0), LMX_STATUS_NO_ERROR);
        EXPECT_EQ(ReadBgra(image, kWidth, kHeight), expected[level]);
        Frame luma(Image::PIXEL_FORMAT_Y8, kWidth, kHeight);
        ASSERT_EQ(image->ExportData(&luma.data, i % 2 ? 2 : 0), LMX_STATUS_NO_ERROR);
        EXPECT_EQ(luma.bytes, std::vector<uint8_t>(luma.bytes.size(), level));
        EXPECT_EQ(CountOf(image), 1u) << "every access gave its reference back";
        image->Release();
      }
    });
  for (auto& thread : threads) thread.join();
  allocator->Release();
}

// One writer replaces the native Y8 frame with a new constant per generation
// while readers read the derived BGRA format. Every frame a reader sees is
// uniform, grey, and never older than one it saw before. (ImageIo's concurrent
// test covers writers and readers of one format; this one the conversion path.)
TEST(StressImages, ReadersOfADerivedFormatSeeWholeFramesOfOneGeneration) {
  constexpr int kReaders = 3, kGenerations = 60;
  constexpr int32_t kSide = 48;
  LMXAllocator* allocator = NewAllocator();
  Image::ImageInfo info{kSide, kSide, Image::PIXEL_FORMAT_Y8, 0};
  Image* image = nullptr;
  ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
  {
    Frame zero(Image::PIXEL_FORMAT_Y8, kSide, kSide);
    ASSERT_EQ(image->ImportData(&zero.data, 0), LMX_STATUS_NO_ERROR);
  }
  lmxtest::ScopedCapture quiet(LOG_LEVEL_FATAL);  // refused writes log; keep the run quiet

  std::atomic<bool> done{false};
  std::atomic<int> reads{0};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int generation = 1; generation <= kGenerations; ++generation) {
      // Readers get a turn between generations on any scheduler (wine's included).
      while (reads.load() < generation - 1) std::this_thread::yield();
      Image::ImageData data{};
      // Refused while a reader holds the image: try again.
      while (Write(image, 0, &data) < 0)
        std::this_thread::yield();
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
  EXPECT_EQ(CountOf(image), 1u);
  image->Release();
  allocator->Release();
}

// References taken and dropped through every face of one image from many
// threads: the object lives while any is held and is destroyed exactly once, when
// the last goes (its release handler counts that).
TEST(StressImages, ReferenceCountingThroughEveryFace) {
  constexpr int kRounds = 60, kThreads = 4, kCycles = 200;
  LMXAllocator* allocator = NewAllocator();
  static std::atomic<int> destroyed;
  destroyed = 0;
  for (int round = 0; round < kRounds; ++round) {
    Image::ImageInfo info{8, 4, Image::PIXEL_FORMAT_Y8, 0};
    Image* image = nullptr;
    ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
    Frame content(Image::PIXEL_FORMAT_Y8, 8, 4);
    ASSERT_EQ(image->ImportData(&content.data, 0), LMX_STATUS_NO_ERROR);
    auto* releaseService = static_cast<LMXReleaseService*>(image->QueryInstance(LMXReleaseService::kIid));
    ASSERT_EQ(releaseService->SetReleaseHandler(+[](void*) { ++destroyed; }, nullptr), LMX_STATUS_NO_ERROR);
    const std::vector<Base*> faces = {
        image, static_cast<Base*>(image->QueryInstance(LMXImageService::kIid)), releaseService,
        static_cast<Base*>(image->QueryInstance(Reference::kIid)),
        static_cast<Base*>(image->QueryInstance(Metadata::kIid))};
    for (Base* face : faces) ASSERT_NE(face, nullptr);
    auto* reference = static_cast<Reference*>(faces[3]);
    for (int t = 0; t < kThreads; ++t) reference->AddRef();
    image->Release();  // the creator's goes first: the last thread to finish destroys

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([&, t] {
        for (int k = 0; k < kCycles; ++k) {
          Base* face = faces[(t + k) % faces.size()];
          auto* ref = static_cast<Reference*>(face->QueryInstance(Reference::kIid));
          EXPECT_GE(ref->AddRef(), 2u);
          if (k % 16 == 0) {  // an acquisition holds a reference of its own
            Image::ImageData data{};
            if (Read(image, 0, &data) >= 0)
              image->ReleaseAccess(&data);
          }
          face->Release();
        }
        EXPECT_EQ(destroyed.load(), round) << "destroyed while a reference was held";
        faces[t % faces.size()]->Release();
      });
    for (auto& thread : threads) thread.join();
    ASSERT_EQ(destroyed.load(), round + 1);
  }
  allocator->Release();
}
