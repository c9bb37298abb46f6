// Extreme integers a host can pass to the public operations that compute sizes or
// read arrays from them. Run under the asan
// preset, an overflow or a read past a caller's array fails these tests.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <vector>

#include "audio_fakes.h"
#include "image_test_support.h"
#include "scheduler_test_support.h"
#include "test_support.h"

using lmx::CreateAudioConverter;

using namespace Norvik::Lumetra;

namespace {

// Images described with extreme sides are created (the plane query lets negative
// sides through) but every operation that would walk or allocate them fails.
TEST(IntegerExtremes, ImagesOfExtremeSidesFailEveryOperationCleanly) {
  LMXAllocator* allocator = lmxtest::NewAllocator();
  for (auto [width, height] : {std::pair{INT_MIN, INT_MIN}, {INT_MIN, 1}, {-1, -1}, {1, INT_MIN}}) {
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    lmxtest::ScopedCapture capture;
    Image::ImageInfo info{width, height, Image::PIXEL_FORMAT_BGRA, 0};
    Image* image = nullptr;
    ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
    Image::ImageData data{};
    EXPECT_EQ(lmxtest::Read(image, 0, &data), LMX_STATUS_ALLOC_FAILED);
    EXPECT_TRUE(capture->Contains("failed on data->planes[c]"));
    uint8_t pixel[4] = {};
    Image::ImageData caller{Image::PIXEL_FORMAT_BGRA, {}, {4}, {pixel}};
    EXPECT_EQ(image->ExportData(&caller, 0), LMX_STATUS_ALLOC_FAILED);
    EXPECT_EQ(image->ImportData(&caller, 0), LMX_STATUS_ALLOC_FAILED);
    // A twin of the same sides; on adopted planes the object holds a buffer, and
    // the copy is what refuses.
    Image *twin = nullptr, *adopted = nullptr;
    ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &twin), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(image->CopyImage(twin), LMX_STATUS_ALLOC_FAILED);
    ASSERT_EQ(allocator->CreateImage(&info, 0, &caller, &adopted), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(adopted->ExportData(&caller, 0), LMX_STATUS_HANDLE_INVALID);
    EXPECT_TRUE(capture->Contains("failed on width >= 0 && height >= 0 && IsSize32(CheckedMul(width, bpp))"));
    for (Image* each : {image, twin, adopted}) {
      EXPECT_EQ(static_cast<lmx::ImageObject*>(each)->RefCount(), 1u) << "no access left held";
      each->Release();
    }
  }
  allocator->Release();
}

// The four preconditions of both operations answer HANDLE_INVALID with their line.
TEST(IntegerExtremes, ExportAndImportPreconditionsAreInvalidArguments) {
  lmx::ImageObject* image = lmxtest::NewImage(4, 2, Image::PIXEL_FORMAT_Y8);
  uint8_t bytes[64] = {};
  const Image::ImageData good{Image::PIXEL_FORMAT_Y8, {}, {64}, {bytes}};
  Image::ImageData spoilt[] = {good, good, good};
  spoilt[0].format = 0, spoilt[1].planes[0] = nullptr, spoilt[2].pitches[0] = 0;
  const char* lines[] = {"failed on data->format", "failed on data->planes[0]", "failed on data->pitches[0]"};
  for (int i = 0; i < 6; ++i) {  // export, then import, with each spoilt description
    lmxtest::ScopedCapture capture;
    Image::ImageData* data = &spoilt[i / 2];
    EXPECT_EQ(i % 2 ? image->ImportData(data, 0) : image->ExportData(data, 0), LMX_STATUS_HANDLE_INVALID) << i;
    EXPECT_TRUE(capture->Contains(lines[i / 2])) << lines[i / 2];
  }
  image->Release();
}

// Counts are checked before the arrays they describe are read: each array here
// holds one entry, so reading on would leave it.
TEST(IntegerExtremes, SchedulerCountsAreCheckedBeforeTheirArrays) {
  lmxhost::HostSession session;
  lmxtest::SchedulerRef scheduler(&session);
  LMXSchedulerService* service = scheduler.service();
  auto one = std::make_unique<void*[]>(1);
  auto sps = std::make_unique<LMXSyncPoint*[]>(1);
  ASSERT_EQ(service->CreateSyncPoint(0, nullptr, &sps[0]), LMX_STATUS_NO_ERROR);
  LMXSyncPoint* sp = sps[0];
  lmxtest::SignalFace(sp)->SignalSyncPoint(LMX_STATUS_NO_ERROR);

  lmxtest::ScopedCapture capture(LOG_LEVEL_VERBOSE);  // the verbose line reads the entries
  for (auto [n1, n2] :
       {std::pair{INT_MAX, 1}, {1, INT_MAX}, {INT_MAX, INT_MAX}, {-1, 65}, {65, -1}, {INT_MIN, INT_MIN}, {1, 64}}) {
    int32_t idx = -1;
    EXPECT_EQ(sp->SynchronizeExINT(n1, sps.get(), n2, one.get(), &idx, -1), LMX_STATUS_PARAM_UNSUPPORTED)
        << n1 << ", " << n2;
    EXPECT_EQ(idx, -1);
  }
  EXPECT_TRUE(capture->Contains("failed on n1 >= 0 && n2 >= 0"));
  lmxtest::RecordingTask task;
  for (int32_t n : {INT_MIN, -1}) {
    EXPECT_EQ(service->RequestInputs(n, one.get(), &task), LMX_STATUS_PARAM_UNSUPPORTED);
    EXPECT_EQ(service->MarkOutputs(n, one.get(), LMX_STATUS_NO_ERROR), LMX_STATUS_PARAM_UNSUPPORTED);
    LMXSyncPoint* none = nullptr;
    EXPECT_EQ(service->CreateSyncPoint(n, one.get(), &none), LMX_STATUS_PARAM_UNSUPPORTED);
    EXPECT_EQ(none, nullptr);
  }
  EXPECT_EQ(task.Runs(), 0);
  sp->Release();
}

// Channel counts and rate x channel products that no 32-bit size can hold.
TEST(IntegerExtremes, AudioConverterRefusesChannelCountsWithoutAValue) {
  LMXAllocator* allocator = lmxtest::NewAllocator();
  Base* object = nullptr;
  ASSERT_EQ(CreateAudioConverter(reinterpret_cast<Session*>(allocator), nullptr, nullptr, nullptr, 0, &object), 0);
  auto* converter = static_cast<LMXAudioConversion*>(object->QueryInstance(LMXAudioConversion::kIid));
  auto* src = lmxtest::MakeAudio(LMXAudio::AUDIO_FORMAT_PCM, 8000, 1, std::vector<int16_t>(80, 7));
  lmxtest::ScopedCapture capture;
  const char* kNoChannels = "failed on src_info.nchannels > 0 && dst_info.nchannels > 0";
  const char* kTooMany = "failed on IsSize32(dstRateChannels) && IsSize32(srcRateChannels)";
  for (auto [channels, line] :
       {std::pair{0, kNoChannels}, {INT_MIN, kNoChannels}, {INT_MAX, kTooMany}, {INT_MAX / 16000 + 1, kTooMany}}) {
    LMXAudio* dst = nullptr;
    EXPECT_EQ(converter->ConvertAudio(src, lmxtest::MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 16000, channels), dst),
              LMX_STATUS_HANDLE_INVALID);
    EXPECT_EQ(dst, nullptr);
    EXPECT_TRUE(capture->Contains(line)) << channels;
  }
  EXPECT_EQ(src->releases, src->acquisitions);
  int16_t samples[4] = {};
  const auto mono = lmxtest::MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 0, 1);
  EXPECT_EQ(converter->MixChannels(samples, mono, samples, mono, INT_MIN), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(converter->MixChannels(samples, lmxtest::MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 0, -1), samples, mono, 1),
            LMX_STATUS_HANDLE_INVALID);
  src->Release();
  converter->Release();
  allocator->Release();
}

}  // namespace
