// The multi-format object: access rules, conversion hand-off, invalidation,
// intermediate passes, rotation from metadata, re-initialisation; and its audio
// instantiation (with the observer).
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "image_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmx::ImageData;
using lmx::ImageInfo;
using lmx::ImageObject;
using lmxtest::NewImage;
using lmxtest::Read;
using lmxtest::Write;

namespace {

constexpr int32_t kY8 = Image::PIXEL_FORMAT_Y8;
constexpr int32_t kBGR = Image::PIXEL_FORMAT_BGR;
constexpr int32_t kBGRA = Image::PIXEL_FORMAT_BGRA;

// The conversion lines logged so far (one per attempt, at DEBUG when it names an
// intermediate format).
std::vector<std::string> Conversions(lmxtest::ScopedCapture& capture) {
  std::vector<std::string> out;
  for (const auto& line : capture->Lines())
    if (line.message.rfind("Format conversion [", 0) == 0) out.push_back(line.message);
  return out;
}

// Writes `value` into every row byte of the image's own format.
void WriteAll(ImageObject* image, int32_t rowBytes, uint8_t value) {
  ImageData data{};
  ASSERT_EQ(Write(image, 0, &data), LMX_STATUS_NO_ERROR);
  for (int32_t y = 0; y < image->GetHeight(); ++y) std::memset(data.planes[0] + y * data.pitches[0], value, rowBytes);
  ASSERT_EQ(image->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
}

// A session that answers only the observer identifier, with an observer that
// records the kinds it is told.
class ObserverSession final : public Session, public BaseImpl<LMXAccessObserver> {
 public:
  void* QueryInstance(InterfaceId iid) override {
    return iid == LMXAccessObserver::kIid ? static_cast<LMXAccessObserver*>(this) : nullptr;
  }
  void Release() override {}
  Status QueryImpl(const Service::ImplDesc*, int32_t, Service::ImplDesc*) override {
    return LMX_STATUS_ITEM_UNAVAILABLE;
  }
  Status CreateImpl(const Service::ImplDesc*, InterfaceId, Base**) override { return LMX_STATUS_ITEM_UNAVAILABLE; }
  void OnAcquire(int32_t kind) override { kinds.push_back(kind); }
  void Destroy(uint32_t) override {}
  std::vector<int32_t> kinds;
};

}  // namespace

TEST(ImageMultiBuffer, AdoptedPlanesReadWithoutConversionAndWritesMakeOtherFormatsStale) {
  lmxtest::ScopedCapture capture;
  uint8_t pixels[4 * 64];
  std::memset(pixels, 7, sizeof(pixels));
  ImageData given{};
  given.pitches[0] = 64, given.planes[0] = pixels;
  ImageInfo info{64, 4, kY8, 0};
  Status sts = LMX_STATUS_ALLOC_FAILED;
  auto* image = new ImageObject(nullptr, &info, &given, 0, &sts);
  ASSERT_EQ(sts, LMX_STATUS_NO_ERROR);

  ImageData read{};
  ASSERT_EQ(Read(image, 0, &read), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.planes[0], pixels);
  EXPECT_EQ(image->RefCount(), 2u) << "each acquisition holds a reference";
  ASSERT_EQ(image->ReleaseAccess(&read), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.planes[0], nullptr) << "the caller's record is cleared";

  // Another format converts once; the second read of it converts nothing.
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(Read(image, kBGR, &read), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(read.planes[0][5], 7);
    image->ReleaseAccess(&read);
  }
  EXPECT_EQ(Conversions(capture), std::vector<std::string>{"Format conversion [BGR,Y8(*)] -> BGR"});

  // A write in Y8 makes BGR stale: the next BGR read converts again, from Y8.
  WriteAll(image, 64, 42);
  EXPECT_TRUE(image->IsBufferValid(kY8));
  EXPECT_FALSE(image->IsBufferValid(kBGR));
  ASSERT_EQ(Read(image, kBGR, &read), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.planes[0][0], 42);
  image->ReleaseAccess(&read);
  EXPECT_EQ(Conversions(capture).size(), 2u);
  EXPECT_EQ(image->RefCount(), 1u);
  image->Release();
}

TEST(ImageMultiBuffer, AccessRules) {
  lmxtest::ScopedCapture capture;
  ImageObject* image = NewImage(32, 8, kY8);
  ImageData first{}, second{}, write{};
  ASSERT_EQ(Write(image, 0, &write), LMX_STATUS_NO_ERROR);
  // While a write is outstanding nothing else is handed out (an attempt that may not
  // allocate does not wait for the writer).
  EXPECT_EQ(image->InternalAcquireAccess(Image::ACCESS_READ, nullptr, 0, &first, false, nullptr),
            LMX_STATUS_PARAM_UNSUPPORTED);
  ASSERT_EQ(image->ReleaseAccess(&write), LMX_STATUS_NO_ERROR);
  // An attempt that may not allocate never converts into a stale buffer.
  EXPECT_EQ(image->InternalAcquireAccess(Image::ACCESS_READ, nullptr, kBGR, &first, false, nullptr),
            LMX_STATUS_ITEM_UNAVAILABLE);

  // A reader that may wait does so for a writer that releases within the wait.
  ASSERT_EQ(Write(image, 0, &write), LMX_STATUS_NO_ERROR);
  Status waited = LMX_STATUS_ALLOC_FAILED;
  std::thread reader([&] { waited = Read(image, 0, &first); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_EQ(image->ReleaseAccess(&write), LMX_STATUS_NO_ERROR);
  reader.join();
  ASSERT_EQ(waited, LMX_STATUS_NO_ERROR);
  ASSERT_EQ(image->ReleaseAccess(&first), LMX_STATUS_NO_ERROR);

  // Two reads of one format may be outstanding, each with its own record.
  ASSERT_EQ(Read(image, 0, &first), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(Read(image, 0, &second), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(first.planes[0], second.planes[0]);
  // A record already holding an acquisition cannot take a second one (it would be lost).
  EXPECT_EQ(Read(image, 0, &second), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(image->ReleaseAccess(&second), LMX_STATUS_NO_ERROR) << "the first acquisition is still held";
  // A write needs the object free of every other access.
  EXPECT_EQ(image->AcquireAccess(Image::ACCESS_READ_WRITE, static_cast<Image::PixelFormat>(0), 0, &write),
            LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(image->ReleaseAccess(&first), LMX_STATUS_NO_ERROR);

  // Unknown, repeated and null records; an unknown access; a format without a layout.
  second.format = kY8;
  for (ImageData* record : {&second, &first, static_cast<ImageData*>(nullptr)})
    EXPECT_EQ(image->ReleaseAccess(record), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(image->AcquireAccess(static_cast<Image::Access>(4), static_cast<Image::PixelFormat>(0), 0, &first),
            LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(Read(image, 0, nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(image->AcquireNativeAccess(Image::ACCESS_READ, 0, nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(Read(image, 0x12345, &first), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(image->RefCount(), 1u) << "failed acquisitions hold no reference";
  image->Release();
}

// Y8 -> BGRA has no kernel and names BGR; YUY2 and NV12 name each other on the way
// to Y16, a loop that never reaches it.
TEST(ImageMultiBuffer, IntermediatePassesReachAFormatAndGiveUpAfterThree) {
  lmxtest::ScopedCapture capture;
  ImageObject* image = NewImage(8, 2, kY8);
  WriteAll(image, 8, 9);
  ImageData data{};
  ASSERT_EQ(Read(image, kBGRA, &data), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(data.planes[0][6], 9);
  image->ReleaseAccess(&data);
  for (const auto& line : capture->Lines())
    EXPECT_TRUE(line.message.find("interm_format") == std::string::npos || line.level == LOG_LEVEL_DEBUG);
  // Y8->BGRA names BGR; Y8->BGR; then BGR->BGRA from the intermediate only.
  const auto lines = Conversions(capture);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_NE(lines[0].find(" interm_format=BGR"), std::string::npos);
  EXPECT_NE(lines[2].find("BGR(*)"), std::string::npos);
  image->Release();

  // NV12 -> BGRA through YUY2 runs in one pass, logged and stored as two steps.
  capture->Clear();
  ImageObject* nv12 = NewImage(8, 2, Image::PIXEL_FORMAT_NV12);
  WriteAll(nv12, 8, 9);
  ASSERT_EQ(Read(nv12, kBGRA, &data), LMX_STATUS_NO_ERROR);
  nv12->ReleaseAccess(&data);
  EXPECT_TRUE(nv12->IsBufferValid(Image::PIXEL_FORMAT_YUY2));
  EXPECT_EQ(
      Conversions(capture),
      (std::vector<std::string>{
          "Format conversion [NV12(*),BGRA(invalid)] -> BGRA conversion failed interm_format=YUY2",
          "Format conversion [YUY2,NV12(*),BGRA(invalid)] -> YUY2", "Format conversion [YUY2(*),NV12,BGRA] -> BGRA"}));
  nv12->Release();

  capture->Clear();
  ImageObject* looping = NewImage(8, 2, Image::PIXEL_FORMAT_YUY2);
  WriteAll(looping, 16, 0);
  EXPECT_EQ(Read(looping, Image::PIXEL_FORMAT_Y16, &data), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_LE(Conversions(capture).size(), 8u) << "bounded by three intermediate passes";
  EXPECT_EQ(looping->RefCount(), 1u);
  looping->Release();
}

TEST(ImageMultiBuffer, RotationTurnsTheOtherWayForEachMirroringProperty) {
  ImageObject* image = NewImage(8, 4, kY8);
  struct Pair {
    uint32_t id;
    float value;
  } pairs[] = {{304, 1.0f}, {305, 1.0f}};
  // One mirroring pair turns 90 into 270; two (the second negative) restore the angle.
  for (int32_t expected : {270, 90}) {
    image->DetachMetadata(lmx::kMetadataMirroring);
    ASSERT_EQ(image->AttachBuffer(lmx::kMetadataMirroring, reinterpret_cast<uint8_t*>(pairs), sizeof(pairs)),
              LMX_STATUS_NO_ERROR);
    ImageData data{};
    ASSERT_EQ(Write(image, 0, &data, 90), LMX_STATUS_NO_ERROR);
    image->ReleaseAccess(&data);
    EXPECT_TRUE(image->IsBufferValid(kY8 | (expected << kRotationShift))) << expected;
    EXPECT_FALSE(image->IsBufferValid(kY8 | ((360 - expected) << kRotationShift))) << expected;
    pairs[1] = {304, -0.5f};
  }
  image->Release();
}

TEST(ImageMultiBuffer, AttachableSideDataIsUntrackedAndNeverMadeStale) {
  ImageObject* image = NewImage(8, 4, kY8);
  ImageData side{};
  const auto confidence = static_cast<Image::PixelFormat>(Image::PIXEL_FORMAT_DEPTH_CONFIDENCE);
  EXPECT_EQ(image->AcquireAccess(Image::ACCESS_READ, confidence, 0, &side), LMX_STATUS_ITEM_UNAVAILABLE)
      << "side data never written is not handed out for reading";
  ASSERT_EQ(image->AcquireAccess(Image::ACCESS_WRITE, confidence, 0, &side), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(image->RefCount(), 1u);
  WriteAll(image, 8, 1);  // side data holds no access, and a write leaves it valid
  EXPECT_EQ(image->ReleaseAccess(&side), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(image->IsBufferValid(Image::PIXEL_FORMAT_DEPTH_CONFIDENCE));

  // InvalidateData makes everything stale, side data included, and runs the hooks once.
  static int called;
  called = 0;
  image->SetInvalidateCallback(
      +[](void* argument) { called += *static_cast<int*>(argument); }, &called);
  int one = 1;
  image->SetInvalidateCallback(
      +[](void* argument) { called += *static_cast<int*>(argument); }, &one);
  image->AttachObject(static_cast<Image*>(NewImage(4, 4, kY8)));
  EXPECT_EQ(image->InvalidateData(), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(image->InvalidateData(), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(called, 1);
  EXPECT_FALSE(image->IsBufferValid(Image::PIXEL_FORMAT_DEPTH_CONFIDENCE));
  EXPECT_FALSE(image->IsBufferValid(kY8));
  image->Release();

  // An image whose own format is side data, acquired as format 0, takes the normal
  // way; its release must end that access (a write left open blocked every later one).
  ImageObject* sideImage = NewImage(4, 2, Image::PIXEL_FORMAT_ATTACHED_8BPP);
  for (int round = 0; round < 2; ++round) WriteAll(sideImage, 4, 0);
  EXPECT_EQ(sideImage->RefCount(), 1u);
  sideImage->Release();
}

// The audio instantiation: sample formats as keys, BaseAudio's copy as the
// conversion (its values are AudioCopy's tests), observer kind 3, no conversion line.
TEST(ImageMultiBuffer, AudioObjectsConvertSampleFormatsAndReportThree) {
  lmxtest::ScopedCapture capture;
  ObserverSession session;
  lmx::AudioInfo info{4, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, 0, {0, 0, 0}};
  Status sts = LMX_STATUS_ALLOC_FAILED;
  auto* audio = new lmx::AudioObject(&session, &info, nullptr, 0, &sts);
  ASSERT_EQ(sts, LMX_STATUS_NO_ERROR);
  audio->SetOptions(0xC8136925u);
  EXPECT_EQ(audio->QueryOptions(), 0u) << "the notify value is not stored as options";
  // Null records are refused on both ends, leaving no reference behind.
  EXPECT_EQ(audio->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_PCM, nullptr),
            LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(audio->ReleaseAccess(nullptr), LMX_STATUS_HANDLE_INVALID);

  // Written as PCM, read as float; written as float, PCM is stale.
  lmx::AudioData data{};
  for (auto [access, format] : {std::pair{LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_PCM},
                                {LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT},
                                {LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT}}) {
    ASSERT_EQ(audio->AcquireAccess(access, format, &data), LMX_STATUS_NO_ERROR);
    ASSERT_EQ(audio->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
  }
  EXPECT_FALSE(audio->IsBufferValid(LMXAudio::AUDIO_FORMAT_PCM));
  EXPECT_EQ(session.kinds, (std::vector<int32_t>{3, 3, 3}));
  EXPECT_FALSE(capture->Contains("Format conversion ["));
  EXPECT_EQ(static_cast<LMXAudioService*>(audio->QueryInstance(LMXAudioService::kIid))->InvalidateData(), 0);
  EXPECT_FALSE(audio->IsBufferValid(LMXAudio::AUDIO_FORMAT_IEEE_FLOAT));
  EXPECT_EQ(audio->RefCount(), 1u);
  audio->Release();
}

// A read with no valid buffer to convert from fails and keeps what it allocated; a
// new description is refused while accessed and drops the old buffers.
TEST(ImageMultiBuffer, ReadWithoutAValidSourceFailsAndReInitRefusesWhileAccessed) {
  lmxtest::ScopedCapture capture;
  ImageObject* image = NewImage(8, 4, kY8);
  ImageData data{};
  EXPECT_EQ(Read(image, kBGRA, &data), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_TRUE(capture->Contains("Format conversion [BGRA(invalid)] -> BGRA conversion failed"));
  EXPECT_EQ(image->BufferCount(), 1u);
  ASSERT_EQ(Write(image, 0, &data), LMX_STATUS_NO_ERROR);
  ImageInfo bigger{16, 8, kY8, 0}, empty{0, 8, kY8, 0};
  EXPECT_EQ(image->ReInitImpl(&bigger, nullptr, 0), LMX_STATUS_PARAM_UNSUPPORTED);
  image->ReleaseAccess(&data);
  EXPECT_EQ(image->ReInitImpl(&empty, nullptr, 0), LMX_STATUS_PARAM_UNSUPPORTED);
  ASSERT_EQ(image->ReInitImpl(&bigger, nullptr, 3), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(image->BufferCount(), 0u);
  EXPECT_EQ(image->GetWidth(), 16);
  ASSERT_EQ(Write(image, 0, &data), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(data.pitches[0], 64);
  image->ReleaseAccess(&data);
  image->Release();
}
