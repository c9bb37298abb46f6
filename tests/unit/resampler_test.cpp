// The polyphase resampler: limits of the set-up, tone level and SNR, stop band,
// and each fast variant against the double reference.
// Streaming in blocks is covered through the converter and its fuzz target.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "cpu/cpu_features.h"
#include "dsp/resampler.h"
#include "dsp/resampler_bank.h"

using namespace lmx::dsp;

namespace {

constexpr int32_t kTaps = 64;
constexpr int32_t kHalf = kTaps / 2;
constexpr double kPi = 3.14159265358979323846;

// A set-up state, released with its bank reference.
using State = std::unique_ptr<uint8_t[], decltype([](uint8_t* s) {
                                vkpsResamplePolyphaseFixedRelease_16s(s);
                                delete[] s;
                              })>;

// The set-up takes the variant of the active audio table, which `features` masks.
State MakeState(int32_t inRate, int32_t outRate, uint32_t features = lmx::kCpuAllFeatures) {
  lmx::ScopedCpuFeatureMask mask(features);
  int32_t size = 0, len = 0, num = 0;
  EXPECT_EQ(vkpsResamplePolyphaseFixedGetSize_16s(inRate, outRate, kTaps, &size, &len, &num, vkpAlgHintAccurate),
            kVkpOk);
  State state(new uint8_t[size]);
  EXPECT_EQ(vkpsResamplePolyphaseFixedInit_16s(inRate, outRate, kTaps, 0.95f, 9.0f, state.get(), vkpAlgHintAccurate),
            kVkpOk);
  return state;
}

// Runs the whole signal in one call, after kHalf samples of silence, holding back
// the last kHalf samples as look-ahead (as a streaming caller does).
std::vector<int16_t> Resample(State& state, const std::vector<int16_t>& signal, int32_t inRate, int32_t outRate) {
  std::vector<int16_t> in(kHalf, 0);
  in.insert(in.end(), signal.begin(), signal.end());
  std::vector<int16_t> out(static_cast<size_t>(signal.size()) * outRate / inRate + 2);
  double time = kHalf;
  int32_t outLen = 0;
  EXPECT_EQ(vkpsResamplePolyphaseFixed_16s(in.data(), static_cast<int32_t>(signal.size()) - kHalf, out.data(), 0.98f,
                                           &time, &outLen, state.get()),
            kVkpOk);
  out.resize(outLen);
  // The float form (the same samples scaled by 2^-15, between pads) gives the same outputs.
  std::vector<float> floats(in.size() + 2 * kResamplerFloatPad, 0.0f);
  for (size_t i = 0; i < in.size(); ++i) floats[kResamplerFloatPad + i] = in[i] / 32768.0f;
  std::vector<int16_t> again(out.size() + 2);
  time = kHalf;
  EXPECT_EQ(
      vkpsResamplePolyphaseFixed_32f(floats.data() + kResamplerFloatPad, static_cast<int32_t>(signal.size()) - kHalf,
                                     again.data(), 0.98f, &time, &outLen, state.get()),
      kVkpOk);
  again.resize(outLen);
  EXPECT_EQ(again, out);
  return out;
}

std::vector<int16_t> Tone(double frequency, double rate, double amplitude, size_t n) {
  std::vector<int16_t> v(n);
  for (size_t i = 0; i < n; ++i)
    v[i] = static_cast<int16_t>(std::lround(amplitude * std::sin(2 * kPi * frequency * i / rate)));
  return v;
}

}  // namespace

TEST(Resampler, SetUpLimits) {
  int32_t size = 0, len = 0, num = 0;
  ASSERT_EQ(vkpsResamplePolyphaseFixedGetSize_16s(44100, 48000, 64, &size, &len, &num, vkpAlgHintAccurate), kVkpOk);
  EXPECT_EQ(std::pair(num, len), std::pair(160, 64));
  ASSERT_EQ(vkpsResamplePolyphaseFixedGetSize_16s(48000, 16000, 64, &size, &len, &num, vkpAlgHintAccurate), kVkpOk);
  EXPECT_EQ(num, 1);
  // (in rate, out rate, length, answer); coprime rates would need 48000 phases.
  for (auto [in, out, length, answer] : {std::tuple{44101, 48000, 64, kVkpTooManyPhases},
                                         {48000, 1000, 64, kVkpBadRatio},
                                         {0, 16000, 64, kVkpBadRate},
                                         {16000, -1, 64, kVkpBadRate},
                                         {16000, 8000, 60, kVkpBadLength}})
    EXPECT_EQ(vkpsResamplePolyphaseFixedGetSize_16s(in, out, length, &size, &len, &num, vkpAlgHintAccurate), answer)
        << in << "->" << out << " length " << length;
  EXPECT_EQ(vkpsResamplePolyphaseFixedInit_16s(44101, 48000, 64, 0.95f, 9.0f, nullptr, vkpAlgHintAccurate),
            kVkpNullPointer);
  std::vector<uint8_t> blank(4096, 0);
  int16_t in[128] = {}, out[8];
  double time = 32;
  EXPECT_EQ(vkpsResamplePolyphaseFixed_16s(in, 1, out, 1.0f, &time, &len, blank.data()), kVkpBadState);
}

// A tone at -1 dBFS keeps its frequency and level and comes out with at least
// 90 dB SNR; 997 Hz divides none of the rates, so the rounding error is noise
// rather than a pattern repeating with the tone.
TEST(Resampler, ToneKeepsFrequencyLevelAndSnrAndStopBandIsBelowMinus80dB) {
  const double amplitude = 32767 * std::pow(10.0, -1.0 / 20);
  for (auto [inRate, outRate] : {std::pair{48000, 16000}, {44100, 48000}}) {
    auto state = MakeState(inRate, outRate);
    auto out = Resample(state, Tone(997, inRate, amplitude, inRate), inRate, outRate);
    // Least-squares fit of a 997 Hz sine at the output rate over the settled part.
    double ss = 0, cc = 0, sc = 0, ys = 0, yc = 0;
    const size_t from = 100, to = out.size() - 100;
    for (size_t i = from; i < to; ++i) {
      const double phase = 2 * kPi * 997 * double(i) / outRate;
      const double sn = std::sin(phase), cs = std::cos(phase);
      ss += sn * sn;
      cc += cs * cs;
      sc += sn * cs;
      ys += out[i] * sn;
      yc += out[i] * cs;
    }
    const double det = ss * cc - sc * sc;
    const double a = (ys * cc - yc * sc) / det, b = (yc * ss - ys * sc) / det;
    double signal = 0, noise = 0;
    for (size_t i = from; i < to; ++i) {
      const double phase = 2 * kPi * 997 * double(i) / outRate;
      const double fit = a * std::sin(phase) + b * std::cos(phase);
      signal += fit * fit;
      noise += (out[i] - fit) * (out[i] - fit);
    }
    const double levelDb = 20 * std::log10(std::hypot(a, b) / (0.98 * amplitude));
    EXPECT_NEAR(levelDb, 0.0, 0.1) << inRate << "->" << outRate;
    EXPECT_GE(10 * std::log10(signal / noise), 90.0) << inRate << "->" << outRate;
  }
  // 10 kHz lies in the stop band of 48 kHz -> 16 kHz (it would alias to 6 kHz).
  auto state = MakeState(48000, 16000);
  const auto aliased = Resample(state, Tone(10000, 48000, amplitude, 48000), 48000, 16000);
  double energy = 0;  // over the settled part, against the input's amplitude / sqrt(2)
  for (size_t i = 100; i < aliased.size() - 100; ++i) energy += double(aliased[i]) * aliased[i];
  EXPECT_LE(10 * std::log10(energy / double(aliased.size() - 200) / (amplitude * amplitude / 2)), -80.0);
}

// The variants under test: the double reference first, then each fast path the
// processor has.
std::vector<uint32_t> Variants() {
  std::vector<uint32_t> variants = {0u};
  const uint32_t avx2 = lmx::kCpuHasAVX2 | lmx::kCpuHasFMA, avx512 = avx2 | lmx::kCpuHasAVX512BW;
  for (uint32_t features : {avx2, avx512})
    if ((lmx::DetectedCpuFeatures() & features) == features) variants.push_back(features);
  return variants;
}

// Rate pairs that reach each shape of the fast path: outputs in lanes with one
// phase, whole factors up, many phases (160: whole groups; 147 and 441: a partial
// last group), and the per-output block where lanes do not pay (48000 -> 8000).
const std::pair<int32_t, int32_t> kRatePairs[] = {
    {48000, 16000}, {44100, 48000}, {16000, 48000}, {44100, 16000}, {8000, 44100}, {8000, 16000},  {16000, 64000},
    {8000, 48000},  {48000, 44100}, {48000, 8000},  {32000, 16000}, {40000, 8000}, {16000, 16000}, {64000, 8000}};

// The fast path rounds the taps to float and sums in another order: an output may
// differ from the double reference by 1, never more, and only rarely (an error in
// the rounding rule would show as differences in a large share of the samples).
// Its AVX2 and AVX-512 bodies agree exactly.
TEST(Resampler, FastVariantStaysWithinOneOfTheReference) {
  const auto variants = Variants();
  if (variants.size() < 2) GTEST_SKIP() << "no fast variant on this processor";
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> dist(-32768, 32767);
  for (auto [inRate, outRate] : kRatePairs) {
    std::vector<int16_t> noise(20000);
    for (auto& s : noise) s = static_cast<int16_t>(dist(rng));
    auto sine = Tone(997, inRate, 32767 * std::pow(10.0, -1.0 / 20), 20000);
    for (auto* signal : {&noise, &sine}) {
      auto state = MakeState(inRate, outRate, 0);
      const auto reference = Resample(state, *signal, inRate, outRate);
      std::vector<int16_t> firstFast;  // the fast bodies give identical outputs
      for (size_t v = 1; v < variants.size(); ++v) {
        SCOPED_TRACE(testing::Message() << inRate << "->" << outRate << " features " << variants[v]);
        state = MakeState(inRate, outRate, variants[v]);
        const std::vector<int16_t> outputs[2] = {reference, Resample(state, *signal, inRate, outRate)};
        ASSERT_EQ(outputs[0].size(), outputs[1].size());
        size_t differing = 0;
        for (size_t i = 0; i < outputs[0].size(); ++i) {
          ASSERT_LE(std::abs(outputs[0][i] - outputs[1][i]), 1) << "at " << i;
          differing += outputs[0][i] != outputs[1][i];
        }
        EXPECT_LT(differing * 100, outputs[0].size());
        if (firstFast.empty()) firstFast = outputs[1];
        EXPECT_EQ(outputs[1], firstFast);
      }
    }
  }
}

// One bank per filter, shared: asked again it is the same; another filter with the
// same phases is not served from it; threads designing at once each get theirs,
// and the cache keeps its bound while a state's bank outlives its eviction.
TEST(Resampler, BanksAreSharedPerFilterInABoundedCache) {
  const FilterKey key{160, 147, kTaps, 0.95f, 9.0f}, samePhases{160, 441, kTaps, 0.95f, 9.0f};
  const auto bank = SharedBank(key);
  EXPECT_EQ(SharedBank(key), bank);
  EXPECT_EQ(SharedBank(samePhases)->Key(), samePhases);
  std::vector<std::thread> threads;
  for (int32_t t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int32_t step = 2; step < 10; ++step) {
        const FilterKey other{1, step, 8, 0.5f + 0.1f * static_cast<float>(t), 5.0f};
        EXPECT_EQ(SharedBank(other)->Key(), other);
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_LE(CachedBankCount(), kCachedBanks);
  EXPECT_EQ(bank->Key(), key);
}
