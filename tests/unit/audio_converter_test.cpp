// The audio converter over fake audio objects: pass-through, set-up and its log
// line, streaming in chunks, multi-channel sources and destinations, failures.
// The real allocator's audio objects are converted end to end by lmxtool's tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "audio/audio_converter.h"
#include "audio_fakes.h"
#include "core_metadata.h"
#include "module_factories.h"
#include "test_support.h"

using lmx::AudioConverter;
using lmx::CreateAudioConverter;

using namespace Norvik::Lumetra;
using lmxtest::FakeAllocator;
using lmxtest::MakeAudio;
using lmxtest::MakeInfo;
using lmxtest::VectorAudio;

namespace {

const LMXAudio::AudioInfo kMono16k = MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1);

// A converter made by its factory, with argument 1 as its allocator.
LMXAudioConversion* MakeConverter(Base* allocator) {
  Base* object = nullptr;
  EXPECT_EQ(CreateAudioConverter(reinterpret_cast<Session*>(allocator), nullptr, nullptr, nullptr,
                                 LMXAudioConversion::kIid, &object),
            LMX_STATUS_NO_ERROR);
  return static_cast<LMXAudioConversion*>(object);
}

// Converts the PCM stream in chunks of `frames` frames to mono; returns all output.
std::vector<int16_t> Stream(LMXAudioConversion* converter, const std::vector<int16_t>& samples, int32_t inRate,
                            int32_t channels, int32_t outRate, int32_t frames) {
  std::vector<int16_t> out;
  for (size_t at = 0; at < samples.size(); at += static_cast<size_t>(frames) * channels) {
    const size_t end = std::min(samples.size(), at + static_cast<size_t>(frames) * channels);
    auto* src = MakeAudio(LMXAudio::AUDIO_FORMAT_PCM, inRate, channels,
                          std::vector<int16_t>(samples.begin() + at, samples.begin() + end));
    LMXAudio* dst = nullptr;
    EXPECT_EQ(converter->ConvertAudio(src, MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, outRate, 1), dst),
              LMX_STATUS_NO_ERROR);
    if (dst) {
      for (int16_t sample : static_cast<VectorAudio*>(dst)->Samples<int16_t>()) out.push_back(sample);
      dst->Release();
    }
    src->Release();
  }
  return out;
}

std::vector<int16_t> Noise(size_t n, unsigned seed) {
  std::vector<int16_t> v(n);
  for (auto& sample : v) sample = static_cast<int16_t>((seed = seed * 1103515245u + 12345u) >> 16);
  return v;
}

class AudioConverterTest : public ::testing::Test {
 protected:
  void TearDown() override {
    converter_->Release();
    allocator_->Release();
  }
  FakeAllocator* allocator_ = new FakeAllocator;
  LMXAudioConversion* converter_ = MakeConverter(allocator_);
};

}  // namespace

TEST_F(AudioConverterTest, SameRateAndLayoutIsCopiedInTheSourceFormat) {
  lmxtest::ScopedCapture capture;
  auto* src = MakeAudio<float>(LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 16000, 1, {0.5f, -0.25f, 1.0f});
  src->SetTimeStamp(123456789);
  LMXAudio* dst = nullptr;
  // The mask differs, but a mono source passes through anyway.
  ASSERT_EQ(converter_->ConvertAudio(src, MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, 4), dst),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(dst->QueryInfo().format, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT);
  EXPECT_EQ(static_cast<VectorAudio*>(dst)->Samples<float>(), (std::vector<float>{0.5f, -0.25f, 1.0f}));
  EXPECT_EQ(dst->QueryTimeStamp(), 123456789);
  EXPECT_FALSE(capture->Contains("Audio resampler initilized")) << "the resampler is not set up";
  dst->Release();

  // Stereo with different masks is resampled (set up), not copied.
  auto* stereo = MakeAudio<int16_t>(LMXAudio::AUDIO_FORMAT_PCM, 16000, 2, std::vector<int16_t>(400, 1), 3);
  ASSERT_EQ(converter_->ConvertAudio(stereo, MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 16000, 2, 5), dst),
            LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(capture->Contains("Audio resampler initilized in 16000 Hz -> 16000 Hz mode"));
  dst->Release();
  stereo->Release();
  src->Release();
}

TEST_F(AudioConverterTest, SetsUpOnceAndLogsTheModeAtInfoLevel) {
  lmxtest::ScopedCapture capture;
  Stream(converter_, Noise(960, 1), 48000, 1, 16000, 480);
  int lines = 0;
  for (const auto& line : capture->Lines())
    if (line.message == "Audio resampler initilized in 48000 Hz -> 16000 Hz mode") {
      ++lines;
      EXPECT_EQ(line.level, LOG_LEVEL_INFO);
      EXPECT_EQ(line.file, "liblmxcore/src/audio/audio_converter.cpp");
    }
  EXPECT_EQ(lines, 1) << "two chunks at the same rates set up once";
  // A rate change sets up again and starts without history, as a new converter
  // would; the same rates again continue the stream.
  const auto noise = Noise(960, 2);
  const auto changed = Stream(converter_, noise, 44100, 1, 16000, 960);
  EXPECT_TRUE(capture->Contains("Audio resampler initilized in 44100 Hz -> 16000 Hz mode"));
  auto* fresh = new AudioConverter(allocator_);
  EXPECT_EQ(changed, Stream(fresh, noise, 44100, 1, 16000, 960));
  fresh->Release();
  EXPECT_NE(Stream(converter_, noise, 44100, 1, 16000, 960), changed) << "the held-back samples come first";
}

TEST_F(AudioConverterTest, ChunkSizesDoNotChangeTheStream) {
  // Stereo to mono: the output of each call ends 32 input samples before its
  // input; those samples come out in the next call. 44.1 kHz -> 48 kHz has 160
  // phases, so chunks start anywhere in the filter's period.
  const auto input = Noise(2 * 24000, 5);
  for (auto [inRate, outRate] : {std::pair{48000, 16000}, {44100, 48000}}) {
    auto* first = new AudioConverter(allocator_);
    const auto whole = Stream(first, input, inRate, 2, outRate, 24000);  // several passes in one call
    first->Release();
    // Where a call's last pass starts within a sample, one more output may come out.
    EXPECT_NEAR(whole.size(), std::ceil((24000 - 32) * double(outRate) / inRate), 1.0);
    // Chunks shorter than the look-ahead (31 frames) produce nothing at first, and succeed.
    for (int32_t frames : {1, 7, 31, 100, 479, 4064, 4065, 4096, 20000}) {
      auto* fresh = new AudioConverter(allocator_);
      auto pieces = Stream(fresh, input, inRate, 2, outRate, frames);
      fresh->Release();
      const size_t common = std::min(pieces.size(), whole.size());
      ASSERT_LE(std::max(pieces.size(), whole.size()), common + 1);
      ASSERT_TRUE(std::equal(whole.begin(), whole.begin() + common, pieces.begin()))
          << inRate << " -> " << outRate << ", " << frames << " frames per chunk";
    }
  }
}

TEST_F(AudioConverterTest, FloatSourcesAreReadAsPcmAndStereoDestinationsOnlyCounted) {
  const std::vector<int16_t> pcm = Noise(3000, 7);
  std::vector<float> floats(pcm.begin(), pcm.end());
  for (float& sample : floats) sample /= 32768.0f;
  auto* a = MakeAudio(LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 22050, 1, floats);
  LMXAudio* outA = nullptr;
  ASSERT_EQ(converter_->ConvertAudio(a, kMono16k, outA), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(outA->QueryInfo().format, LMXAudio::AUDIO_FORMAT_PCM);
  auto* other = new AudioConverter(allocator_);
  EXPECT_EQ(static_cast<VectorAudio*>(outA)->Samples<int16_t>(), Stream(other, pcm, 22050, 1, 16000, 3000));
  other->Release();

  // A stereo destination counts both channels; the samples are never written.
  auto* src = MakeAudio(LMXAudio::AUDIO_FORMAT_PCM, 44100, 1, Noise(4410, 9));
  LMXAudio* dst = nullptr;
  ASSERT_EQ(converter_->ConvertAudio(src, MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 48000, 2), dst), LMX_STATUS_NO_ERROR);
  auto* out = static_cast<VectorAudio*>(dst);
  EXPECT_EQ(out->dataSize, 2 * static_cast<int32_t>(std::ceil((4410 - 32) * 48000.0 / 44100)));
  EXPECT_EQ(allocator_->lastInfo.bufferSize, static_cast<int32_t>(4410.0f * 96000.0f / 44100.0f) + 32);
  for (size_t i = 0; i < static_cast<size_t>(out->dataSize) * 2; ++i) ASSERT_EQ(out->bytes[i], lmxtest::kSentinel);
  for (LMXAudio* object : {static_cast<LMXAudio*>(a), outA, static_cast<LMXAudio*>(src), dst}) object->Release();
}

TEST_F(AudioConverterTest, FailuresLogAndReturnTheirStatus) {
  lmxtest::ScopedCapture capture;
  LMXAudio* dst = nullptr;
  EXPECT_EQ(converter_->ConvertAudio(nullptr, kMono16k, dst), LMX_STATUS_HANDLE_INVALID);
  auto* src = MakeAudio(LMXAudio::AUDIO_FORMAT_PCM, 48000, 1, Noise(480, 2));
  EXPECT_EQ(converter_->ConvertAudio(src, MakeInfo(0, LMXAudio::AUDIO_FORMAT_IEEE_FLOAT, 16000, 1), dst),
            LMX_STATUS_FEATURE_UNSUPPORTED);

  // Rates whose phase bank would be too large: the size query fails, and the
  // converter stays usable at its earlier rates.
  auto* odd = MakeAudio(LMXAudio::AUDIO_FORMAT_PCM, 44101, 1, Noise(480, 3));
  const auto mono48k = MakeInfo(0, LMXAudio::AUDIO_FORMAT_PCM, 48000, 1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(converter_->ConvertAudio(odd, mono48k, dst), LMX_STATUS_DEVICE_FAILED);
    ASSERT_EQ(converter_->ConvertAudio(src, kMono16k, dst), LMX_STATUS_NO_ERROR);
    dst->Release();
  }

  src->failAcquire = true;  // the source cannot be read
  EXPECT_EQ(converter_->ConvertAudio(src, kMono16k, dst), LMX_STATUS_DEVICE_BUSY);
  src->failAcquire = false;

  // No destination from the allocator, on both paths.
  allocator_->failCreate = true;
  EXPECT_EQ(converter_->ConvertAudio(src, kMono16k, dst), LMX_STATUS_ALLOC_FAILED);
  EXPECT_EQ(dst, nullptr);
  EXPECT_EQ(src->releases, src->acquisitions) << "the source is released";
  EXPECT_EQ(converter_->ConvertAudio(src, mono48k, dst), LMX_STATUS_ALLOC_FAILED);

  // A source without channels is refused before any division by them.
  auto* empty = MakeAudio(LMXAudio::AUDIO_FORMAT_PCM, 8000, 0, Noise(10, 4));
  EXPECT_EQ(converter_->ConvertAudio(empty, kMono16k, dst), LMX_STATUS_HANDLE_INVALID);

  // A converter made without an allocator creates nothing.
  LMXAudioConversion* orphan = MakeConverter(nullptr);
  EXPECT_EQ(orphan->ConvertAudio(src, kMono16k, dst), LMX_STATUS_ALLOC_FAILED);
  orphan->Release();
  for (auto* object : {src, odd, empty}) object->Release();
}

TEST(AudioConverterDestinations, AReleasedDestinationIsReusedOnlyWhenNothingElseHoldsIt) {
  Base* object = nullptr;
  ASSERT_EQ(lmx::CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object), LMX_STATUS_NO_ERROR);
  auto* allocator = static_cast<LMXAllocator*>(object);
  LMXAudioConversion* converter = MakeConverter(allocator);
  auto* reference = new FakeAllocator;  // uncounted objects: never reused
  LMXAudioConversion* fresh = MakeConverter(reference);
  const auto input = Noise(480 * 5, 11);
  std::vector<LMXAudio*> outs;
  for (size_t chunk = 0; chunk < 5; ++chunk) {
    const std::vector<int16_t> part(input.begin() + 480 * chunk, input.begin() + 480 * (chunk + 1));
    auto* src = MakeAudio(LMXAudio::AUDIO_FORMAT_PCM, 48000, 1, part);
    LMXAudio* dst = nullptr;
    ASSERT_EQ(converter->ConvertAudio(src, kMono16k, dst), LMX_STATUS_NO_ERROR);
    LMXAudio* expected = nullptr;
    ASSERT_EQ(fresh->ConvertAudio(src, kMono16k, expected), LMX_STATUS_NO_ERROR);
    LMXAudio::AudioData data{};
    ASSERT_EQ(dst->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_PCM, 0, &data), LMX_STATUS_NO_ERROR);
    const auto* samples = reinterpret_cast<const int16_t*>(data.dataPtr);
    EXPECT_EQ(std::vector<int16_t>(samples, samples + data.dataSize),
              static_cast<VectorAudio*>(expected)->Samples<int16_t>());
    dst->ReleaseAccess(&data);
    outs.push_back(dst);
    expected->Release();
    src->Release();
    // The host still holds chunk 1's object when chunk 2 is made, and chunk 3's
    // carries metadata when chunk 4 is made.
    auto* metadata = static_cast<Metadata*>(dst->QueryInstance(Metadata::kIid));
    EXPECT_EQ(metadata->QueryMetadata(0), 0) << "chunk " << chunk << ": none of an earlier frame's metadata";
    uint8_t tag = 1;
    if (chunk == 3) {
      ASSERT_EQ(metadata->AttachBuffer(7, &tag, 1), LMX_STATUS_NO_ERROR);
    }
    if (chunk != 1) dst->Release();
  }
  EXPECT_EQ(outs[1], outs[0]) << "released: reused";
  EXPECT_NE(outs[2], outs[1]) << "held: a new one";
  outs[1]->Release();
  for (Base* done : std::initializer_list<Base*>{converter, fresh, reference, allocator}) done->Release();
}
