// The multi-format object: access rules, conversion hand-off, invalidation,
// intermediate passes, rotation from metadata, observer, re-initialisation; and
// its audio instantiation.
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

void Fill(const ImageData& data, int32_t rowBytes, int32_t rows, uint8_t value) {
  for (int32_t y = 0; y < rows; ++y) std::memset(data.planes[0] + y * data.pitches[0], value, rowBytes);
}

// Converts Y8 -> BGR -> BGRA only, naming BGR as the step between Y8 and BGRA, and
// YUY2 <-> NV12 as a loop that never reaches Y16. Records every call.
class FakeConvertingImage final : public ImageObject {
 public:
  FakeConvertingImage(ImageInfo* info, ImageData* data, Status* sts) : ImageObject(nullptr, info, data, 0, sts) {}

  Status CopySystemBuffer(ImageInfo* srcInfo, ImageData* src, ImageInfo* dstInfo, ImageData* dst,
                          PixelFormat* interm) override {
    calls.push_back({srcInfo->format, dstInfo->format});
    const int32_t from = srcInfo->format;
    const int32_t to = dstInfo->format;
    const auto name = [&](int32_t format) {
      if (interm) *interm = static_cast<PixelFormat>(format);
      return LMX_STATUS_PARAM_UNSUPPORTED;
    };
    if (from == kY8 && to == kBGR) return Expand(*srcInfo, *src, *dst, 1, 3);
    if (from == kBGR && to == kBGRA) return Expand(*srcInfo, *src, *dst, 3, 4);
    if (from == kY8 && to == kBGRA) return name(kBGR);
    if (from == Image::PIXEL_FORMAT_YUY2) return name(Image::PIXEL_FORMAT_NV12);
    if (from == Image::PIXEL_FORMAT_NV12) return name(Image::PIXEL_FORMAT_YUY2);
    return LMX_STATUS_PARAM_UNSUPPORTED;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  std::vector<std::pair<int32_t, int32_t>> calls;

 private:
  // Replicates the first byte of each source pixel into every destination byte.
  static Status Expand(const ImageInfo& info, const ImageData& src, const ImageData& dst, int in, int out) {
    for (int32_t y = 0; y < info.height; ++y)
      for (int32_t x = 0; x < info.width; ++x)
        std::memset(dst.planes[0] + y * dst.pitches[0] + x * out, src.planes[0][y * src.pitches[0] + x * in], out);
    return LMX_STATUS_NO_ERROR;
  }
};

class CountingObserver final : public BaseImpl<LMXAccessObserver> {
 public:
  void OnAcquire(int32_t kind) override { kinds.push_back(kind); }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
  std::vector<int32_t> kinds;
};

// A session that answers only the observer identifier.
class ObserverSession final : public Session {
 public:
  explicit ObserverSession(LMXAccessObserver* observer) : observer_(observer) {}
  void* QueryInstance(InterfaceId iid) override { return iid == LMXAccessObserver::kIid ? observer_ : nullptr; }
  void Release() override {}
  Status QueryImpl(const Service::ImplDesc*, int32_t, Service::ImplDesc*) override {
    return LMX_STATUS_ITEM_UNAVAILABLE;
  }
  Status CreateImpl(const Service::ImplDesc*, InterfaceId, Base**) override { return LMX_STATUS_ITEM_UNAVAILABLE; }

 private:
  LMXAccessObserver* observer_;
};

}  // namespace

TEST(ImageMultiBuffer, AdoptedPlanesReadWithoutConversionAndWritesMakeOtherFormatsStale) {
  lmxtest::ScopedCapture capture;
  uint8_t pixels[4 * 64];
  std::memset(pixels, 7, sizeof(pixels));
  ImageData given{};
  given.pitches[0] = 64;
  given.planes[0] = pixels;
  ImageInfo info{64, 4, kY8, 0};
  Status sts;
  auto* image = new FakeConvertingImage(&info, &given, &sts);
  ASSERT_EQ(sts, LMX_STATUS_NO_ERROR);

  ImageData read{};
  ASSERT_EQ(Read(image, 0, &read), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.planes[0], pixels);
  EXPECT_EQ(image->RefCount(), 2u) << "each acquisition holds a reference";
  ASSERT_EQ(image->ReleaseAccess(&read), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.planes[0], nullptr) << "the caller's record is cleared";
  EXPECT_TRUE(image->calls.empty());

  // Another format converts once; the second read of it converts nothing.
  ASSERT_EQ(Read(image, kBGR, &read), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.planes[0][5], 7);
  image->ReleaseAccess(&read);
  ASSERT_EQ(Read(image, kBGR, &read), LMX_STATUS_NO_ERROR);
  image->ReleaseAccess(&read);
  EXPECT_EQ(image->calls.size(), 1u);
  EXPECT_TRUE(capture->Contains("Format conversion [BGR,Y8(*)] -> BGR"));

  // A write in Y8 makes BGR stale: the next BGR read converts again, from Y8.
  ImageData write{};
  ASSERT_EQ(Write(image, kY8, &write), LMX_STATUS_NO_ERROR);
  Fill(write, 64, 4, 42);
  ASSERT_EQ(image->ReleaseAccess(&write), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(image->IsBufferValid(kY8));
  EXPECT_FALSE(image->IsBufferValid(kBGR));
  ASSERT_EQ(Read(image, kBGR, &read), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.planes[0][0], 42);
  image->ReleaseAccess(&read);
  EXPECT_EQ(image->calls.size(), 2u);
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
  std::thread reader(
      [&] { waited = Read(image, 0, &first); });
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

  // Unknown, repeated and null releases.
  ImageData stranger{};
  stranger.format = kY8;
  EXPECT_EQ(image->ReleaseAccess(&stranger), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(image->ReleaseAccess(&first), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(image->ReleaseAccess(nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(image->AcquireAccess(static_cast<Image::Access>(4), static_cast<Image::PixelFormat>(0), 0, &first),
            LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(Read(image, 0, nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(image->AcquireNativeAccess(Image::ACCESS_READ, 0, nullptr), LMX_STATUS_HANDLE_INVALID);
  // A format without a plane layout gets no storage.
  EXPECT_EQ(Read(image, 0x12345, &first), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(image->RefCount(), 1u) << "failed acquisitions hold no reference";
  image->Release();
}

TEST(ImageMultiBuffer, ReadOfAStaleFormatWithoutAnyValidSourceFailsAndKeepsTheBuffer) {
  lmxtest::ScopedCapture capture;
  ImageObject* image = NewImage(16, 4, kY8);
  ImageData read{};
  EXPECT_EQ(Read(image, kBGRA, &read), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_TRUE(capture->Contains("Format conversion [BGRA(invalid)] -> BGRA conversion failed"));
  EXPECT_EQ(image->BufferCount(), 1u);
  image->Release();
}

TEST(ImageMultiBuffer, IntermediatePassesReachAFormatAndGiveUpAfterThree) {
  lmxtest::ScopedCapture capture;
  ImageInfo info{8, 2, kY8, 0};
  Status sts;
  auto* image = new FakeConvertingImage(&info, nullptr, &sts);
  ImageData data{};
  ASSERT_EQ(Write(image, 0, &data), LMX_STATUS_NO_ERROR);
  Fill(data, 8, 2, 9);
  image->ReleaseAccess(&data);

  ASSERT_EQ(Read(image, kBGRA, &data), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(data.planes[0][7], 9);
  image->ReleaseAccess(&data);
  EXPECT_TRUE(capture->Contains(" interm_format=BGR"));
  for (const auto& line : capture->Lines()) {
    if (line.message.find("interm_format") != std::string::npos) {
      EXPECT_EQ(line.level, LOG_LEVEL_DEBUG);
    }
  }
  // Y8->BGRA names BGR; Y8->BGR; then BGR->BGRA from the intermediate only.
  ASSERT_EQ(image->calls.size(), 3u);
  EXPECT_EQ(image->calls[2].first, kBGR);
  image->Release();

  info.format = Image::PIXEL_FORMAT_YUY2;
  auto* looping = new FakeConvertingImage(&info, nullptr, &sts);
  ASSERT_EQ(Write(looping, 0, &data), LMX_STATUS_NO_ERROR);
  looping->ReleaseAccess(&data);
  EXPECT_EQ(Read(looping, Image::PIXEL_FORMAT_Y16, &data), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_LE(looping->calls.size(), 8u) << "bounded by three intermediate passes";
  EXPECT_EQ(looping->RefCount(), 1u);
  looping->Release();
}

TEST(ImageMultiBuffer, RotationTurnsTheOtherWayForEachMirroringProperty) {
  lmxtest::ScopedCapture capture;
  ImageObject* image = NewImage(8, 4, kY8);
  struct Pair {
    uint32_t id;
    float value;
  } pairs[] = {{304, 1.0f}, {305, 1.0f}};
  ASSERT_EQ(image->AttachBuffer(lmx::kMetadataMirroring, reinterpret_cast<uint8_t*>(pairs), sizeof(pairs)),
            LMX_STATUS_NO_ERROR);
  ImageData data{};
  Write(image, 0, &data, 90);
  image->ReleaseAccess(&data);
  EXPECT_EQ(image->BufferCount(), 1u);
  EXPECT_TRUE(image->IsBufferValid(kY8 | (270 << kRotationShift))) << "90 with one mirroring pair is 270";

  image->DetachMetadata(lmx::kMetadataMirroring);
  pairs[1] = {304, -0.5f};
  image->AttachBuffer(lmx::kMetadataMirroring, reinterpret_cast<uint8_t*>(pairs), sizeof(pairs));
  Write(image, 0, &data, 90);
  image->ReleaseAccess(&data);
  EXPECT_TRUE(image->IsBufferValid(kY8 | (90 << kRotationShift))) << "two pairs restore the angle";
  EXPECT_FALSE(image->IsBufferValid(kY8 | (270 << kRotationShift)));
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
  ImageData content{};
  ASSERT_EQ(Write(image, 0, &content),
            LMX_STATUS_NO_ERROR)
      << "side data holds no access";
  image->ReleaseAccess(&content);
  EXPECT_EQ(image->ReleaseAccess(&side), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(image->IsBufferValid(Image::PIXEL_FORMAT_DEPTH_CONFIDENCE));

  // InvalidateData makes everything stale, side data included, and runs the hooks once.
  static int called;
  called = 0;
  image->SetInvalidateCallback(+[](void* argument) { called += *static_cast<int*>(argument); }, &called);
  int one = 1;
  image->SetInvalidateCallback(+[](void* argument) { called += *static_cast<int*>(argument); }, &one);
  ImageObject* attached = NewImage(4, 4, kY8);
  image->AttachObject(static_cast<Image*>(attached));
  EXPECT_EQ(image->InvalidateData(), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(image->InvalidateData(), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(called, 1);
  EXPECT_FALSE(image->IsBufferValid(Image::PIXEL_FORMAT_DEPTH_CONFIDENCE));
  EXPECT_FALSE(image->IsBufferValid(kY8));
  image->Release();

  // An image whose own format is side data, acquired as format 0, takes the normal
  // way; its release must end that access (a write left open blocked every later one).
  ImageObject* sideImage = NewImage(4, 2, Image::PIXEL_FORMAT_ATTACHED_8BPP);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(Write(sideImage, 0, &content), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(sideImage->ReleaseAccess(&content), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(sideImage->RefCount(), 1u);
  }
  sideImage->Release();
}

TEST(ImageMultiBuffer, ObserverIsToldOnceNotifyIsOn) {
  CountingObserver observer;
  ObserverSession session(&observer);
  ImageObject* image = NewImage(8, 4, Image::PIXEL_FORMAT_DEPTH, &session);
  ImageData data{};
  Write(image, 0, &data);
  image->ReleaseAccess(&data);
  EXPECT_TRUE(observer.kinds.empty());
  image->SetOptions(static_cast<int32_t>(0xC8136925));
  EXPECT_EQ(image->QueryOptions(), 0) << "the notify value is not stored as options";
  Read(image, 0, &data);
  image->ReleaseAccess(&data);
  EXPECT_EQ(observer.kinds, std::vector<int32_t>{2}) << "depth images report 2";
  image->Release();
}

// The audio instantiation: sample formats as keys, BaseAudio's copy as the
// conversion, observer kind 3, no conversion line.
TEST(ImageMultiBuffer, AudioObjectsConvertSampleFormatsAndReportThree) {
  lmxtest::ScopedCapture capture;
  CountingObserver observer;
  ObserverSession session(&observer);
  lmx::AudioInfo info{4, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, 0, {0, 0, 0}};
  Status sts = LMX_STATUS_ALLOC_FAILED;
  auto* audio = new lmx::AudioObject(&session, &info, nullptr, 0, &sts);
  ASSERT_EQ(sts, LMX_STATUS_NO_ERROR);
  audio->SetOptions(0xC8136925u);
  EXPECT_EQ(audio->QueryOptions(), 0u) << "the notify value is not stored as options";

  lmx::AudioData data{};
  ASSERT_EQ(audio->AcquireAccess(LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_PCM, &data), LMX_STATUS_NO_ERROR);
  const int16_t pcm[4] = {16384, -32768, 0, 8192};
  std::memcpy(data.dataPtr, pcm, sizeof(pcm));
  data.dataSize = 4;
  ASSERT_EQ(audio->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);

  // Null records are refused on both ends, leaving no reference behind.
  capture->Clear();
  EXPECT_EQ(audio->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_PCM, nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(audio->ReleaseAccess(nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(audio->RefCount(), 1u);

  ASSERT_EQ(audio->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, &data), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(data.dataSize, 4);
  const auto* floats = reinterpret_cast<const float*>(data.dataPtr);
  EXPECT_EQ(floats[0], 0.5f);
  EXPECT_EQ(floats[1], -1.0f);
  EXPECT_EQ(floats[3], 0.25f);
  ASSERT_EQ(audio->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(observer.kinds, (std::vector<int32_t>{3, 3}));

  // A write in float makes the PCM buffer stale; reading PCM converts back.
  ASSERT_EQ(audio->AcquireAccess(LMXAudio::ACCESS_WRITE, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, &data), LMX_STATUS_NO_ERROR);
  const float written[2] = {1.0f, -0.5f};
  std::memcpy(data.dataPtr, written, sizeof(written));
  data.dataSize = 2;
  ASSERT_EQ(audio->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
  EXPECT_FALSE(audio->IsBufferValid(LMXAudio::AUDIO_FORMAT_PCM));
  ASSERT_EQ(audio->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_PCM, &data), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(data.dataSize, 2);
  EXPECT_EQ(reinterpret_cast<const int16_t*>(data.dataPtr)[0], 32767);
  EXPECT_EQ(reinterpret_cast<const int16_t*>(data.dataPtr)[1], -16384);
  ASSERT_EQ(audio->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
  EXPECT_FALSE(capture->Contains("Format conversion ["));

  auto* service = static_cast<LMXAudioService*>(audio->QueryInstance(LMXAudioService::kIid));
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(service->InvalidateData(), LMX_STATUS_NO_ERROR);
  EXPECT_FALSE(audio->IsBufferValid(LMXAudio::AUDIO_FORMAT_IEEE_FLOAT));
  EXPECT_EQ(audio->RefCount(), 1u);
  audio->Release();
}

TEST(ImageMultiBuffer, ReInitRefusesWhileAccessedAndDropsOldBuffers) {
  lmxtest::ScopedCapture capture;
  ImageObject* image = NewImage(8, 4, kY8);
  ImageData data{};
  ASSERT_EQ(Read(image, kBGR, &data), LMX_STATUS_PARAM_UNSUPPORTED);
  ASSERT_EQ(Write(image, 0, &data), LMX_STATUS_NO_ERROR);
  ImageInfo bigger{16, 8, kY8, 0};
  EXPECT_EQ(image->ReInitImpl(&bigger, nullptr, 0), LMX_STATUS_PARAM_UNSUPPORTED);
  image->ReleaseAccess(&data);
  ImageInfo empty{0, 8, kY8, 0};
  EXPECT_EQ(image->ReInitImpl(&empty, nullptr, 0), LMX_STATUS_PARAM_UNSUPPORTED);
  ASSERT_EQ(image->ReInitImpl(&bigger, nullptr, 3), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(image->BufferCount(), 0u);
  EXPECT_EQ(image->GetWidth(), 16);
  ASSERT_EQ(Write(image, 0, &data), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(data.pitches[0], 64);
  image->ReleaseAccess(&data);
  image->Release();
}
