// A camera-like session for a fixed time, through the built library as a host
// loads it: four streams on one session's scheduler, each frame a new object
// handed from a producer task to a consumer chained on it by data, and waited for
// on a sync point. Colour: 1080p YUY2 read as BGRA. Depth: 640x480 read as float.
// Metadata: a record attached to every video frame and read back by its consumer.
// Audio: 10 ms of 48 kHz stereo per chunk, converted to 16 kHz mono.
// No frame may be lost, the resident set must stay flat after the warm-up, and
// the stage latencies (submission to consumer done) are printed.
// LMX_SOAK_SECONDS sets the duration (default 5). The resident set is judged only
// over runs of 30 s or more: a shorter run ends inside the allocator's warm-up.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "core_metadata.h"
#include "host_session.h"
#include "lmxallocator.h"
#include "lmxaudio.h"
#include "lmxscheduler.h"
#include "module_host.h"

namespace {

using namespace Norvik::Lumetra;
using Clock = std::chrono::steady_clock;

constexpr int32_t kFrameMetadata = 0x2000;

long ResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string key;
  long value = 0;
  while (status >> key) {
    if (key == "VmRSS:") return (status >> value) ? value : 0;
    status.ignore(1 << 10, '\n');
  }
  return 0;
}

// A host callback running a function once.
class Step final : public LMXSchedulerService::Callback {
 public:
  explicit Step(std::function<void(Status)> run) : run_(std::move(run)) {}
  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  Status Run(Status sts) override {
    run_(sts);
    return LMX_STATUS_NO_ERROR;
  }
  const wchar_t* QueryName() override { return L"soak stage"; }

 private:
  std::function<void(Status)> run_;
};

struct Library {
  lmxhost::Module module;
  lmxhost::HostSession session;
  Base* Make(uint32_t code, Session* s) {
    for (auto* e : module.Entries()) {
      Base* object = nullptr;
      if (e->desc.code == code && e->factory(s, nullptr, nullptr, e, 0, &object) >= 0) return object;
    }
    return nullptr;
  }
};

struct Stream {
  const char* name;
  int periodMicros;
  // Makes the frame's object (a new one each time); the producer fills it; the
  // consumer reads it and answers whether it got what was written.
  std::function<Base*()> make;
  std::function<bool(Base*)> produce;
  std::function<bool(Base*)> consume;
  int64_t frames = 0, lost = 0;
  std::vector<double> latencyMs;
};

// One frame through the chain: producer task -> consumer requested on the frame.
bool RunFrame(LMXScheduler* scheduler, LMXSchedulerService* service, Stream& stream) {
  Base* frame = stream.make();
  if (!frame) return false;
  void* key = frame;
  LMXSyncPoint* sp = nullptr;
  std::atomic<bool> good{true};
  const auto start = Clock::now();
  service->MarkOutputs(1, &key, LMX_STATUS_EXEC_INPROGRESS);
  service->CreateSyncPoint(1, &key, &sp);
  auto* signal = sp ? static_cast<LMXSyncPointService*>(sp->QueryInstance(LMXSyncPointService::kIid)) : nullptr;
  Step consumer([&](Status sts) {
    good = good && sts == LMX_STATUS_NO_ERROR && stream.consume(frame);
    signal->SignalSyncPoint(good ? LMX_STATUS_NO_ERROR : LMX_STATUS_PROCESS_FAILED);
  });
  Step producer([&](Status) {
    good = stream.produce(frame);
    service->MarkOutputs(1, &key, good ? LMX_STATUS_NO_ERROR : LMX_STATUS_DEVICE_FAILED);
  });
  const bool chained = signal && service->RequestInputs(1, &key, &consumer) >= 0 &&
                       scheduler->SubmitTask(&producer, LMX_STATUS_NO_ERROR) >= 0;
  const Status waited = chained ? sp->Synchronize(5000) : LMX_STATUS_HANDLE_INVALID;
  stream.latencyMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  if (waited == LMX_STATUS_EXEC_TIMEOUT) sp->Synchronize(-1);  // the callbacks still use this frame
  if (sp) sp->Release();
  const bool ok = waited == LMX_STATUS_NO_ERROR;
  frame->Release();
  return ok && good;
}

bool WriteImage(Base* object, Image::PixelFormat format, uint8_t fill) {
  auto* image = static_cast<Image*>(object->QueryInstance(Image::kIid));
  Image::ImageData data{};
  if (image->AcquireAccess(Image::ACCESS_WRITE, format, 0, &data) < 0) return false;
  Image::ImageInfo info{};
  image->QueryInfo(&info);
  std::memset(data.planes[0], fill, static_cast<size_t>(data.pitches[0]) * info.height);
  image->ReleaseAccess(&data);
  auto* metadata = static_cast<Metadata*>(object->QueryInstance(Metadata::kIid));
  return metadata->AttachBuffer(kFrameMetadata, &fill, 1) >= 0;
}

bool ReadImage(Base* object, Image::PixelFormat format) {
  auto* image = static_cast<Image*>(object->QueryInstance(Image::kIid));
  auto* metadata = static_cast<Metadata*>(object->QueryInstance(Metadata::kIid));
  uint8_t fill = 0;
  Image::ImageData data{};
  if (metadata->QueryBuffer(kFrameMetadata, &fill, 1) < 0) return false;
  if (image->AcquireAccess(Image::ACCESS_READ, format, 0, &data) < 0) return false;
  image->ReleaseAccess(&data);
  return fill != 0;
}

double Percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(p * static_cast<double>(values.size() - 1))];
}

TEST(Soak, CameraSessionLosesNoFrameAndKeepsItsMemoryFlat) {
  const char* env = std::getenv("LMX_SOAK_SECONDS");
  const double seconds = env ? std::atof(env) : 5.0;
  Library lib;
  ASSERT_TRUE(lib.module.Load(lmxhost::DefaultCoreLibraryPath()));
  Base* schedulerObject = lib.Make(FourCC("CRSC"), &lib.session);
  auto* allocator = static_cast<LMXAllocator*>(lib.Make(FourCC("AEMU"), nullptr));
  auto* converter = static_cast<LMXAudioConversion*>(
      lib.Make(FourCC("ACON"), reinterpret_cast<Session*>(static_cast<Base*>(allocator))));
  ASSERT_TRUE(schedulerObject && allocator && converter);
  auto* scheduler = static_cast<LMXScheduler*>(schedulerObject->QueryInstance(LMXScheduler::kIid));
  auto* service = static_cast<LMXSchedulerService*>(schedulerObject->QueryInstance(LMXSchedulerService::kIid));

  auto image = [allocator](int32_t width, int32_t height, Image::PixelFormat format) {
    return [=]() -> Base* {
      Image::ImageInfo info{width, height, format, 0};
      Image* created = nullptr;
      return allocator->CreateImage(&info, 0, nullptr, &created) >= 0 ? created : nullptr;
    };
  };
  constexpr int32_t kChunk = 480 * 2;  // 10 ms of 48 kHz stereo
  std::vector<Stream> streams = {
      {"1080p YUY2 -> BGRA, metadata", 33333, image(1920, 1080, Image::PIXEL_FORMAT_YUY2),
       [](Base* f) { return WriteImage(f, Image::PIXEL_FORMAT_YUY2, 0x80); },
       [](Base* f) { return ReadImage(f, Image::PIXEL_FORMAT_BGRA); }, 0, 0, {}},
      {"640x480 depth -> float, metadata", 33333, image(640, 480, Image::PIXEL_FORMAT_DEPTH),
       [](Base* f) { return WriteImage(f, Image::PIXEL_FORMAT_DEPTH, 0x10); },
       [](Base* f) { return ReadImage(f, Image::PIXEL_FORMAT_DEPTH_FLOAT); }, 0, 0, {}},
      {"48 kHz stereo -> 16 kHz mono", 10000,
       [allocator]() -> Base* {
         LMXAudio::AudioInfo info{kChunk, LMXAudio::AUDIO_FORMAT_PCM, 48000, 2, 3, {}};
         LMXAudio* created = nullptr;
         return allocator->CreateAudio(&info, 0, nullptr, &created) >= 0 ? created : nullptr;
       },
       [](Base* f) {
         auto* audio = static_cast<LMXAudio*>(f->QueryInstance(LMXAudio::kIid));
         LMXAudio::AudioData data{};
         if (audio->AcquireAccess(LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_PCM, 0, &data) < 0) return false;
         auto* samples = reinterpret_cast<int16_t*>(data.dataPtr);
         for (int32_t i = 0; i < kChunk; ++i) samples[i] = static_cast<int16_t>((i * 97) % 2000 - 1000);
         data.dataSize = kChunk;
         return audio->ReleaseAccess(&data) >= 0;
       },
       [converter](Base* f) {
         const LMXAudio::AudioInfo mono16k{0, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, 0, {}};
         LMXAudio* out = nullptr;
         const bool ok = converter->ConvertAudio(static_cast<LMXAudio*>(f->QueryInstance(LMXAudio::kIid)), mono16k,
                                                 out) >= 0 && out;
         if (out) out->Release();
         return ok;
       },
       0, 0, {}},
  };

  const auto start = Clock::now();
  const auto end = start + std::chrono::duration<double>(seconds);
  const auto warm = start + std::chrono::duration<double>(seconds / 4);
  std::atomic<long> warmKiB{0}, peakKiB{0};
  std::vector<std::thread> threads;
  for (Stream& stream : streams) {
    threads.emplace_back([&, &stream = stream] {
      // Paced at the stream's rate; a frame that overruns delays the next one.
      for (auto next = Clock::now(); Clock::now() < end; next += std::chrono::microseconds(stream.periodMicros)) {
        std::this_thread::sleep_until(next);
        ++stream.frames;
        if (!RunFrame(scheduler, service, stream)) ++stream.lost;
      }
    });
  }
  // The resident set once warm, then its peak over the rest of the run.
  std::this_thread::sleep_until(warm);
  warmKiB = ResidentKiB();
  while (Clock::now() < end) {
    peakKiB = std::max(peakKiB.load(), ResidentKiB());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  for (auto& t : threads) t.join();
  peakKiB = std::max(peakKiB.load(), ResidentKiB());

  std::printf("soak %.0f s: RSS %ld KiB after warm-up, peak %ld KiB (%+.1f%%)\n", seconds, warmKiB.load(),
              peakKiB.load(), 100.0 * (peakKiB - warmKiB) / static_cast<double>(warmKiB));
  std::printf("| stream | frames | lost | p50 ms | p99 ms |\n");
  for (const Stream& s : streams) {
    std::printf("| %s | %lld | %lld | %.2f | %.2f |\n", s.name, static_cast<long long>(s.frames),
                static_cast<long long>(s.lost), Percentile(s.latencyMs, 0.5), Percentile(s.latencyMs, 0.99));
    EXPECT_GT(s.frames, 0) << s.name;
    EXPECT_EQ(s.lost, 0) << s.name;
  }
  if (seconds >= 30) {
    EXPECT_LE(peakKiB.load(), warmKiB.load() * 105 / 100);
  }
  converter->Release();
  allocator->Release();
  schedulerObject->Release();
}

}  // namespace
