// A camera-like session for LMX_SOAK_SECONDS (default 5): colour (1080p YUY2 read
// as BGRA), depth (640x480 read as float), metadata on every video frame, and
// audio (10 ms of 48 kHz stereo per chunk, converted to 16 kHz mono). Each frame
// is a new object, written by a producer task and read by a consumer chained on
// it by data, and waited for on a sync point. No frame may be lost; from 30 s on,
// the resident set must stay within 5% of its value after the first quarter.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "core_metadata.h"
#include "lifecycle_support.h"
#include "lmxallocator.h"
#include "unit/scheduler_test_support.h"

// Under AddressSanitizer, a small quarantine (one 1080p frame): the planes are
// recycled, so a session frees mostly small objects, which fill even 32 MB only
// over tens of seconds, and a filling quarantine would pass for a growing resident set.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "quarantine_size_mb=8";
}
#ifdef __SANITIZE_ADDRESS__
// Its allocator still keeps freed frames for a while (one 1080p frame set is 12
// MB), so the resident set moves by a frame or two; leaks are its leak checker's.
constexpr long kSlackKiB = 32 * 1024;
#else
constexpr long kSlackKiB = 0;
#endif

namespace {

using namespace Norvik::Lumetra;
using Clock = std::chrono::steady_clock;

long ResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string key;
  long value = 0;
  while (status >> key)
    if (key == "VmRSS:" && status >> value) return value;
  return 0;
}

struct Stream {
  const char* name;
  std::chrono::microseconds period;
  std::function<Base*()> make;
  std::function<bool(Base*)> produce, consume;  // false: the frame is lost
  int frames = 0, lost = 0;
  std::vector<double> latencyMs;
};

// One frame: producer task -> consumer requested on the frame -> sync point.
bool RunFrame(LMXScheduler* scheduler, LMXSchedulerService* service, Stream& stream) {
  Base* frame = stream.make();
  void* key = frame;
  LMXSyncPoint* sp = nullptr;
  bool good = frame && service->MarkOutputs(1, &key, LMX_STATUS_EXEC_INPROGRESS) >= 0 &&
              service->CreateSyncPoint(1, &key, &sp) >= 0;
  lmxtest::RecordingTask consumer(nullptr, [&](Status sts) {
    good = good && sts == LMX_STATUS_NO_ERROR && stream.consume(frame);
    lmxtest::SignalFace(sp)->SignalSyncPoint(good ? LMX_STATUS_NO_ERROR : LMX_STATUS_PROCESS_FAILED);
  });
  lmxtest::RecordingTask producer(nullptr, [&](Status) {
    good = stream.produce(frame);
    service->MarkOutputs(1, &key, good ? LMX_STATUS_NO_ERROR : LMX_STATUS_DEVICE_FAILED);
  });
  const auto start = Clock::now();
  good = good && service->RequestInputs(1, &key, &consumer) >= 0 &&
         scheduler->SubmitTask(&producer, LMX_STATUS_NO_ERROR) >= 0 && sp->Synchronize(-1) == LMX_STATUS_NO_ERROR;
  stream.latencyMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  // The tasks live on this stack: both must have returned from Run.
  good = good && producer.WaitForRuns(1) && consumer.WaitForRuns(1);
  if (sp) sp->Release();
  if (frame) frame->Release();
  return good;
}

// Video: the frame's pixels and a metadata record, read back in another format.
Stream Video(const char* name, LMXAllocator* allocator, Image::ImageInfo info, Image::PixelFormat read) {
  auto make = [=]() mutable -> Base* {
    Image* image = nullptr;
    return allocator->CreateImage(&info, 0, nullptr, &image) >= 0 ? image : nullptr;
  };
  auto produce = [info](Base* f) {
    auto* image = static_cast<Image*>(f->QueryInstance(Image::kIid));
    Image::ImageData data{};
    uint8_t stamp = 1;
    if (image->AcquireAccess(Image::ACCESS_WRITE, Image::PixelFormat(info.format), 0, &data) < 0) return false;
    std::memset(data.planes[0], 0x40, static_cast<size_t>(data.pitches[0]) * info.height);
    return image->ReleaseAccess(&data) >= 0 &&
           static_cast<Metadata*>(f->QueryInstance(Metadata::kIid))->AttachBuffer(0x2000, &stamp, 1) >= 0;
  };
  auto consume = [read](Base* f) {
    auto* image = static_cast<Image*>(f->QueryInstance(Image::kIid));
    Image::ImageData data{};
    uint8_t stamp = 0;
    if (static_cast<Metadata*>(f->QueryInstance(Metadata::kIid))->QueryBuffer(0x2000, &stamp, 1) < 0 ||
        image->AcquireAccess(Image::ACCESS_READ, read, 0, &data) < 0)
      return false;
    return image->ReleaseAccess(&data) >= 0 && stamp == 1;
  };
  return {name, std::chrono::microseconds(33333), make, produce, consume, 0, 0, {}};
}

Stream Audio(LMXAllocator* allocator, LMXAudioConversion* converter) {
  constexpr int32_t kChunk = 480 * 2;
  auto make = [allocator]() -> Base* {
    LMXAudio::AudioInfo info{kChunk, LMXAudio::AUDIO_FORMAT_PCM, 48000, 2, 3, {}};
    LMXAudio* audio = nullptr;
    return allocator->CreateAudio(&info, 0, nullptr, &audio) >= 0 ? audio : nullptr;
  };
  auto produce = [](Base* f) {
    auto* audio = static_cast<LMXAudio*>(f->QueryInstance(LMXAudio::kIid));
    LMXAudio::AudioData data{};
    if (audio->AcquireAccess(LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_PCM, 0, &data) < 0) return false;
    for (int32_t i = 0; i < kChunk; ++i) reinterpret_cast<int16_t*>(data.dataPtr)[i] = int16_t(i * 97 % 2000 - 1000);
    data.dataSize = kChunk;
    return audio->ReleaseAccess(&data) >= 0;
  };
  auto consume = [converter](Base* f) {
    LMXAudio* out = nullptr;
    const LMXAudio::AudioInfo mono16k{0, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, 0, {}};
    const bool ok =
        converter->ConvertAudio(static_cast<LMXAudio*>(f->QueryInstance(LMXAudio::kIid)), mono16k, out) >= 0;
    if (out) out->Release();
    return ok && out;
  };
  return {"48 kHz stereo -> 16 kHz mono", std::chrono::microseconds(10000), make, produce, consume, 0, 0, {}};
}

TEST(Soak, CameraSessionLosesNoFrameAndKeepsItsMemoryFlat) {
  const double seconds = std::getenv("LMX_SOAK_SECONDS") ? std::atof(std::getenv("LMX_SOAK_SECONDS")) : 5.0;
  lmxhost::HostSession session;
  Base* schedulerObject = lmxtest::Make(FourCC("CRSC"), &session);
  auto* allocator = static_cast<LMXAllocator*>(lmxtest::Make(FourCC("AEMU"), nullptr));
  auto* converter = static_cast<LMXAudioConversion*>(
      lmxtest::Make(FourCC("ACON"), reinterpret_cast<Session*>(static_cast<Base*>(allocator))));
  ASSERT_TRUE(schedulerObject && allocator && converter);
  auto* scheduler = static_cast<LMXScheduler*>(schedulerObject->QueryInstance(LMXScheduler::kIid));
  auto* service = static_cast<LMXSchedulerService*>(schedulerObject->QueryInstance(LMXSchedulerService::kIid));
  std::vector<Stream> streams = {Video("1080p YUY2 -> BGRA, metadata", allocator,
                                       {1920, 1080, Image::PIXEL_FORMAT_YUY2, 0}, Image::PIXEL_FORMAT_BGRA),
                                 Video("640x480 depth -> float, metadata", allocator,
                                       {640, 480, Image::PIXEL_FORMAT_DEPTH, 0}, Image::PIXEL_FORMAT_DEPTH_FLOAT),
                                 Audio(allocator, converter)};

  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  std::vector<std::thread> threads;
  for (Stream& stream : streams) {
    threads.emplace_back([&, &stream = stream] {
      // Paced at the stream's rate; a frame that overruns delays the next one.
      for (auto next = Clock::now(); Clock::now() < end; next += stream.period) {
        std::this_thread::sleep_until(next);
        ++stream.frames;
        stream.lost += !RunFrame(scheduler, service, stream);
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds / 4));
  const long warmKiB = ResidentKiB();
  long peakKiB = warmKiB;
  while (Clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    peakKiB = std::max(peakKiB, ResidentKiB());
  }
  for (auto& thread : threads) thread.join();

  std::printf(
      "soak %.0f s: RSS %ld KiB after warm-up, peak %ld KiB (%+.1f%%)\n| stream | frames | lost | p50 ms | p99 ms |\n",
      seconds, warmKiB, peakKiB, 100.0 * static_cast<double>(peakKiB - warmKiB) / static_cast<double>(warmKiB));
  for (Stream& s : streams) {
    std::sort(s.latencyMs.begin(), s.latencyMs.end());
    std::printf("| %s | %d | %d | %.2f | %.2f |\n", s.name, s.frames, s.lost, s.latencyMs[s.latencyMs.size() / 2],
                s.latencyMs[s.latencyMs.size() * 99 / 100]);
    EXPECT_GT(s.frames, 0) << s.name;
    EXPECT_EQ(s.lost, 0) << s.name;
  }
  if (seconds >= 30) {
    EXPECT_LE(peakKiB, warmKiB * 105 / 100 + kSlackKiB);
  }
  converter->Release();
  allocator->Release();
  schedulerObject->Release();
}

}  // namespace
