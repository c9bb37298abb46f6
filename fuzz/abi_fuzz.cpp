// Fuzz target: the library as a hostile host drives it, through nothing but its
// export table and the interfaces its factories hand out: an arbitrary sequence
// of operations over the allocator's images (their access is image_object_fuzz's)
// and audio objects, the audio converter and the scheduler (outputs marked,
// requests, sync points created, signalled and waited on with any counts), with
// small valid integers or extremes (INT_MIN, -1, 0, 1, INT_MAX, ...).
//
// Invariants: every status is a table value; every acquisition is released, so
// every object's count is back at one before its last release; every request runs
// once; nothing leaks (LeakSanitizer). Waits on sync points that may never be
// signalled use time-outs of 0 or 1 ms.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "fuzz_support.h"
#include "host_session.h"
#include "lmxallocator.h"
#include "lmxaudio.h"
#include "lmxscheduler.h"

extern Norvik::Lumetra::Service::DLLExportTable LMXDLLExportTable;

using namespace Norvik::Lumetra;
using ImageInfo = Image::ImageInfo;

namespace {

using lmxfuzz::CountOf;
using lmxfuzz::Verified;

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kExtremes[] = {kMin, kMin + 1, -65536, -32768, -2, -1, 0, 1, 32767, 32768, 1 << 30, kMax};
constexpr size_t kMaxObjects = 3;
constexpr int kOutputs = 8;

// Mostly a value in lo..hi, else an extreme or any value.
int32_t ConsumeInt(FuzzedDataProvider& input, int32_t lo, int32_t hi) {
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0: return input.PickValueInArray(kExtremes);
    case 1: return input.ConsumeIntegral<int32_t>();
    default: return input.ConsumeIntegralInRange(lo, hi);
  }
}

Status ConsumeTableStatus(FuzzedDataProvider& input) {
  static constexpr Status kStatuses[] = {
      LMX_STATUS_NO_ERROR,       LMX_STATUS_EXEC_INPROGRESS, LMX_STATUS_FEATURE_UNSUPPORTED,
      LMX_STATUS_HANDLE_INVALID, LMX_STATUS_EXEC_ABORTED,    LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET,
      LMX_STATUS_TIME_GAP,       LMX_STATUS_PROCESS_FAILED};
  return input.PickValueInArray(kStatuses);
}

LMXSyncPointService* Producer(LMXSyncPoint* sp) {
  return static_cast<LMXSyncPointService*>(sp->QueryInstance(LMXSyncPointService::kIid));
}

// A task that runs on the submitting thread and counts its runs.
class InlineTask final : public LMXSchedulerService::Callback {
 public:
  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  Status Run(Status sts) override {
    Verified(sts);
    ++runs;
    return LMX_STATUS_NO_ERROR;
  }
  const wchar_t* QueryName() override { return L"(inline) fuzz task"; }
  int runs = 0;
};

struct Held {
  LMXAudio* audio;
  std::unique_ptr<LMXAudio::AudioData> data;
};

// One input's run: the objects the table made and everything made from them.
struct Driver {
  explicit Driver(FuzzedDataProvider& input) : in(input) {}
  template <class T>
  T* Pick(const std::vector<T*>& objects) {
    return objects.empty() ? nullptr : objects[in.ConsumeIntegralInRange<size_t>(0, objects.size() - 1)];
  }

  FuzzedDataProvider& in;
  lmxhost::HostSession session{lmxhost::HostSession::WithoutService{}};
  std::vector<Base*> entries;  // one object per table entry
  LMXAllocator* allocator = nullptr;
  LMXSchedulerService* scheduler = nullptr;
  LMXAudioConversion* converter = nullptr;
  std::vector<Image*> images;
  std::vector<LMXAudio*> audios;
  std::vector<Held> held;
  std::vector<LMXSyncPoint*> syncPoints;
  std::vector<bool> signalled;
  int outputKeys[kOutputs] = {};
  void* outputs[kOutputs] = {};
  InlineTask task;
  int requested = 0;

  // The table lists the scheduler, the allocator and then the audio converter, which
  // creates its destinations with the allocator the session answers.
  bool Create() {
    for (int i = 0; i < kOutputs; ++i) outputs[i] = &outputKeys[i];
    for (auto* entry = &LMXDLLExportTable; entry; entry = entry->next) {
      Base* object = nullptr;
      Check(Verified(entry->factory(&session, nullptr, nullptr, entry, 0, &object)) == LMX_STATUS_NO_ERROR);
      entries.push_back(object);
      if (auto* face = object->QueryInstance<LMXAllocator>()) session.SetAllocator(allocator = face);
      if (auto* face = object->QueryInstance<LMXSchedulerService>()) scheduler = face;
      if (auto* face = object->QueryInstance<LMXAudioConversion>()) converter = face;
    }
    return allocator && scheduler && converter;
  }

  ~Driver() {
    for (auto& each : held) Verified(each.audio->ReleaseAccess(each.data.get()));
    std::vector<Base*> objects(images.begin(), images.end());
    objects.insert(objects.end(), audios.begin(), audios.end());
    for (Base* object : objects) {
      Check(CountOf(object) == 1);
      object->Release();
    }
    if (scheduler) {
      // Completing every output hands every registered request over: each request ran once.
      Verified(scheduler->MarkOutputs(kOutputs, outputs, LMX_STATUS_NO_ERROR));
      Check(task.runs == requested);
    }
    for (LMXSyncPoint* sp : syncPoints) {
      Verified(Producer(sp)->SignalSyncPoint(LMX_STATUS_NO_ERROR));
      sp->Release();
    }
    for (Base* object : entries) object->Release();
  }

  void Step() {
    switch (in.ConsumeIntegralInRange(0, 6)) {
      case 0: CreateImage(); break;
      case 1: CreateAudio(); break;
      case 2: AccessAudio(); break;
      case 3: ConvertAudio(); break;
      case 4: case 5: Schedule(); break;
      default: Wait(); break;
    }
  }

  void CreateImage() {
    if (images.size() >= kMaxObjects) return;
    ImageInfo info{ConsumeInt(in, 1, 64), ConsumeInt(in, 1, 64), lmxfuzz::ConsumeFormatKey(in), ConsumeInt(in, 0, 0)};
    Image* image = nullptr;
    const Status sts = Verified(allocator->CreateImage(in.ConsumeBool() ? &info : nullptr, ConsumeInt(in, 0, 3), nullptr,
                                                       in.ConsumeIntegralInRange(0, 15) ? &image : nullptr));
    Check((sts >= 0) == (image != nullptr));
    if (image) images.push_back(image);
  }

  void CreateAudio() {
    if (audios.size() >= kMaxObjects) return;
    static constexpr int32_t kFormats[] = {LMXAudio::AUDIO_FORMAT_PCM, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT};
    const auto format =
        static_cast<LMXAudio::AudioFormat>(in.ConsumeBool() ? in.PickValueInArray(kFormats) : in.ConsumeIntegral<int32_t>());
    // Sizes of gigabytes are allocated in earnest: only sample counts whose 32-bit
    // byte count overflows are extreme.
    int32_t samples = ConsumeInt(in, 0, 4096);
    if (samples > 4096 && LMXAudio::SampleBytes(format) * int64_t{samples} <= kMax) samples = 4096;
    LMXAudio::AudioInfo info{samples, format, ConsumeInt(in, 8000, 48000), ConsumeInt(in, 1, 3), 0, {}};
    LMXAudio* audio = nullptr;
    const Status sts = Verified(allocator->CreateAudio(&info, ConsumeInt(in, 0, 0), nullptr, &audio));
    Check((sts >= 0) == (audio != nullptr));
    if (audio) audios.push_back(audio);
  }

  void AccessAudio() {
    LMXAudio* audio = Pick(audios);
    if (!audio) return;
    if (in.ConsumeIntegralInRange(0, 3) == 0) {
      if (LMXAudio* other = Pick(audios)) Verified(audio->CopyAudio(other));
      return;
    }
    const auto access = static_cast<LMXAudio::Access>(ConsumeInt(in, 1, 3));
    const auto format = static_cast<LMXAudio::AudioFormat>(in.ConsumeBool() ? 0 : audio->QueryInfo().format);
    auto data = std::make_unique<LMXAudio::AudioData>();
    if (Verified(audio->AcquireAccess(access, format, ConsumeInt(in, 0, 0), data.get())) < 0) return;
    const int32_t capacity = audio->QueryInfo().bufferSize;
    volatile uint8_t sink = 0;
    const int64_t readable = int64_t{data->dataSize} * LMXAudio::SampleBytes(data->format);
    for (int64_t i = 0; data->dataPtr && i < readable; ++i) sink = sink + data->dataPtr[i];
    if (access & LMXAudio::ACCESS_WRITE) {
      if (data->dataPtr && capacity > 0)
        std::memset(data->dataPtr, 1, static_cast<size_t>(capacity) * LMXAudio::SampleBytes(data->format));
      data->dataSize = ConsumeInt(in, 0, capacity > 0 ? capacity : 0);  // beyond it is clamped
    } else if (held.size() < 2 && in.ConsumeBool()) {
      held.push_back({audio, std::move(data)});
      return;
    }
    Verified(audio->ReleaseAccess(data.get()));
  }

  void ConvertAudio() {
    LMXAudio* src = Pick(audios);
    if (!src) return;
    LMXAudio::AudioInfo dst_info{0, LMXAudio::AUDIO_FORMAT_PCM, ConsumeInt(in, 8000, 48000), ConsumeInt(in, 1, 2), 0, {}};
    if (in.ConsumeIntegralInRange(0, 7) == 0) dst_info.format = static_cast<LMXAudio::AudioFormat>(in.ConsumeIntegral<int32_t>());
    if (in.ConsumeBool()) {
      // The arrays hold 64 samples: counts that do not fit them must be refused.
      int16_t samples[64] = {};
      const int32_t frames = ConsumeInt(in, 0, 64 / 3);
      LMXAudio::AudioInfo src_info{0, LMXAudio::AUDIO_FORMAT_PCM, 0, ConsumeInt(in, 1, 3), 0, {}};
      if (frames > 0 && int64_t{frames} * src_info.nchannels > 64) src_info.nchannels = -(src_info.nchannels & 0xFFFF);
      Verified(converter->MixChannels(samples, src_info, samples, dst_info, frames));
      return;
    }
    LMXAudio* dst = nullptr;
    Verified(converter->ConvertAudio(src, dst_info, dst));
    if (dst) {
      Check(CountOf(dst) == 1);
      dst->Release();
    }
  }

  void Schedule() {
    auto* tasks = static_cast<LMXScheduler*>(scheduler->QueryInstance(LMXScheduler::kIid));
    Check(tasks != nullptr);
    // Counts beyond the array are negative: the library must refuse them unread.
    int32_t n = ConsumeInt(in, 0, kOutputs);
    if (n > kOutputs) n = n == kMax ? kMin : -n;
    void** list = in.ConsumeIntegralInRange(0, 15) ? outputs + in.ConsumeIntegralInRange(0, kOutputs - (n > 0 ? n : 0)) : nullptr;
    switch (in.ConsumeIntegralInRange(0, 4)) {
      case 0: Verified(scheduler->MarkOutputs(n, list, ConsumeTableStatus(in))); break;
      case 1:
        if (Verified(scheduler->RequestInputs(n, list, in.ConsumeIntegralInRange(0, 15) ? &task : nullptr)) >= 0) ++requested;
        break;
      case 2: {
        LMXSyncPoint* sp = nullptr;
        const bool out = syncPoints.size() < 6 && in.ConsumeIntegralInRange(0, 15) != 0;
        if (Verified(scheduler->CreateSyncPoint(n, list, out ? &sp : nullptr)) >= 0) {
          Check(sp != nullptr);
          syncPoints.push_back(sp), signalled.push_back(false);
        }
        break;
      }
      case 3:
        if (Verified(tasks->SubmitTask(in.ConsumeBool() ? &task : nullptr, ConsumeTableStatus(in))) >= 0) ++requested;
        Verified(tasks->SetOption(ConsumeInt(in, 0, 0)));
        break;
      default:
        if (!syncPoints.empty()) {
          const size_t i = in.ConsumeIntegralInRange<size_t>(0, syncPoints.size() - 1);
          Check(Verified(Producer(syncPoints[i])->SignalSyncPoint(ConsumeTableStatus(in))) == LMX_STATUS_NO_ERROR);
          signalled[i] = true;
        }
        break;
    }
  }

  void Wait() {
    if (syncPoints.empty()) return;
    const size_t i = in.ConsumeIntegralInRange<size_t>(0, syncPoints.size() - 1);
    // A wait that may have nothing to wait for polls or waits a millisecond.
    bool allSignalled = true;
    for (bool each : signalled) allSignalled = allSignalled && each;
    switch (in.ConsumeIntegralInRange(0, 2)) {
      case 0:
        Verified(syncPoints[i]->Synchronize(signalled[i] ? ConsumeInt(in, -1, 2) : in.ConsumeIntegralInRange(0, 1)));
        break;
      case 1:
        Verified(syncPoints[i]->QueryOutputStatus(in.ConsumeBool() ? outputs[in.ConsumeIntegralInRange(0, kOutputs - 1)] : nullptr));
        break;
      default: {
        // Arrays of exactly 64 entries: any count the library accepts stays inside
        // them, and a larger or negative one must be refused before they are read.
        const int32_t timeout = allSignalled ? ConsumeInt(in, -1, 2) : in.ConsumeIntegralInRange(0, 1);
        auto sps = std::make_unique<LMXSyncPoint*[]>(64);
        auto events = std::make_unique<void*[]>(64);
        for (int k = 0; k < 64; ++k) sps[k] = in.ConsumeBool() ? syncPoints[k % syncPoints.size()] : nullptr;
        const int32_t n1 = ConsumeInt(in, 0, 8), n2 = ConsumeInt(in, 0, 8);
        int32_t idx = -7;
        Verified(syncPoints[i]->SynchronizeExINT(n1, in.ConsumeIntegralInRange(0, 15) ? sps.get() : nullptr, n2,
                                                 in.ConsumeBool() ? events.get() : nullptr,
                                                 in.ConsumeBool() ? &idx : nullptr, timeout));
        Check(idx == -7 || (idx >= 0 && idx < 64));
        break;
      }
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  FuzzedDataProvider input(bytes, size);
  Driver driver(input);
  if (!driver.Create()) return 0;
  for (int step = 0; step < 40 && input.remaining_bytes() > 0; ++step) driver.Step();
  return 0;
}
