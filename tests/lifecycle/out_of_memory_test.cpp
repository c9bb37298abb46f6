// Out of memory, one allocation at a time: each scenario is a host's use of the
// library through its export table. For k = 1, 2, ... a child process fails the
// k-th allocation made inside a library call and checks that the call answered a
// status (no exception), that releasing everything frees every block and leaves
// the host's references as they were, and that the same scenario then succeeds.
// The walk ends at the first k that no call reaches.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <thread>

#include "lifecycle_support.h"
#include "lmxallocator.h"
#include "support/alloc_injector.h"
#include "unit/metadata_fakes.h"
#include "unit/scheduler_test_support.h"

namespace {

using namespace Norvik::Lumetra;
using lmxtest::Make;

// One pass of a scenario: every library call goes through Step, armed; after a
// failure the remaining steps are skipped and the scenario only cleans up.
struct Pass {
  bool Step(const std::function<Status()>& call) {
    if (stopped) return false;
    Status sts = LMX_STATUS_NO_ERROR;
    try {
      alloc_injector::Armed armed;
      sts = call();
    } catch (...) {
      thrown = true;
    }
    stopped = thrown || sts < 0;
    return !stopped;
  }
  bool stopped = false;
  bool thrown = false;
  bool silentPool = false;
  bool refsChanged = false;
};

Base* MakeArmed(Pass& pass, uint32_t code, Session* session) {
  Base* object = nullptr;
  pass.Step([&] {
    object = Make(code, session);
    return object ? LMX_STATUS_NO_ERROR : LMX_STATUS_ALLOC_FAILED;
  });
  return object;
}

// Writes format `from`, then reads each of `reads`, releasing every access.
void WriteThenRead(Pass& pass, Image* image, Image::PixelFormat from, std::initializer_list<Image::PixelFormat> reads) {
  Image::ImageData data{};
  if (!pass.Step([&] { return image->AcquireAccess(Image::ACCESS_WRITE, from, 0, &data); })) return;
  std::memset(data.planes[0], 0x40, static_cast<size_t>(data.pitches[0]));
  pass.Step([&] { return image->ReleaseAccess(&data); });
  for (auto format : reads) {
    if (!pass.Step([&] { return image->AcquireAccess(Image::ACCESS_READ, format, 0, &data); })) return;
    pass.Step([&] { return image->ReleaseAccess(&data); });
  }
}

void Images(Pass& pass) {
  auto* allocator = static_cast<LMXAllocator*>(MakeArmed(pass, FourCC("AEMU"), nullptr));
  Image* colour = nullptr;
  Image* depth = nullptr;
  lmxtest::FakeSerializable state(true, {1, 2, 3, 4}, 4);
  Image::ImageInfo info{64, 16, Image::PIXEL_FORMAT_YUY2, 0};
  pass.Step([&] { return allocator->CreateImage(&info, 0, nullptr, &colour); });
  if (colour)
    WriteThenRead(pass, colour, Image::PIXEL_FORMAT_YUY2, {Image::PIXEL_FORMAT_BGRA, Image::PIXEL_FORMAT_NV12});
  Image::ImageInfo depthInfo{32, 8, Image::PIXEL_FORMAT_DEPTH, 0};
  pass.Step([&] { return allocator->CreateImage(&depthInfo, 0, nullptr, &depth); });
  if (depth) WriteThenRead(pass, depth, Image::PIXEL_FORMAT_DEPTH, {Image::PIXEL_FORMAT_DEPTH_FLOAT});
  if (colour) {
    auto* metadata = static_cast<Metadata*>(colour->QueryInstance(Metadata::kIid));
    uint8_t bytes[16] = {7};
    pass.Step([&] { return metadata->AttachBuffer(0x1000, bytes, sizeof bytes); });
    pass.Step([&] { return metadata->AttachSerializable(0x1001, static_cast<LMXSerializableService*>(&state)); });
    pass.Step([&] { return metadata->QueryUID() < 0 ? LMX_STATUS_ITEM_UNAVAILABLE : LMX_STATUS_NO_ERROR; });
    pass.Step([&] { return metadata->QueryBufferSize(0x1001) > 0 ? LMX_STATUS_NO_ERROR : LMX_STATUS_ALLOC_FAILED; });
    pass.Step([&] { return metadata->QueryBuffer(0x1000, bytes, sizeof bytes); });
  }
  if (depth) depth->Release();
  if (colour) colour->Release();
  if (allocator) allocator->Release();
  pass.refsChanged = state.refs != 1;
}

void Audio(Pass& pass) {
  auto* allocator = static_cast<LMXAllocator*>(MakeArmed(pass, FourCC("AEMU"), nullptr));
  auto* converter = static_cast<LMXAudioConversion*>(
      MakeArmed(pass, FourCC("ACON"), reinterpret_cast<Session*>(static_cast<Base*>(allocator))));
  LMXAudio* pcm = nullptr;
  LMXAudio* copy = nullptr;
  LMXAudio* converted = nullptr;
  LMXAudio::AudioInfo info{960, LMXAudio::AUDIO_FORMAT_PCM, 48000, 2, 3, {}};
  pass.Step([&] { return allocator->CreateAudio(&info, 0, nullptr, &pcm); });
  pass.Step([&] { return allocator->CreateAudio(&info, 0, nullptr, &copy); });
  LMXAudio::AudioData data{};
  if (pass.Step([&] { return pcm->AcquireAccess(LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_PCM, 0, &data); })) {
    std::memset(data.dataPtr, 1, 960 * 2);
    data.dataSize = 960;
    pass.Step([&] { return pcm->ReleaseAccess(&data); });
  }
  if (pass.Step([&] { return pcm->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 0, &data); }))
    pass.Step([&] { return pcm->ReleaseAccess(&data); });
  pass.Step([&] { return copy->CopyAudio(pcm); });
  const LMXAudio::AudioInfo mono16k{0, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, 0, {}};
  pass.Step([&] { return converter->ConvertAudio(pcm, mono16k, converted); });
  for (LMXAudio* audio : {converted, copy, pcm})
    if (audio) audio->Release();
  if (converter) converter->Release();
  if (allocator) allocator->Release();
}

void Scheduler(Pass& pass) {
  lmxhost::HostSession session;
  Base* master = MakeArmed(pass, FourCC("CRSC"), &session);
  Base* follower = MakeArmed(pass, FourCC("CRSC"), &session);
  lmxtest::RecordingTask consumer, task;
  int frame = 0, result = 0;
  void* frameKey = &frame;
  void* keys[2] = {&frame, &result};
  LMXSyncPoint* sp = nullptr;
  if (master && follower) {
    auto* service = static_cast<LMXSchedulerService*>(follower->QueryInstance(LMXSchedulerService::kIid));
    auto* scheduler = static_cast<LMXScheduler*>(master->QueryInstance(LMXScheduler::kIid));
    pass.Step([&] { return service->MarkOutputs(2, keys, LMX_STATUS_EXEC_INPROGRESS); });
    pass.Step([&] { return service->CreateSyncPoint(2, keys, &sp); });
    // More consumers than one completion lists on the stack; once the frame is
    // marked done, every one of them runs.
    int consumers = 0;
    while (consumers < 40 && pass.Step([&] { return service->RequestInputs(1, &frameKey, &consumer); })) ++consumers;
    const bool completing = !pass.stopped;
    pass.Step([&] { return service->MarkOutputs(2, keys, LMX_STATUS_NO_ERROR); });
    pass.Step([&] { return lmxtest::SignalFace(sp)->SignalSyncPoint(LMX_STATUS_NO_ERROR); });
    pass.Step([&] { return sp->Synchronize(2000); });
    if (pass.Step([&] { return scheduler->SubmitTask(&task, LMX_STATUS_NO_ERROR); }))
      pass.silentPool = !task.WaitForRuns(1);
    if (completing) pass.silentPool |= !consumer.WaitForRuns(consumers);
  }
  if (sp) sp->Release();
  if (follower) follower->Release();
  if (master) master->Release();
}

// What one child reports, as exit-code bits.
enum : int { kInjected = 1, kThrown = 2, kLeaked = 4, kRetryFailed = 8, kSilentPool = 16 };

int Child(void (*scenario)(Pass&), uint64_t k) {
  alarm(30);  // a hang ends the child
  const int64_t before = alloc_injector::LiveBlocks();
  alloc_injector::FailAt(k);
  Pass failed;
  scenario(failed);
  const bool injected = alloc_injector::Injected();
  alloc_injector::FailAt(0);
  const bool leaked = alloc_injector::LiveBlocks() != before || failed.refsChanged;
  Pass retry;
  scenario(retry);
  return (injected ? kInjected : 0) | (failed.thrown ? kThrown : 0) | (leaked ? kLeaked : 0) |
         (retry.stopped || retry.silentPool ? kRetryFailed : 0) | (failed.silentPool ? kSilentPool : 0);
}

struct Tally {
  int points = 0, thrown = 0, leaked = 0, died = 0, silent = 0, retry = 0;
};

Tally Walk(void (*scenario)(Pass&)) {
  Pass warmUp;  // one-time statics are made here, before any child counts blocks
  scenario(warmUp);
  Tally tally;
  for (uint64_t k = 1; k < 5000; ++k) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) _exit(Child(scenario, k));
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status)) {
      std::fprintf(stderr, "k = %llu: ended by signal %d\n", static_cast<unsigned long long>(k), WTERMSIG(status));
      ++tally.points;
      ++tally.died;
      continue;
    }
    const int bits = WEXITSTATUS(status);
    if (bits & ~kInjected)
      std::fprintf(stderr, "k = %llu: %s%s%s%s\n", static_cast<unsigned long long>(k),
                   bits & kThrown ? " exception" : "", bits & kLeaked ? " leak" : "",
                   bits & kSilentPool ? " silent pool" : "", bits & kRetryFailed ? " retry failed" : "");
    if (!(bits & kInjected)) break;
    ++tally.points;
    tally.thrown += (bits & kThrown) != 0;
    tally.leaked += (bits & kLeaked) != 0;
    tally.silent += (bits & kSilentPool) != 0;
    tally.retry += (bits & kRetryFailed) != 0;
  }
  return tally;
}

TEST(OutOfMemory, EveryFailedAllocationIsAStatusAndLeavesNothingBehind) {
  const struct {
    const char* name;
    void (*scenario)(Pass&);
  } scenarios[] = {{"images, conversion, metadata", &Images},
                   {"audio, copy, converter", &Audio},
                   {"scheduler factory, chains, sync points", &Scheduler}};
  std::printf(
      "| scenario | allocation points | exception through an interface | leak | terminate | silent pool | retry failed "
      "|\n");
  for (const auto& s : scenarios) {
    const Tally t = Walk(s.scenario);
    std::printf("| %s | %d | %d | %d | %d | %d | %d |\n", s.name, t.points, t.thrown, t.leaked, t.died, t.silent,
                t.retry);
    EXPECT_GT(t.points, 0) << s.name;
    EXPECT_EQ(t.thrown + t.leaked + t.died + t.silent + t.retry, 0) << s.name;
  }
}

// With every worker held, 1,100 consumers overflow the task queue's first ring;
// the one push whose growth fails runs its consumer on the completing thread
// rather than drop it.
TEST(OutOfMemory, AQueueThatCannotGrowLosesNoConsumer) {
  lmxhost::HostSession session;
  Base* object = Make(FourCC("CRSC"), &session);
  ASSERT_NE(object, nullptr);
  auto* service = static_cast<LMXSchedulerService*>(object->QueryInstance(LMXSchedulerService::kIid));
  auto* scheduler = static_cast<LMXScheduler*>(object->QueryInstance(LMXScheduler::kIid));
  std::atomic<int> held{0};
  std::atomic<bool> open{false};
  struct Opener {
    std::atomic<bool>& open;
    ~Opener() { open = true; }  // a failed assertion lets the workers go too
  } opener{open};
  lmxtest::RecordingTask holder(nullptr, [&](Status) {
    ++held;
    while (!open) std::this_thread::yield();
  });
  const int workers = static_cast<int>(std::thread::hardware_concurrency());
  for (int i = 0; i < workers; ++i) ASSERT_EQ(scheduler->SubmitTask(&holder, LMX_STATUS_NO_ERROR), LMX_STATUS_NO_ERROR);
  for (int waited = 0; held < workers && waited < 2000; ++waited)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  int frame = 0;
  void* key = &frame;
  lmxtest::RecordingTask consumer;
  ASSERT_EQ(service->MarkOutputs(1, &key, LMX_STATUS_EXEC_INPROGRESS), LMX_STATUS_NO_ERROR);
  for (int i = 0; i < 1100; ++i) ASSERT_EQ(service->RequestInputs(1, &key, &consumer), LMX_STATUS_NO_ERROR);
  alloc_injector::FailAt(1);
  {
    alloc_injector::Armed armed;
    EXPECT_EQ(service->MarkOutputs(1, &key, LMX_STATUS_NO_ERROR), LMX_STATUS_NO_ERROR);
  }
  EXPECT_TRUE(alloc_injector::Injected());
  alloc_injector::FailAt(0);
  EXPECT_EQ(consumer.Runs(), 1) << "the refused consumer runs at once";
  open = true;
  EXPECT_TRUE(consumer.WaitForRuns(1100));
  object->Release();
}

}  // namespace
