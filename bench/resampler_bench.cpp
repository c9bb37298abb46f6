// Resampler and mixing throughput, scalar inner product against AVX2, on one
// block of the size the audio converter runs (4096 input samples per pass).
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "dsp/audio_kernels.h"
#include "dsp/resampler.h"

namespace {

constexpr int32_t kHalf = 32;
constexpr int32_t kBlock = 4096;

void BM_Resample(benchmark::State& state, int32_t inRate, int32_t outRate, uint32_t features) {
  if (features && !(lmx::dsp::DetectedCpuFeatures() & features)) {
    state.SkipWithError("feature not available");
    return;
  }
  int32_t size = 0, len = 0, num = 0;
  vkpsResamplePolyphaseFixedGetSize_16s(inRate, outRate, 2 * kHalf, &size, &len, &num, vkpAlgHintAccurate);
  std::vector<uint8_t> bank(size);
  vkpsResamplePolyphaseFixedInit_16s(inRate, outRate, 2 * kHalf, 0.95f, 9.0f, bank.data(), vkpAlgHintAccurate);
  lmx::dsp::ResamplerUseKernels(bank.data(), lmx::dsp::AudioKernelsFor(features));

  std::mt19937 rng(1);
  std::vector<int16_t> in(kBlock + 2 * kHalf);
  for (auto& s : in) s = static_cast<int16_t>(rng());
  std::vector<int16_t> out(static_cast<size_t>(kBlock) * outRate / inRate + 2);
  for (auto _ : state) {
    double time = kHalf;
    int32_t outLen = 0;
    vkpsResamplePolyphaseFixed_16s(in.data(), kBlock, out.data(), 0.98f, &time, &outLen, bank.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kBlock);
}

void BM_MixToMono(benchmark::State& state, uint32_t features) {
  if (features && !(lmx::dsp::DetectedCpuFeatures() & features)) {
    state.SkipWithError("feature not available");
    return;
  }
  const int32_t channels = static_cast<int32_t>(state.range(0));
  const auto kernels = lmx::dsp::AudioKernelsFor(features);
  std::vector<int16_t> in(static_cast<size_t>(kBlock) * channels, 123), out(kBlock);
  for (auto _ : state) {
    kernels.mixToMono(in.data(), channels, out.data(), kBlock);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kBlock);
}

}  // namespace

BENCHMARK_CAPTURE(BM_Resample, 48000_16000_C, 48000, 16000, 0u);
BENCHMARK_CAPTURE(BM_Resample, 48000_16000_AVX2, 48000, 16000, lmx::dsp::kCpuAvx2);
BENCHMARK_CAPTURE(BM_Resample, 44100_48000_C, 44100, 48000, 0u);
BENCHMARK_CAPTURE(BM_Resample, 44100_48000_AVX2, 44100, 48000, lmx::dsp::kCpuAvx2);
BENCHMARK_CAPTURE(BM_MixToMono, C, 0u)->Arg(2)->Arg(3)->Arg(6);
BENCHMARK_CAPTURE(BM_MixToMono, AVX2, lmx::dsp::kCpuAvx2)->Arg(2)->Arg(3)->Arg(6);
