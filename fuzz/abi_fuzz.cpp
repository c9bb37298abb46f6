// Fuzz target: the library as a hostile host drives it through its export table
// and the faces its factories hand out: an arbitrary sequence of image operations
// (any description, format key, rotation; access, some held across later steps,
// export, import, copy, invalidation, plane queries) and scheduler operations
// (outputs, requests, sync points signalled and waited on with any counts), fed
// small valid integers or extremes.
//
// Invariants: every status is a table value; planes handed out are touched in
// full and caller planes keep their guards (see CallerPlanes); every object's
// count is back at one before its last release; every request runs once; nothing
// leaks. Waits that may never be signalled use time-outs of 0 or 1 ms.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "fuzz_support.h"
#include "host_session.h"
#include "lmxallocator.h"
#include "lmxscheduler.h"

extern Norvik::Lumetra::Service::DLLExportTable LMXDLLExportTable;

using namespace Norvik::Lumetra;
using ImageInfo = Image::ImageInfo;
using ImageData = Image::ImageData;

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
  const int kind = input.ConsumeIntegralInRange(0, 3);
  if (kind == 0) return input.PickValueInArray(kExtremes);
  return kind == 1 ? input.ConsumeIntegral<int32_t>() : input.ConsumeIntegralInRange(lo, hi);
}

Status ConsumeTableStatus(FuzzedDataProvider& input) {
  static constexpr Status kStatuses[] = {LMX_STATUS_NO_ERROR,       LMX_STATUS_EXEC_INPROGRESS,
                                         LMX_STATUS_HANDLE_INVALID, LMX_STATUS_EXEC_ABORTED,
                                         LMX_STATUS_TIME_GAP,       LMX_STATUS_PROCESS_FAILED};
  return input.PickValueInArray(kStatuses);
}

// Sides that pass the plane query, and sides small enough to touch every byte of.
bool Valid(int32_t width, int32_t height) { return width > 0 && height > 0 && width < 32768 && height < 32768; }
bool Describable(int32_t width, int32_t height) { return Valid(width, height) && int64_t{width} * height <= (1 << 16); }

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
  std::vector<Image*> images;
  std::vector<std::pair<Image*, std::unique_ptr<ImageData>>> heldImages;
  std::vector<std::unique_ptr<lmxfuzz::CallerPlanes>> adopted;  // outlive the images that adopt them
  std::vector<LMXSyncPoint*> syncPoints;
  std::vector<bool> signalled;
  int outputKeys[kOutputs] = {};
  void* outputs[kOutputs] = {};
  InlineTask task;
  int requested = 0;

  // Every entry of the table made by its factory; the session answers the allocator.
  bool Create() {
    for (int i = 0; i < kOutputs; ++i) outputs[i] = &outputKeys[i];
    for (auto* entry = &LMXDLLExportTable; entry; entry = entry->next) {
      Base* object = nullptr;
      Check(Verified(entry->factory(&session, nullptr, nullptr, entry, 0, &object)) == LMX_STATUS_NO_ERROR);
      entries.push_back(object);
      if (auto* face = object->QueryInstance<LMXAllocator>()) session.SetAllocator(allocator = face);
      if (auto* face = object->QueryInstance<LMXSchedulerService>()) scheduler = face;
    }
    return allocator && scheduler;
  }

  ~Driver() {
    for (auto& [image, data] : heldImages) Check(Verified(image->ReleaseAccess(data.get())) == LMX_STATUS_NO_ERROR);
    for (Image* object : images) {
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
    for (const auto& planes : adopted) Check(planes->Intact());
    for (Base* object : entries) object->Release();
  }

  // One operation; accesses and scheduling are drawn twice as often as the others.
  void Step() {
    static constexpr void (Driver::*kSteps[])() = {&Driver::CreateImage, &Driver::AccessImage, &Driver::AccessImage,
                                                   &Driver::UseImage,    &Driver::Schedule,    &Driver::Schedule,
                                                   &Driver::Wait};
    (this->*in.PickValueInArray(kSteps))();
  }

  // The plane layout of a key for a width x height image, and its plane count.
  int32_t Layout(Image* image, int32_t width, int32_t height, int32_t key, LMXImageService::PlaneInfo* layout) {
    ImageInfo info{width, height, key, 0};
    return static_cast<LMXImageService*>(image->QueryInstance(LMXImageService::kIid))->QueryPlaneInfo(&info, 0, layout);
  }
  // Caller planes for an image of these sides when it can be walked, else of one
  // guarded row that nothing may walk.
  std::unique_ptr<lmxfuzz::CallerPlanes> Caller(Image* image, const ImageInfo& info, int32_t key, bool upward) {
    const bool walkable = Describable(info.width, info.height);
    LMXImageService::PlaneInfo layout{};
    const int32_t count = Layout(image, walkable ? info.width : 1, walkable ? info.height : 1, key, &layout);
    return std::make_unique<lmxfuzz::CallerPlanes>(in, layout, count, key, upward);
  }

  void CreateImage() {
    if (images.size() >= kMaxObjects) return;
    ImageInfo info{ConsumeInt(in, 1, 64), ConsumeInt(in, 1, 64), lmxfuzz::ConsumeFormatKey(in), ConsumeInt(in, 0, 0)};
    // Valid sides stay small enough to touch every byte; invalid ones are extreme.
    if (Valid(info.width, info.height) && !Describable(info.width, info.height)) info.height = 1;
    ImageData* adopt = nullptr;
    if (!images.empty() && in.ConsumeBool())
      adopt = &adopted.emplace_back(Caller(images[0], info, info.format, false))->data;
    Image* image = nullptr;
    const Status sts = Verified(allocator->CreateImage(in.ConsumeBool() ? &info : nullptr, ConsumeInt(in, 0, 3), adopt,
                                                       in.ConsumeIntegralInRange(0, 15) ? &image : nullptr));
    Check((sts >= 0) == (image != nullptr));
    if (image) images.push_back(image);
  }

  // Acquire with any access, format key and rotation; touch; release now or later.
  void AccessImage() {
    Image* image = Pick(images);
    if (!image) return;
    static constexpr int32_t kAccess[] = {Image::ACCESS_READ, Image::ACCESS_WRITE, Image::ACCESS_READ_WRITE};
    const auto access =
        static_cast<Image::Access>(in.ConsumeBool() ? in.PickValueInArray(kAccess) : ConsumeInt(in, 0, 4));
    const auto format = static_cast<Image::PixelFormat>(in.ConsumeBool() ? 0 : lmxfuzz::ConsumeFormatKey(in));
    auto data = std::make_unique<ImageData>();
    if (Verified(image->AcquireAccess(access, format, ConsumeInt(in, 0, 360), data.get())) < 0) return;
    ImageInfo info{};
    Check(Verified(image->QueryInfo(&info)) == LMX_STATUS_NO_ERROR);
    if (Describable(info.width, info.height)) {
      LMXImageService::PlaneInfo layout{};
      const int32_t count = Layout(image, info.width, info.height, data->format, &layout);
      lmxfuzz::TouchPlanes(layout, count, *data, access & Image::ACCESS_WRITE);
    }
    if (!(access & Image::ACCESS_WRITE) && heldImages.size() < 4 && in.ConsumeBool()) {
      heldImages.emplace_back(image, std::move(data));
      return;
    }
    Check(Verified(image->ReleaseAccess(data.get())) == LMX_STATUS_NO_ERROR);
    // A double release is refused; side data holds no access and is let through.
    const Status again = Verified(image->ReleaseAccess(data.get()));
    Check(again == LMX_STATUS_HANDLE_INVALID || again == LMX_STATUS_NO_ERROR);
  }

  void UseImage() {
    Image* image = Pick(images);
    if (!image) return;
    ImageInfo info{};
    Verified(image->QueryInfo(&info));
    auto* service = static_cast<LMXImageService*>(image->QueryInstance(LMXImageService::kIid));
    const int op = in.ConsumeIntegralInRange(0, 2);
    if (op == 0) {  // export or import through caller planes of any key and mode, pitch 0 now and then
      auto caller = Caller(image, info, in.ConsumeBool() ? info.format : lmxfuzz::ConsumeFormatKey(in), true);
      if (in.ConsumeIntegralInRange(0, 7) == 0) caller->data.pitches[0] = 0;
      static constexpr int32_t kModes[] = {0, 1, 2, 3, 4, 6, 16, 18, 8};
      const int32_t mode = in.ConsumeBool() ? in.PickValueInArray(kModes) : ConsumeInt(in, 0, 31);
      Verified(in.ConsumeBool() ? image->ExportData(&caller->data, mode) : image->ImportData(&caller->data, mode));
      Check(caller->Intact());
    } else if (op == 1) {
      if (Image* other = Pick(images)) Verified(image->CopyImage(other));
    } else {  // every held format stale; the plane query with any description
      Verified(service->InvalidateData());
      ImageInfo query{ConsumeInt(in, 1, 64), ConsumeInt(in, 1, 64), lmxfuzz::ConsumeFormatKey(in), 0};
      LMXImageService::PlaneInfo planes{};
      const int32_t count = service->QueryPlaneInfo(&query, ConsumeInt(in, 0, 0), &planes);
      Check(count >= 0 && count <= 4);
      Verified(image->SetOptions(ConsumeInt(in, 0, 3)));
    }
  }

  void Schedule() {
    auto* tasks = static_cast<LMXScheduler*>(scheduler->QueryInstance(LMXScheduler::kIid));
    Check(tasks != nullptr);
    // Counts beyond the array are negative: the library must refuse them unread.
    int32_t n = ConsumeInt(in, 0, kOutputs);
    if (n > kOutputs) n = n == kMax ? kMin : -n;
    const int32_t offset = in.ConsumeIntegralInRange(0, kOutputs - (n > 0 ? n : 0));
    void** list = in.ConsumeIntegralInRange(0, 15) ? outputs + offset : nullptr;
    const int op = in.ConsumeIntegralInRange(0, 4);
    if (op == 0) {
      Verified(scheduler->MarkOutputs(n, list, ConsumeTableStatus(in)));
    } else if (op == 1) {
      if (Verified(scheduler->RequestInputs(n, list, in.ConsumeBool() ? &task : nullptr)) >= 0) ++requested;
    } else if (op == 2) {
      LMXSyncPoint* sp = nullptr;
      const bool out = syncPoints.size() < 6 && in.ConsumeIntegralInRange(0, 15) != 0;
      if (Verified(scheduler->CreateSyncPoint(n, list, out ? &sp : nullptr)) >= 0) {
        Check(sp != nullptr);
        syncPoints.push_back(sp), signalled.push_back(false);
      }
    } else if (op == 3) {
      if (Verified(tasks->SubmitTask(in.ConsumeBool() ? &task : nullptr, ConsumeTableStatus(in))) >= 0) ++requested;
      Verified(tasks->SetOption(ConsumeInt(in, 0, 0)));
    } else if (!syncPoints.empty()) {
      const size_t i = in.ConsumeIntegralInRange<size_t>(0, syncPoints.size() - 1);
      Check(Verified(Producer(syncPoints[i])->SignalSyncPoint(ConsumeTableStatus(in))) == LMX_STATUS_NO_ERROR);
      signalled[i] = true;
    }
  }

  void Wait() {
    if (syncPoints.empty()) return;
    const size_t i = in.ConsumeIntegralInRange<size_t>(0, syncPoints.size() - 1);
    // A wait that may have nothing to wait for polls or waits a millisecond.
    const bool allSignalled = std::find(signalled.begin(), signalled.end(), false) == signalled.end();
    if (!in.ConsumeBool()) {
      Verified(syncPoints[i]->Synchronize(signalled[i] ? ConsumeInt(in, -1, 2) : in.ConsumeIntegralInRange(0, 1)));
      Verified(syncPoints[i]->QueryOutputStatus(in.ConsumeBool() ? outputs[in.ConsumeIntegralInRange(0, kOutputs - 1)]
                                                                 : nullptr));
      return;
    }
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
