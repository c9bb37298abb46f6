// Fuzz target: the library as a hostile host drives it, through nothing but its
// export table and the interfaces the factories hand out. Each entry of the table
// is created by its factory; then an arbitrary sequence of operations runs over
// the allocator (images of every format and rotation, audio objects), image
// access, export, import and copy, each image's metadata store, the scheduler
// (outputs marked and completed, requests, sync points created, signalled and
// waited on with any counts) and the audio converter. Integers are small valid
// values or the extremes INT_MIN, -1, 0, 1, INT_MAX and values whose products
// overflow 64 bits.
//
// Invariants: every status is one of the status table's values (the fuzzer only
// signals and marks with such values); no byte around or between the rows of a
// caller's planes is written; every acquisition is released, so every object's
// count is back at one before its last release; nothing leaks (LeakSanitizer).
// Waits on sync points that may never be signalled use time-outs of 0 or 1 ms.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "core_metadata.h"
#include "fuzz_support.h"
#include "lmxallocator.h"
#include "lmxaudio.h"
#include "lmxscheduler.h"
#include "lmxsession.h"
#include "lmxutils.h"

extern Norvik::Lumetra::Service::DLLExportTable LMXDLLExportTable;

using namespace Norvik::Lumetra;
using ImageInfo = Image::ImageInfo;
using ImageData = Image::ImageData;

namespace {

using lmxfuzz::CountOf;

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kExtremes[] = {kMin, kMin + 1, -65536, -32768, -2, -1, 0, 1, 32767, 32768, 1 << 30, kMax};
constexpr int kMaxObjects = 3;
constexpr int kOutputs = 8;
constexpr uint8_t kGuard = 0xA5;
constexpr int32_t kGuardBytes = 32;

// Mostly a value in lo..hi, else an extreme or any value.
int32_t ConsumeInt(FuzzedDataProvider& input, int32_t lo, int32_t hi) {
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0: return input.PickValueInArray(kExtremes);
    case 1: return input.ConsumeIntegral<int32_t>();
    default: return input.ConsumeIntegralInRange(lo, hi);
  }
}

bool IsTableStatus(Status sts) { return GetStatusText(sts) != reinterpret_cast<const char*>(kUnknownStatusText); }

Status Verified(Status sts) {
  Check(IsTableStatus(sts));
  return sts;
}

Status ConsumeTableStatus(FuzzedDataProvider& input) {
  static constexpr Status kStatuses[] = {LMX_STATUS_NO_ERROR,        LMX_STATUS_EXEC_INPROGRESS,
                                         LMX_STATUS_FEATURE_UNSUPPORTED, LMX_STATUS_HANDLE_INVALID,
                                         LMX_STATUS_EXEC_ABORTED,    LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET,
                                         LMX_STATUS_TIME_GAP,        LMX_STATUS_PROCESS_FAILED};
  return input.PickValueInArray(kStatuses);
}

// Whether sides pass the plane query's size checks (a negative one does not, here).
bool Valid(int32_t width, int32_t height) { return width > 0 && height > 0 && width < 32768 && height < 32768; }

// Whether a side pair is an image small enough to touch every byte of.
bool Describable(int32_t width, int32_t height) { return Valid(width, height) && int64_t{width} * height <= (1 << 16); }

// Caller planes in one block, each plane between guard bytes and every row's
// padding (pitch beyond the row) filled with the guard value too.
struct GuardedPlanes {
  ImageData data{};
  std::vector<uint8_t> block;
  struct Span { size_t offset; int64_t row; int64_t rows; int32_t pitch; };
  std::vector<Span> spans;

  GuardedPlanes(FuzzedDataProvider& input, LMXImageService* service, int32_t width, int32_t height, int32_t key) {
    data.format = key;
    ImageInfo info{width, height, key, 0};
    LMXImageService::PlaneInfo layout{};
    const int32_t count = service->QueryPlaneInfo(&info, 0, &layout);
    size_t size = kGuardBytes;
    for (int32_t c = 0; c < count; ++c) {
      const int64_t row = int64_t{layout.plane[c].width} * layout.plane[c].bytesPerPixel;
      const int32_t pitch = static_cast<int32_t>(row + input.ConsumeIntegralInRange(0, 5));
      spans.push_back({size, row, layout.plane[c].height, pitch});
      size += static_cast<size_t>(pitch) * layout.plane[c].height + kGuardBytes;
    }
    block.assign(size, kGuard);
    for (size_t c = 0; c < spans.size(); ++c) {
      data.planes[c] = block.data() + spans[c].offset;
      data.pitches[c] = spans[c].pitch;
      for (int64_t y = 0; y < spans[c].rows; ++y)
        for (int64_t x = 0; x < spans[c].row; ++x) data.planes[c][y * spans[c].pitch + x] = static_cast<uint8_t>(x + y);
    }
    if (spans.empty()) data.planes[0] = block.data(), data.pitches[0] = 1;  // a plane the image must not walk
  }

  // Every byte outside the rows still holds the guard value.
  void CheckGuards() const {
    size_t at = 0;
    for (const Span& span : spans) {
      for (; at < span.offset; ++at) Check(block[at] == kGuard);
      for (int64_t y = 0; y < span.rows; ++y, at += span.pitch)
        for (int64_t x = span.row; x < span.pitch; ++x) Check(block[at + x] == kGuard);
    }
    for (; at < block.size(); ++at) Check(spans.empty() || block[at] == kGuard);
  }
};

// The host's session: offers no session service (the scheduler keeps a private
// master) and answers the allocator interface with the table's allocator, which
// the audio converter creates its destinations with.
class HostSession final : public Session {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == LMXAllocator::kIid) return allocator;
    return iid == 0 ? this : nullptr;
  }
  void Release() override {}
  Status QueryImpl(const Service::ImplDesc*, int32_t, Service::ImplDesc*) override {
    return LMX_STATUS_ITEM_UNAVAILABLE;
  }
  Status CreateImpl(const Service::ImplDesc*, InterfaceId, Base**) override { return LMX_STATUS_ITEM_UNAVAILABLE; }
  LMXAllocator* allocator = nullptr;
};

// A task that runs on the submitting thread and counts its runs.
class InlineTask final : public LMXSchedulerService::Callback {
 public:
  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  Status Run(Status sts) override {
    Check(IsTableStatus(sts));
    ++runs;
    return LMX_STATUS_NO_ERROR;
  }
  const wchar_t* QueryName() override { return L"(inline) fuzz task"; }
  int runs = 0;
};

// Touches every byte an image acquisition handed out, when its sides allow.
void TouchImage(LMXImageService* service, const ImageInfo& info, const ImageData& data, bool writing) {
  if (!Describable(info.width, info.height)) return;
  ImageInfo layoutInfo{info.width, info.height, data.format, 0};
  LMXImageService::PlaneInfo layout{};
  lmxfuzz::TouchPlanes(layout, service->QueryPlaneInfo(&layoutInfo, 0, &layout), data, writing);
}

struct HeldImage { Image* image; std::unique_ptr<ImageData> data; };
struct HeldAudio { LMXAudio* audio; std::unique_ptr<LMXAudio::AudioData> data; };
struct SyncPoint { LMXSyncPoint* sp; bool signalled; };

class Driver {
 public:
  explicit Driver(FuzzedDataProvider& input) : in(input) {}
  ~Driver();
  bool Create();
  void Step();

 private:
  void CreateImageObject();
  void AccessImage();
  void TransferImage();
  void UseMetadata();
  void CreateAudioObject();
  void AccessAudio();
  void ConvertAudio();
  void Schedule();
  void Wait();

  Image* PickImage() { return images.empty() ? nullptr : images[in.ConsumeIntegralInRange<size_t>(0, images.size() - 1)]; }
  LMXAudio* PickAudio() { return audios.empty() ? nullptr : audios[in.ConsumeIntegralInRange<size_t>(0, audios.size() - 1)]; }
  int32_t ConsumeFormatKey() { return lmxfuzz::ConsumeFormatKey(in); }

  FuzzedDataProvider& in;
  HostSession session;
  LMXAllocator* allocator = nullptr;
  Base* scheduler = nullptr;
  Image* layoutImage = nullptr;
  LMXImageService* layout = nullptr;
  LMXAudioConversion* converter = nullptr;
  std::vector<Image*> images;
  std::vector<std::unique_ptr<GuardedPlanes>> adopted;  // outlive the images that adopt them
  std::vector<LMXAudio*> audios;
  std::vector<HeldImage> heldImages;
  std::vector<HeldAudio> heldAudios;
  std::vector<SyncPoint> syncPoints;
  int outputKeys[kOutputs] = {};
  void* outputs[kOutputs] = {};
  InlineTask task;
  int requested = 0;
};

bool Driver::Create() {
  for (int i = 0; i < kOutputs; ++i) outputs[i] = &outputKeys[i];
  // The table lists the scheduler, the allocator and the audio converter; the
  // converter is made last, with the session that answers the allocator.
  for (auto* entry = &LMXDLLExportTable; entry; entry = entry->next) {
    Check(entry->factory != nullptr);
    if (entry->desc.iids[0] == static_cast<int32_t>(LMXAllocator::kIid)) {
      Base* object = nullptr;
      Check(Verified(entry->factory(&session, nullptr, nullptr, entry, 0, &object)) == LMX_STATUS_NO_ERROR);
      allocator = session.allocator = static_cast<LMXAllocator*>(object);
    } else if (entry->desc.iids[1] == static_cast<int32_t>(LMXSchedulerService::kIid)) {
      Check(Verified(entry->factory(&session, nullptr, nullptr, entry, 0, &scheduler)) == LMX_STATUS_NO_ERROR);
    }
  }
  for (auto* entry = &LMXDLLExportTable; entry; entry = entry->next) {
    if (entry->desc.iids[0] != static_cast<int32_t>(LMXAudioConversion::kIid)) continue;
    Base* object = nullptr;
    Check(Verified(entry->factory(&session, nullptr, nullptr, entry, 0, &object)) == LMX_STATUS_NO_ERROR);
    converter = static_cast<LMXAudioConversion*>(object);
  }
  if (!allocator || !scheduler || !converter) return false;
  // A plain image whose service face answers the plane queries of caller planes.
  ImageInfo info{1, 1, Image::PIXEL_FORMAT_Y8, 0};
  Check(Verified(allocator->CreateImage(&info, 0, nullptr, &layoutImage)) == LMX_STATUS_NO_ERROR);
  layout = static_cast<LMXImageService*>(layoutImage->QueryInstance(LMXImageService::kIid));
  return layout != nullptr;
}

Driver::~Driver() {
  for (auto& held : heldImages) Check(Verified(held.image->ReleaseAccess(held.data.get())) == LMX_STATUS_NO_ERROR);
  for (auto& held : heldAudios) Verified(held.audio->ReleaseAccess(held.data.get()));
  for (Image* image : images) {
    Check(CountOf(image) == 1);
    image->Release();
  }
  for (LMXAudio* audio : audios) {
    Check(CountOf(audio) == 1);
    audio->Release();
  }
  if (auto* service = scheduler ? scheduler->QueryInstance<LMXSchedulerService>() : nullptr) {
    // Completing every output hands every registered request over: each request ran once.
    Verified(service->MarkOutputs(kOutputs, outputs, LMX_STATUS_NO_ERROR));
    Check(task.runs == requested);
  }
  for (SyncPoint& point : syncPoints) {
    auto* producer = static_cast<LMXSyncPointService*>(point.sp->QueryInstance(LMXSyncPointService::kIid));
    Verified(producer->SignalSyncPoint(LMX_STATUS_NO_ERROR));
    point.sp->Release();
  }
  for (const auto& planes : adopted) planes->CheckGuards();
  if (layoutImage) layoutImage->Release();
  if (converter) converter->Release();
  if (scheduler) scheduler->Release();
  if (allocator) allocator->Release();
}

void Driver::Step() {
  switch (in.ConsumeIntegralInRange(0, 9)) {
    case 0: CreateImageObject(); break;
    case 1: case 2: AccessImage(); break;
    case 3: TransferImage(); break;
    case 4: UseMetadata(); break;
    case 5: CreateAudioObject(); break;
    case 6: AccessAudio(); break;
    case 7: ConvertAudio(); break;
    case 8: Schedule(); break;
    default: Wait(); break;
  }
}

void Driver::CreateImageObject() {
  if (images.size() >= kMaxObjects) return;
  ImageInfo info{ConsumeInt(in, 1, 64), ConsumeInt(in, 1, 64), ConsumeFormatKey(), ConsumeInt(in, 0, 0)};
  // Valid sides stay small enough to touch every byte; invalid ones are extreme.
  if (Valid(info.width, info.height) && !Describable(info.width, info.height)) info.height = 1;
  ImageData* adopt = nullptr;
  if (in.ConsumeBool()) {
    // Planes of the right size when the description can be walked, else a plane
    // of one guarded row that nothing may walk.
    const bool walkable = Describable(info.width, info.height);
    adopted.push_back(std::make_unique<GuardedPlanes>(in, layout, walkable ? info.width : 1,
                                                      walkable ? info.height : 1, info.format));
    adopt = &adopted.back()->data;
  }
  Image* image = nullptr;
  const Status sts = Verified(allocator->CreateImage(in.ConsumeBool() ? &info : nullptr, ConsumeInt(in, 0, 3), adopt,
                                                     in.ConsumeIntegralInRange(0, 15) ? &image : nullptr));
  Check((sts >= 0) == (image != nullptr));
  if (image) images.push_back(image);
}

void Driver::AccessImage() {
  Image* image = PickImage();
  if (!image) return;
  static constexpr int32_t kAccess[] = {Image::ACCESS_READ, Image::ACCESS_WRITE, Image::ACCESS_READ_WRITE};
  const auto access = static_cast<Image::Access>(in.ConsumeBool() ? in.PickValueInArray(kAccess) : ConsumeInt(in, 0, 4));
  const auto format = static_cast<Image::PixelFormat>(in.ConsumeBool() ? 0 : ConsumeFormatKey());
  auto data = std::make_unique<ImageData>();
  if (Verified(image->AcquireAccess(access, format, ConsumeInt(in, 0, 360), data.get())) < 0) return;
  ImageInfo info{};
  Check(Verified(image->QueryInfo(&info)) == LMX_STATUS_NO_ERROR);
  auto* service = static_cast<LMXImageService*>(image->QueryInstance(LMXImageService::kIid));
  TouchImage(service, info, *data, access & Image::ACCESS_WRITE);
  // Only reads are held: anything after a held write waits out the write time-out.
  if (!(access & Image::ACCESS_WRITE) && heldImages.size() < 4 && in.ConsumeBool()) {
    heldImages.push_back({image, std::move(data)});
  } else {
    Check(Verified(image->ReleaseAccess(data.get())) == LMX_STATUS_NO_ERROR);
    // A double release is refused; side data holds no access and is let through.
    const Status again = Verified(image->ReleaseAccess(data.get()));
    Check(again == LMX_STATUS_HANDLE_INVALID || again == LMX_STATUS_NO_ERROR);
  }
}

void Driver::TransferImage() {
  Image* image = PickImage();
  if (!image) return;
  ImageInfo info{};
  Verified(image->QueryInfo(&info));
  auto* service = static_cast<LMXImageService*>(image->QueryInstance(LMXImageService::kIid));
  switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: case 1: {  // export or import through guarded caller planes
      const int32_t key = in.ConsumeBool() ? info.format : ConsumeFormatKey();
      const bool walkable = Describable(info.width, info.height);
      GuardedPlanes caller(in, service, walkable ? info.width : 1, walkable ? info.height : 1, key);
      if (in.ConsumeIntegralInRange(0, 7) == 0) caller.data.pitches[0] = 0;
      static constexpr int32_t kModes[] = {0, 1, 2, 3, 4, 6, 16, 18, 8};
      const int32_t mode = in.ConsumeBool() ? in.PickValueInArray(kModes) : ConsumeInt(in, 0, 31);
      Verified(in.ConsumeBool() ? image->ExportData(&caller.data, mode) : image->ImportData(&caller.data, mode));
      caller.CheckGuards();
      break;
    }
    case 2:
      if (Image* other = PickImage()) Verified(image->CopyImage(other));
      break;
    default: {  // the plane query and the small operations with any values
      ImageInfo query{ConsumeInt(in, 1, 64), ConsumeInt(in, 1, 64), ConsumeFormatKey(), 0};
      LMXImageService::PlaneInfo planes{};
      const int32_t count = service->QueryPlaneInfo(&query, ConsumeInt(in, 0, 0), in.ConsumeBool() ? &planes : nullptr);
      Check(count >= 0 && count <= 4);
      Verified(image->SetOptions(ConsumeInt(in, 0, 3)));
      Verified(service->InvalidateData());
      break;
    }
  }
}

void Driver::UseMetadata() {
  Image* image = PickImage();
  if (!image) return;
  auto* metadata = static_cast<Metadata*>(image->QueryInstance(Metadata::kIid));
  Check(metadata != nullptr);
  static constexpr int32_t kIds[] = {0x61516733, 0x24740F78, 0x81001, 7};
  const int32_t id = in.ConsumeBool() ? in.PickValueInArray(kIds) : ConsumeInt(in, 0, 16);
  uint8_t buffer[64] = {};
  const auto bytes = in.ConsumeBytes<uint8_t>(sizeof(buffer));
  if (!bytes.empty()) std::memcpy(buffer, bytes.data(), bytes.size());
  // A size no larger than the buffer, or one that must be refused.
  int32_t size = ConsumeInt(in, 0, sizeof(buffer));
  if (size > static_cast<int32_t>(sizeof(buffer))) size = -size;
  switch (in.ConsumeIntegralInRange(0, 4)) {
    case 0: Verified(metadata->AttachBuffer(id, in.ConsumeBool() ? buffer : nullptr, size)); break;
    case 1: {  // reads may claim any size: records never exceed the buffer
      Check(metadata->QueryBufferSize(id) <= static_cast<int32_t>(sizeof(buffer)));
      Verified(metadata->QueryBuffer(id, buffer, ConsumeInt(in, 0, sizeof(buffer))));
      break;
    }
    case 2: Verified(metadata->DetachMetadata(id)); break;
    case 3: metadata->QueryMetadata(ConsumeInt(in, 0, 4)); break;
    default: {
      void* instance = nullptr;
      Verified(metadata->CreateSerializable(id, ConsumeInt(in, 0, 0), in.ConsumeBool() ? &instance : nullptr));
      Check(instance == nullptr);  // the host offers no implementation to rebuild with
      break;
    }
  }
}

void Driver::CreateAudioObject() {
  if (audios.size() >= kMaxObjects) return;
  static constexpr int32_t kFormats[] = {LMXAudio::AUDIO_FORMAT_PCM, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT};
  const auto format = static_cast<LMXAudio::AudioFormat>(in.ConsumeBool() ? in.PickValueInArray(kFormats)
                                                                          : in.ConsumeIntegral<int32_t>());
  int32_t samples = ConsumeInt(in, 0, 4096);
  // Sizes of gigabytes are allocated in earnest: only sizes of samples the
  // 32-bit byte count cannot hold are extreme.
  if (samples > 4096 && LMXAudio::SampleBytes(format) * int64_t{samples} <= kMax) samples = 4096;
  LMXAudio::AudioInfo info{samples, format, ConsumeInt(in, 8000, 48000), ConsumeInt(in, 1, 3), 0, {}};
  LMXAudio* audio = nullptr;
  const Status sts = Verified(allocator->CreateAudio(&info, ConsumeInt(in, 0, 0), nullptr, &audio));
  Check((sts >= 0) == (audio != nullptr));
  if (audio) audios.push_back(audio);
}

void Driver::AccessAudio() {
  LMXAudio* audio = PickAudio();
  if (!audio) return;
  if (in.ConsumeIntegralInRange(0, 3) == 0) {
    if (LMXAudio* other = PickAudio()) Verified(audio->CopyAudio(other));
    return;
  }
  const auto access = static_cast<LMXAudio::Access>(ConsumeInt(in, 1, 3));
  const auto format = static_cast<LMXAudio::AudioFormat>(in.ConsumeBool() ? 0 : audio->QueryInfo().format);
  auto data = std::make_unique<LMXAudio::AudioData>();
  if (Verified(audio->AcquireAccess(access, format, ConsumeInt(in, 0, 0), data.get())) < 0) return;
  const LMXAudio::AudioInfo info = audio->QueryInfo();
  volatile uint8_t sink = 0;
  const int64_t readable = int64_t{data->dataSize} * LMXAudio::SampleBytes(data->format);
  for (int64_t i = 0; data->dataPtr && i < readable; ++i) sink = sink + data->dataPtr[i];
  if (access & LMXAudio::ACCESS_WRITE) {
    const int64_t capacity = int64_t{info.bufferSize} * LMXAudio::SampleBytes(data->format);
    if (data->dataPtr && capacity > 0) std::memset(data->dataPtr, 1, static_cast<size_t>(capacity));
    data->dataSize = ConsumeInt(in, 0, info.bufferSize > 0 ? info.bufferSize : 0);  // beyond it is clamped
  } else if (heldAudios.size() < 2 && in.ConsumeBool()) {
    heldAudios.push_back({audio, std::move(data)});
    return;
  }
  Verified(audio->ReleaseAccess(data.get()));
}

void Driver::ConvertAudio() {
  LMXAudio* src = PickAudio();
  if (!src) return;
  LMXAudio::AudioInfo dst_info{0, LMXAudio::AUDIO_FORMAT_PCM, ConsumeInt(in, 8000, 48000), ConsumeInt(in, 1, 2), 0, {}};
  if (in.ConsumeIntegralInRange(0, 7) == 0) dst_info.format = static_cast<LMXAudio::AudioFormat>(in.ConsumeIntegral<int32_t>());
  if (in.ConsumeBool()) {
    int16_t mono[64] = {};
    const int32_t frames = ConsumeInt(in, 0, 64 / 3);
    LMXAudio::AudioInfo src_info{0, LMXAudio::AUDIO_FORMAT_PCM, 0, ConsumeInt(in, 1, 3), 0, {}};
    // The arrays hold 64 samples: counts that do not fit them must be refused.
    if (frames > 0 && int64_t{frames} * src_info.nchannels > 64) src_info.nchannels = -(src_info.nchannels & 0xFFFF);
    Verified(converter->MixChannels(mono, src_info, mono, dst_info, frames));
    return;
  }
  LMXAudio* dst = nullptr;
  Verified(converter->ConvertAudio(src, dst_info, dst));
  if (dst) {
    Check(CountOf(dst) == 1);
    dst->Release();
  }
}

void Driver::Schedule() {
  auto* service = scheduler->QueryInstance<LMXSchedulerService>();
  auto* tasks = scheduler->QueryInstance<LMXScheduler>();
  Check(service && tasks);
  // Counts beyond the array are negative: the library must refuse them unread.
  int32_t n = ConsumeInt(in, 0, kOutputs);
  if (n > kOutputs) n = n == kMax ? kMin : -n;
  void** list = in.ConsumeIntegralInRange(0, 15) ? outputs + in.ConsumeIntegralInRange(0, kOutputs - (n > 0 ? n : 0)) : nullptr;
  switch (in.ConsumeIntegralInRange(0, 4)) {
    case 0: Verified(service->MarkOutputs(n, list, ConsumeTableStatus(in))); break;
    case 1: {
      const bool withTask = in.ConsumeIntegralInRange(0, 15) != 0;
      if (Verified(service->RequestInputs(n, list, withTask ? &task : nullptr)) >= 0) ++requested;
      break;
    }
    case 2: {
      LMXSyncPoint* sp = nullptr;
      const bool out = syncPoints.size() < 6 && in.ConsumeIntegralInRange(0, 15) != 0;
      if (Verified(service->CreateSyncPoint(n, list, out ? &sp : nullptr)) >= 0) {
        Check(sp != nullptr);
        syncPoints.push_back({sp, false});
      }
      break;
    }
    case 3:
      if (Verified(tasks->SubmitTask(in.ConsumeBool() ? &task : nullptr, ConsumeTableStatus(in))) >= 0) ++requested;
      Verified(tasks->SetOption(ConsumeInt(in, 0, 0)));
      break;
    default:
      if (!syncPoints.empty()) {
        SyncPoint& point = syncPoints[in.ConsumeIntegralInRange<size_t>(0, syncPoints.size() - 1)];
        auto* producer = static_cast<LMXSyncPointService*>(point.sp->QueryInstance(LMXSyncPointService::kIid));
        Check(Verified(producer->SignalSyncPoint(ConsumeTableStatus(in))) == LMX_STATUS_NO_ERROR);
        point.signalled = true;
      }
      break;
  }
}

void Driver::Wait() {
  if (syncPoints.empty()) return;
  SyncPoint& point = syncPoints[in.ConsumeIntegralInRange<size_t>(0, syncPoints.size() - 1)];
  // A wait that may have nothing to wait for polls or waits a millisecond.
  bool allSignalled = true;
  for (const SyncPoint& each : syncPoints) allSignalled = allSignalled && each.signalled;
  const int32_t timeout = allSignalled ? ConsumeInt(in, -1, 2) : in.ConsumeIntegralInRange(0, 1);
  switch (in.ConsumeIntegralInRange(0, 2)) {
    case 0:
      Verified(point.sp->Synchronize(point.signalled ? ConsumeInt(in, -1, 2) : in.ConsumeIntegralInRange(0, 1)));
      break;
    case 1:
      Verified(point.sp->QueryOutputStatus(in.ConsumeBool() ? outputs[in.ConsumeIntegralInRange(0, kOutputs - 1)] : nullptr));
      break;
    default: {
      // Arrays of exactly 64 entries: any count the library accepts stays inside
      // them, and a larger or negative one must be refused before they are read.
      auto sps = std::make_unique<LMXSyncPoint*[]>(64);
      auto events = std::make_unique<void*[]>(64);
      for (int i = 0; i < 64; ++i)
        sps[i] = in.ConsumeBool() ? syncPoints[static_cast<size_t>(i) % syncPoints.size()].sp : nullptr;
      int32_t n1 = ConsumeInt(in, 0, 8), n2 = ConsumeInt(in, 0, 8);
      int32_t idx = -7;
      Verified(point.sp->SynchronizeExINT(n1, in.ConsumeIntegralInRange(0, 15) ? sps.get() : nullptr, n2,
                                          in.ConsumeBool() ? events.get() : nullptr, in.ConsumeBool() ? &idx : nullptr,
                                          timeout));
      Check(idx == -7 || (idx >= 0 && idx < 64));
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  FuzzedDataProvider input(bytes, size);
  Driver driver(input);
  if (!driver.Create()) return 0;
  for (int step = 0; step < 40 && input.remaining_bytes() > 0; ++step) driver.Step();
  return 0;
}
