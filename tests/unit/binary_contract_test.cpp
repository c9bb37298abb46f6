// The binary contract: one table of (face, slot, call, effect). Each row calls an
// operation through the raw vtable by slot index, as a separately compiled module
// does, on fresh objects made by the library's factories, and checks its effect.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "audio/audio_converter.h"
#include "core_metadata.h"
#include "image/coreaccel_baseaudio.h"
#include "image/plane_cache.h"
#include "lmx_loggers.h"
#include "lmxallocator.h"
#include "module_factories.h"
#include "scheduler_test_support.h"

using namespace Norvik::Lumetra;
using lmxtest::CallSlot;

namespace {

// The objects every row may use: an allocator, a Y8 image (32 x 4, row y holding
// y + 1) and a PCM audio object it made, a scheduler of a test session, a
// converter, a logger.
struct Objects {
  Objects() {
    Base* object = nullptr;
    EXPECT_EQ(lmx::CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object), LMX_STATUS_NO_ERROR);
    allocator = object;
    Image::ImageInfo info{32, 4, Image::PIXEL_FORMAT_Y8, 0};
    // Each object made is checked by the test before any row runs.
    CallSlot<Status>(allocator, 7, &info, int32_t{0}, static_cast<Image::ImageData*>(nullptr), &image);
    LMXAudio::AudioInfo audioInfo{4, LMXAudio::AUDIO_FORMAT_PCM, 8000, 1, 0, {0, 0, 0}};
    CallSlot<Status>(allocator, 8, &audioInfo, int32_t{0}, static_cast<LMXAudio::AudioData*>(nullptr), &audio);
    lmx::CreateAudioConverter(reinterpret_cast<Session*>(object), nullptr, nullptr, nullptr, 0, &converter);
    for (int y = 0; y < 4; ++y) std::memset(pixels[y], y + 1, 32);
    caller.format = Image::PIXEL_FORMAT_Y8, caller.pitches[0] = 32, caller.planes[0] = &pixels[0][0];
  }
  ~Objects() {
    for (void* face :
         {image, audio, static_cast<void*>(converter), allocator, static_cast<void*>(sp), static_cast<void*>(logger)})
      if (face) CallSlot<void>(face, 1);
  }
  void* Face(void* object, InterfaceId iid) { return CallSlot<void*>(object, 0, iid); }

  void* allocator = nullptr;
  void* image = nullptr;
  void* audio = nullptr;
  Base* converter = nullptr;
  lmxhost::HostSession session;
  lmxtest::SchedulerRef scheduler{&session};
  LMXSyncPoint* sp = nullptr;
  LoggingService* logger = new lmsdk::LoggerDebugView;
  uint8_t pixels[4][32];
  Image::ImageData caller{};
};

struct Row {
  const char* face;
  int slot;
  const char* call;
  std::function<void(Objects&)> effect;
};

// Printed by name: gtest's default prints the bytes of the row, padding included.
void PrintTo(const Row& row, std::ostream* os) { *os << row.face << " slot " << row.slot << " " << row.call; }

// clang-format off
const Row kRows[] = {
    // Base and the counted faces of an image.
    {"Base", 0, "QueryInstance", [](Objects& o) {
       void* reference = o.Face(o.image, FourCC("BASS"));
       ASSERT_NE(reference, nullptr);
       EXPECT_EQ(o.Face(reference, 0), o.image) << "a secondary face answers 0 with the primary";
       EXPECT_EQ(o.Face(o.image, Image::kIid2), o.image);
       EXPECT_EQ(o.Face(o.image, 0x7777), nullptr);
       EXPECT_EQ(o.Face(o.image, Metadata::kIid2), nullptr) << "only a standalone store answers it";
     }},
    {"ReleaseService", 2, "SetReleaseHandler + 3 AddDependent; Reference 2 AddRef", [](Objects& o) {
       static int handled;
       handled = 0;
       int value = 42;
       void* service = o.Face(o.image, LMXReleaseService::kIid);
       LMXReleaseService::ReleaseHandler handler = +[](void* context) { handled = *static_cast<int*>(context); };
       EXPECT_EQ(CallSlot<Status>(service, 2, handler, static_cast<void*>(&value)), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(CallSlot<Status>(service, 3, static_cast<Base*>(new lmsdk::LoggerDebugView)), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(CallSlot<uint32_t>(o.Face(o.image, Reference::kIid), 2), 2u);
       CallSlot<void>(o.Face(o.image, Metadata::kIid), 1);  // a release through another face
       EXPECT_EQ(handled, 0);
       CallSlot<void>(service, 1);  // the final release runs the handler and releases the dependent
       o.image = nullptr;
       EXPECT_EQ(handled, 42);
     }},
    {"LMXAllocator", 2, "Reserved2..6; 7 CreateImage", [](Objects& o) {
       for (int slot = 2; slot <= 6; ++slot)
         EXPECT_EQ(CallSlot<Status>(o.allocator, slot), slot < 4 ? LMX_STATUS_NO_ERROR : LMX_STATUS_FEATURE_UNSUPPORTED);
       Image::ImageInfo info{};
       EXPECT_EQ(CallSlot<Status>(o.image, 2, &info), LMX_STATUS_NO_ERROR);  // Image 2 QueryInfo
       EXPECT_EQ(info.width, 32);
     }},
    // Image.
    {"Image", 4, "SetTimeStamp + 3 QueryTimeStamp; 8 SetOptions + 5 QueryOptions; 15-17 width, height, format",
     [](Objects& o) {
       EXPECT_EQ(CallSlot<Status>(o.image, 4, int64_t{1234}), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(CallSlot<int64_t>(o.image, 3), 1234);
       EXPECT_EQ(CallSlot<Status>(o.image, 8, int32_t{9}), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(CallSlot<int32_t>(o.image, 5), 9);
       EXPECT_EQ(CallSlot<int32_t>(o.image, 15), 32);  // after the destructor's slot
       EXPECT_EQ(CallSlot<int32_t>(o.image, 16), 4);
       EXPECT_EQ(CallSlot<int32_t>(o.image, 17), Image::PIXEL_FORMAT_Y8);
     }},
    {"Image", 11, "ImportData, 12 AcquireAccess + 13 ReleaseAccess, 10 ExportData", [](Objects& o) {
       EXPECT_EQ(CallSlot<Status>(o.image, 11, &o.caller, int32_t{0}), LMX_STATUS_NO_ERROR);
       Image::ImageData data{};
       ASSERT_EQ(CallSlot<Status>(o.image, 12, int32_t{Image::ACCESS_READ}, int32_t{0}, int32_t{0}, &data), 0);
       EXPECT_EQ(data.planes[0][64 * 3], 4) << "rows 64 bytes apart";
       EXPECT_EQ(CallSlot<Status>(o.image, 13, &data), LMX_STATUS_NO_ERROR);
       std::memset(o.pixels, 0, sizeof(o.pixels));
       EXPECT_EQ(CallSlot<Status>(o.image, 10, &o.caller, int32_t{2}), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(o.pixels[0][0], 4) << "export with option 2 flips the rows";
       EXPECT_EQ(o.pixels[3][31], 1);
     }},
    {"LMXImageService", 2, "QueryPlaneInfo + 6 InvalidateData", [](Objects& o) {
       void* service = o.Face(o.image, LMXImageService::kIid);
       Image::ImageInfo info{32, 4, Image::PIXEL_FORMAT_Y8, 0};
       LMXImageService::PlaneInfo planes{};
       EXPECT_EQ(CallSlot<int32_t>(service, 2, &info, int32_t{0}, &planes), 1);
       EXPECT_EQ(planes.plane[0].width, 32u);
       EXPECT_EQ(CallSlot<Status>(service, 6), LMX_STATUS_NO_ERROR);
     }},
    {"Metadata", 2, "QueryUID, 5 AttachBuffer, 6 QueryBufferSize, 7 QueryBuffer, 3 QueryMetadata, 4 Detach",
     [](Objects& o) {
       void* metadata = o.Face(o.image, Metadata::kIid);
       EXPECT_EQ(CallSlot<int32_t>(metadata, 2), 0x81001);
       float scale = 0.25f, read = 0;
       const int32_t id = 0x24740F78;
       EXPECT_EQ(CallSlot<Status>(metadata, 5, id, reinterpret_cast<uint8_t*>(&scale), int32_t{4}), 0);
       EXPECT_EQ(CallSlot<int32_t>(metadata, 6, id), 4);
       EXPECT_EQ(CallSlot<Status>(metadata, 7, id, reinterpret_cast<uint8_t*>(&read), int32_t{4}), 0);
       EXPECT_EQ(read, 0.25f);
       EXPECT_EQ(CallSlot<int32_t>(metadata, 3, int32_t{1}), id);
       EXPECT_EQ(CallSlot<Status>(metadata, 4, id), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(CallSlot<int32_t>(metadata, 6, id), 0);
     }},
    // Audio, made by LMXAllocator 8 CreateAudio.
    {"Audio", 5, "SetTimeStamp + 3 QueryTimeStamp; 6 and 11 SetOptions + 4 QueryOptions", [](Objects& o) {
       EXPECT_EQ(o.Face(o.audio, LMXAudio::kIid), o.audio);
       CallSlot<void>(o.audio, 5, int64_t{77});
       EXPECT_EQ(CallSlot<int64_t>(o.audio, 3), 77);
       CallSlot<void>(o.audio, 6, 3u);
       EXPECT_EQ(CallSlot<uint32_t>(o.audio, 4), 3u);
       CallSlot<void>(o.audio, 11, 4u);
       EXPECT_EQ(CallSlot<uint32_t>(o.audio, 4), 4u);
     }},
    {"Audio", 8, "AcquireAccess + 9 ReleaseAccess; 13 AcquireNativeAccess; LMXAudioService 2 InvalidateData",
     [](Objects& o) {
       LMXAudio::AudioData data{};
       ASSERT_EQ(CallSlot<Status>(o.audio, 8, int32_t{LMXAudio::ACCESS_WRITE}, int32_t{LMXAudio::AUDIO_FORMAT_PCM},
                                  int32_t{0}, &data), 0);
       const int16_t samples[2] = {-16384, 8192};
       std::memcpy(data.dataPtr, samples, sizeof(samples));
       data.dataSize = 2;
       EXPECT_EQ(CallSlot<Status>(o.audio, 9, &data), LMX_STATUS_NO_ERROR);
       ASSERT_EQ(CallSlot<Status>(o.audio, 8, int32_t{LMXAudio::ACCESS_READ},
                                  int32_t{LMXAudio::AUDIO_FORMAT_IEEE_FLOAT}, int32_t{0}, &data), 0);
       EXPECT_EQ(reinterpret_cast<const float*>(data.dataPtr)[0], -0.5f);
       EXPECT_EQ(CallSlot<Status>(o.audio, 9, &data), LMX_STATUS_NO_ERROR);
       ASSERT_EQ(CallSlot<Status>(o.audio, 13, int32_t{LMXAudio::ACCESS_READ}, int32_t{0}, &data), 0);
       EXPECT_EQ(data.format, LMXAudio::AUDIO_FORMAT_PCM);
       EXPECT_EQ(data.dataSize, 2);
       EXPECT_EQ(CallSlot<Status>(o.Face(o.audio, LMXAudioService::kIid), 2), LMX_STATUS_NO_ERROR);
     }},
    {"LMXAudioConversion", 4, "MixChannels; 2 ConvertAudio", [](Objects& o) {
       void* converter = o.Face(o.converter, LMXAudioConversion::kIid2);
       EXPECT_EQ(converter, o.converter) << "the factory hands out the primary face";
       const int16_t three[] = {1, 2, 4};
       int16_t mono[1] = {-7};
       LMXAudio::AudioInfo info3{0, LMXAudio::AUDIO_FORMAT_PCM, 0, 3, 0, {}}, info1 = info3, info2 = info3;
       info1.nchannels = 1, info2.nchannels = 2;
       EXPECT_EQ(CallSlot<Status>(converter, 4, three, &info3, mono, &info2, 1), LMX_STATUS_FEATURE_UNSUPPORTED);
       EXPECT_EQ(CallSlot<Status>(converter, 4, three, &info3, mono, &info1, 1), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(mono[0], 2);
       LMXAudio* dst = nullptr;
       EXPECT_EQ(CallSlot<Status>(converter, 2, static_cast<LMXAudio*>(nullptr), &info1, &dst), LMX_STATUS_HANDLE_INVALID);
     }},
    // LMXScheduler and LMXSchedulerService.
    {"LMXScheduler", 2, "SetOption + 3 QueryOption; 5 SubmitTask", [](Objects& o) {
       void* primary = static_cast<LMXScheduler*>(o.scheduler.get());
       EXPECT_EQ(o.Face(primary, FourCC("SCH2")), o.scheduler.service());
       EXPECT_EQ(CallSlot<Status>(primary, 2, int32_t{7}), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(CallSlot<int32_t>(primary, 3), 7);
       lmxtest::RecordingTask task(L"(inline) slot");
       EXPECT_EQ(CallSlot<Status>(primary, 5, static_cast<LMXSchedulerService::Callback*>(&task), Status{101}), 0);
       EXPECT_EQ(task.Last(), 101);
     }},
    {"LMXSchedulerService", 3, "MarkOutputs, 2 RequestInputs, 4 CreateSyncPoint; LMXSyncPoint 5 QueryOutputStatus",
     [](Objects& o) {
       void* service = o.scheduler.service();
       int output;
       void* outputs[] = {&output};
       lmxtest::RecordingTask consumer(L"(inline) consumer");
       EXPECT_EQ(CallSlot<Status>(service, 3, int32_t{1}, outputs, Status{LMX_STATUS_EXEC_INPROGRESS}), 0);
       EXPECT_EQ(CallSlot<Status>(service, 2, int32_t{1}, outputs, static_cast<LMXSchedulerService::Callback*>(&consumer)), 0);
       EXPECT_EQ(CallSlot<Status>(service, 4, int32_t{1}, outputs, &o.sp), 0);
       ASSERT_NE(o.sp, nullptr);
       EXPECT_EQ(CallSlot<Status>(service, 3, int32_t{1}, outputs, Status{-201}), 0);
       EXPECT_EQ(consumer.Last(), -201);
       EXPECT_EQ(CallSlot<Status>(o.sp, 5, static_cast<void*>(&output)), -201);
     }},
    {"LMXSyncPoint", 2, "Synchronize, 3 SynchronizeExINT; LMXSyncPointService 2 SignalSyncPoint", [](Objects& o) {
       ASSERT_EQ(o.scheduler.service()->CreateSyncPoint(0, nullptr, &o.sp), 0);
       EXPECT_EQ(CallSlot<Status>(o.sp, 2, int32_t{0}), LMX_STATUS_EXEC_INPROGRESS);
       EXPECT_EQ(CallSlot<Status>(o.Face(o.sp, FourCC("SYN1")), 2, Status{102}), 0);
       EXPECT_EQ(CallSlot<Status>(o.sp, 2, int32_t{-1}), 102);
       LMXSyncPoint* sps[] = {o.sp};
       int32_t idx = -1;
       EXPECT_EQ(CallSlot<Status>(o.sp, 3, int32_t{1}, sps, int32_t{0}, static_cast<void**>(nullptr), &idx,
                                  int32_t{-1}), 102);
       EXPECT_EQ(idx, 0);
     }},
    {"LMXAllocatorOptions", 2, "SetOption, 3 GetOption", [](Objects& o) {
       void* options = o.Face(o.allocator, FourCC("AOPT"));
       ASSERT_NE(options, nullptr);
       lmxtest::ScopedCapture capture;
       EXPECT_EQ(CallSlot<Status>(options, 2, int32_t{LMX_OPTION_PLANE_CACHE_MB}, int64_t{5}), LMX_STATUS_NO_ERROR);
       int64_t mb = 0;
       EXPECT_EQ(CallSlot<Status>(options, 3, int32_t{LMX_OPTION_PLANE_CACHE_MB}, &mb), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(mb, 5);
       EXPECT_EQ(lmx::PlaneCache::Process().Limit(), size_t{5} << 20);
       EXPECT_EQ(CallSlot<Status>(options, 2, int32_t{LMX_OPTION_CONVERSION_THREADS}, int64_t{1}), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(CallSlot<Status>(options, 3, int32_t{LMX_OPTION_CONVERSION_THREADS}, &mb), LMX_STATUS_NO_ERROR);
       EXPECT_EQ(mb, 1);
       CallSlot<Status>(options, 2, int32_t{LMX_OPTION_CONVERSION_THREADS}, int64_t{0});
       EXPECT_EQ(CallSlot<Status>(options, 2, int32_t{99}, int64_t{1}), LMX_STATUS_FEATURE_UNSUPPORTED);
       EXPECT_EQ(CallSlot<Status>(options, 2, int32_t{LMX_OPTION_PLANE_CACHE_MB}, int64_t{-2}),
                 LMX_STATUS_PARAM_UNSUPPORTED);
       EXPECT_TRUE(capture->Contains("failed on"));
       EXPECT_EQ(CallSlot<Status>(options, 2, int32_t{LMX_OPTION_PLANE_CACHE_MB}, int64_t{-1}), LMX_STATUS_NO_ERROR);
     }},
    {"LoggingService", 5, "SetLevel, 6 TestLevel, 7 QueryLevel", [](Objects& o) {
       CallSlot<Status>(o.logger, 5, 30000);
       EXPECT_FALSE(CallSlot<bool>(o.logger, 6, 20000));
       EXPECT_TRUE(CallSlot<bool>(o.logger, 6, 30000));
       EXPECT_EQ(CallSlot<int32_t>(o.logger, 7), 30000);
     }},
};
// clang-format on

class BinaryContract : public testing::TestWithParam<Row> {};

TEST_P(BinaryContract, SlotHasItsEffect) {
  Objects objects;
  ASSERT_TRUE(objects.image && objects.audio && objects.converter && objects.scheduler.get());
  GetParam().effect(objects);
}

INSTANTIATE_TEST_SUITE_P(Faces, BinaryContract, testing::ValuesIn(kRows), [](const auto& info) {
  return std::string(info.param.face) + "_" + std::to_string(info.param.slot) + "_" + std::to_string(info.index);
});

}  // namespace
