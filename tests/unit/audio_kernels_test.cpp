// The AVX2 audio primitives against their scalar references, bit for bit, over
// many lengths and channel counts, plus known answers for the mixing rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "cpu/cpu_features.h"
#include "dsp/audio_kernels.h"

using namespace lmx;

namespace {

class AudioKernelsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!(DetectedCpuFeatures() & kCpuHasAVX2)) GTEST_SKIP() << "no AVX2 on this processor";
  }
  std::vector<int16_t> RandomPcm(size_t n) {
    std::vector<int16_t> v(n);
    for (auto& s : v) s = static_cast<int16_t>(rng_());
    return v;
  }
  std::mt19937 rng_{1234};
};

}  // namespace

TEST(AudioKernelsKnownAnswers, MixingTruncatesTowardZero) {
  for (const AudioKernelTable& k : {SelectAudioKernels(0), ActiveAudioKernels()}) {
    const int16_t stereo[] = {-3, -4, -1, 0, 32767, 32767, -32768, -32768, 3, 4}, three[] = {1, 2, 4, -1, -2, -4};
    std::vector<int16_t> out(5);
    k.mixToMono(stereo, 2, out.data(), 5);
    EXPECT_EQ(out, (std::vector<int16_t>{-3, 0, 32767, -32768, 3}));
    k.mixToMono(three, 3, out.data(), 2);
    EXPECT_EQ(out, (std::vector<int16_t>{2, -2, 32767, -32768, 3}));
  }
}

TEST_F(AudioKernelsTest, MixToMonoMatchesScalarForEveryLayout) {
  const AudioKernelTable simd = SelectAudioKernels(kCpuHasAVX2);
  for (int32_t channels : {1, 2, 3, 4, 5, 6, 7, 8, 11, 16, 33}) {
    for (int32_t frames : {0, 1, 7, 8, 9, 15, 16, 17, 31, 100, 1001}) {
      // Extremes first so every block sees saturating sums.
      std::vector<int16_t> in = RandomPcm(static_cast<size_t>(frames) * channels);
      for (size_t i = 0; i < in.size() && i < 64; ++i) in[i] = (i % 3) ? -32768 : 32767;
      std::vector<int16_t> ref(frames + 1, 111), opt(frames + 1, 222);
      MixToMono_C(in.data(), channels, ref.data(), frames);
      simd.mixToMono(in.data(), channels, opt.data(), frames);
      ref.pop_back();
      opt.pop_back();
      ASSERT_EQ(ref, opt) << channels << " channels, " << frames << " frames";
    }
  }
}

TEST_F(AudioKernelsTest, SampleConversionsMatchScalar) {
  std::uniform_real_distribution<float> dist(-1.5f, 1.5f);
  for (const uint32_t features : {uint32_t{kCpuHasAVX2}, kCpuHasAVX2 | kCpuHasAVX512BW})
    for (int32_t n : {0, 1, 15, 16, 17, 33, 1000}) {
      if ((DetectedCpuFeatures() & features) != features) continue;
      const AudioKernelTable simd = SelectAudioKernels(features);
      std::vector<float> in(n);
      for (auto& x : in) x = dist(rng_);
      const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                                std::numeric_limits<float>::infinity(),
                                -std::numeric_limits<float>::infinity(),
                                0.5f / 32768,
                                1.5f / 32768,
                                -0.5f / 32768,
                                32767.5f / 32768,
                                -1.0f,
                                1.0f};
      for (int32_t i = 0; i < n && i < 9; ++i) in[i] = specials[i];
      std::vector<int16_t> ref(n + 1, 1), opt(n + 1, 2);
      FloatToPcm16_C(in.data(), ref.data(), n);
      simd.floatToPcm16(in.data(), opt.data(), n);
      ref.pop_back();
      opt.pop_back();
      ASSERT_EQ(ref, opt) << n;

      std::vector<int16_t> pcm = RandomPcm(n);
      std::vector<float> fref(n), fopt(n);
      Pcm16ToFloat_C(pcm.data(), fref.data(), n);
      simd.pcm16ToFloat(pcm.data(), fopt.data(), n);
      if (n) {
        ASSERT_EQ(0, std::memcmp(fref.data(), fopt.data(), n * sizeof(float))) << n;
      }
    }
}
