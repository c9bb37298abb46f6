// Audio storage (allocation, native access, the writer's count) and the sample
// copy between audio objects with format conversion.
#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <tuple>

#include "audio_fakes.h"
#include "lmxutils.h"
#include "test_support.h"

using lmx::AudioSysMem;

using namespace Norvik::Lumetra;
using lmxtest::MakeAudio;
using lmxtest::MakeInfo;
using lmxtest::VectorAudio;

namespace {

AudioSysMem* MakeStorage(int32_t samples, LMXAudio::AudioFormat format, Status* sts) {
  AudioSysMem* storage = nullptr;
  *sts = AudioSysMem::Create(MakeInfo(samples, format, 16000, 1), format, nullptr, 0, &storage);
  return storage;
}

}  // namespace

TEST(AudioSysMem, AllocatesSampleSizeTimesCountAndRefusesImpossibleSizes) {
  lmxtest::ScopedCapture capture;
  Status sts;
  for (auto [format, bytes] :
       {std::pair{LMXAudio::AUDIO_FORMAT_PCM, 2048}, {LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 4096}}) {
    AudioSysMem* storage = MakeStorage(1024, format, &sts);
    ASSERT_EQ(sts, LMX_STATUS_NO_ERROR);
    LMXAudio::AudioData data{};
    ASSERT_EQ(storage->AcquireNativeAccess(LMXAudio::ACCESS_WRITE, 0, &data), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(data.format, format);
    EXPECT_EQ(data.dataSize, 0);
    ASSERT_NE(data.dataPtr, nullptr);
    data.dataPtr[bytes - 1] = 1;  // the sanitizer run catches a short block
    data.dataSize = 1024;
    EXPECT_EQ(storage->ReleaseNativeAccess(&data), LMX_STATUS_NO_ERROR);
    storage->Release();
  }

  // Negative or beyond the 32-bit size: an allocation failure, object still destroyable.
  for (int32_t samples : {-1, std::numeric_limits<int32_t>::max()}) {
    AudioSysMem* storage = MakeStorage(samples, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, &sts);
    EXPECT_EQ(sts, LMX_STATUS_ALLOC_FAILED);
    ASSERT_NE(storage, nullptr);
    storage->Release();
  }

  AudioSysMem* storage = MakeStorage(8, LMXAudio::AUDIO_FORMAT_PCM, &sts);
  EXPECT_EQ(storage->AcquireNativeAccess(LMXAudio::ACCESS_READ, 0, nullptr), LMX_STATUS_HANDLE_INVALID);
  storage->Release();
}

TEST(AudioSysMem, ReleaseTakesTheWritersCountClampedIntoTheBuffer) {
  lmxtest::ScopedCapture capture;
  Status sts;
  AudioSysMem* storage = MakeStorage(100, LMXAudio::AUDIO_FORMAT_PCM, &sts);
  // (written, kept, status)
  for (auto [written, kept, status] : {std::tuple{40, 40, LMX_STATUS_NO_ERROR},
                                       {100, 100, LMX_STATUS_NO_ERROR},
                                       {101, 100, LMX_STATUS_PARAM_UNSUPPORTED},
                                       {-5, 0, LMX_STATUS_PARAM_UNSUPPORTED}}) {
    LMXAudio::AudioData data{};
    ASSERT_EQ(storage->AcquireNativeAccess(LMXAudio::ACCESS_WRITE, 0, &data), LMX_STATUS_NO_ERROR);
    data.dataSize = written;
    EXPECT_EQ(storage->ReleaseNativeAccess(&data), status) << written;
    EXPECT_TRUE(data.format == 0 && data.dataPtr == nullptr) << "the record is cleared even when the count is refused";
    ASSERT_EQ(storage->AcquireNativeAccess(LMXAudio::ACCESS_READ, 0, &data), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(data.dataSize, kept);
  }
  storage->Release();
}

TEST(AudioCopy, ConvertsBetweenPcmAndFloatWithRoundingAndSaturation) {
  auto* pcm = MakeAudio<int16_t>(LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, {16384, -32768, 1, 0});
  // The destination is acquired in its own format: 4 floats fit a buffer of 4.
  auto* asFloat = new VectorAudio(MakeInfo(4, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 16000, 1));
  ASSERT_EQ(asFloat->CopyAudio(pcm), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(asFloat->Samples<float>(), (std::vector<float>{0.5f, -1.0f, 1.0f / 32768, 0.0f}));

  const float nan = std::numeric_limits<float>::quiet_NaN();
  auto* floats = MakeAudio<float>(LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 16000, 1,
                                  {1.0f, -1.0f, 2.5f / 32768, 3.5f / 32768, -2.5f / 32768, 1e9f, nan, 0.25f});
  auto* asPcm = new VectorAudio(MakeInfo(8, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1));
  ASSERT_EQ(asPcm->CopyAudio(floats), LMX_STATUS_NO_ERROR);
  // Saturation at both ends; halves to even; NaN to 0.
  EXPECT_EQ(asPcm->Samples<int16_t>(), (std::vector<int16_t>{32767, -32768, 2, 4, -2, 32767, 0, 8192}));
  EXPECT_EQ(floats->acquisitions, 1);
  EXPECT_EQ(floats->releases, 1);
  for (VectorAudio* object : {pcm, asFloat, floats, asPcm}) object->Release();
}

TEST(AudioCopy, RefusesMismatchedLayoutsAndOversizedSources) {
  lmxtest::ScopedCapture capture;
  auto* mono = MakeAudio<int16_t>(LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, {1, 2, 3, 4});
  auto* stereo = new VectorAudio(MakeInfo(8, LMXAudio::AUDIO_FORMAT_PCM, 16000, 2));
  EXPECT_EQ(stereo->CopyAudio(mono), LMX_STATUS_FEATURE_UNSUPPORTED);
  EXPECT_EQ(mono->acquisitions, 0) << "refused before anything is acquired";

  auto* otherRate = new VectorAudio(MakeInfo(8, LMXAudio::AUDIO_FORMAT_PCM, 8000, 1));
  EXPECT_EQ(otherRate->CopyAudio(mono), LMX_STATUS_FEATURE_UNSUPPORTED);
  EXPECT_EQ(otherRate->CopyAudio(nullptr), LMX_STATUS_HANDLE_INVALID);

  // A destination of 3 samples cannot take 4: nothing is written.
  auto* small = new VectorAudio(MakeInfo(3, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1));
  EXPECT_EQ(small->CopyAudio(mono), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(small->bytes[0], lmxtest::kSentinel);

  // A failed source acquire: "failed on src_data.format", both accesses still released.
  mono->failAcquire = true;
  auto* target = new VectorAudio(MakeInfo(4, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1));
  testing::internal::CaptureStdout();
  EXPECT_EQ(target->CopyAudio(mono), LMX_STATUS_PARAM_UNSUPPORTED);
  std::fflush(stdout);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_NE(printed.find("AcquireAudioAccess, audio="), std::string::npos) << "printed, not logged";
  EXPECT_NE(printed.find(", access=1, by BaseAudio::CopyAudio\n"), std::string::npos) << printed;
  for (auto* object : {mono, stereo, otherRate, small, target}) object->Release();
}

TEST(AudioCopy, CopyDataOntoItselfOnlySetsTheCount) {
  auto* audio = MakeAudio<int16_t>(LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, {5, 6, 7});
  LMXAudio::AudioInfo info = audio->QueryInfo();
  LMXAudio::AudioData src{LMXAudio::AUDIO_FORMAT_PCM, 3, audio->bytes.data()};
  LMXAudio::AudioData dst{LMXAudio::AUDIO_FORMAT_PCM, 0, audio->bytes.data()};
  EXPECT_EQ(audio->CopyData(&info, &src, &info, &dst), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(dst.dataSize, 3);

  // Null buffers with samples to copy are the primitive's refusal.
  LMXAudio::AudioInfo floatInfo = info;
  floatInfo.format = LMXAudio::AUDIO_FORMAT_IEEE_FLOAT;
  LMXAudio::AudioData none{LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 0, nullptr};
  EXPECT_EQ(audio->CopyData(&info, &src, &floatInfo, &none), LMX_STATUS_ALLOC_FAILED);
  LMXAudio::AudioInfo unknown = info;
  unknown.format = static_cast<LMXAudio::AudioFormat>(0x12345608);
  EXPECT_EQ(audio->CopyData(&info, &src, &unknown, &dst), LMX_STATUS_PARAM_UNSUPPORTED);
  audio->Release();
}
