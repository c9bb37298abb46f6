// Scalar reference bodies of the audio primitives and the variant tables.
#include <cmath>
#include <cstring>

#include "dsp/audio_kernels.h"

namespace lmx::dsp {

namespace {

int16_t FloatToPcm16Sample(float x) {
  if (std::isnan(x)) return 0;
  float scaled = x * 32768.0f;
  if (scaled <= -32768.0f) return -32768;
  if (scaled >= 32767.0f) return 32767;
  return static_cast<int16_t>(std::nearbyint(scaled));
}

}  // namespace

void FloatToPcm16_C(const float* src, int16_t* dst, int32_t count) {
  for (int32_t i = 0; i < count; ++i) dst[i] = FloatToPcm16Sample(src[i]);
}

void Pcm16ToFloat_C(const int16_t* src, float* dst, int32_t count) {
  for (int32_t i = 0; i < count; ++i) dst[i] = static_cast<float>(src[i]) * (1.0f / 32768.0f);
}

void MixToMono_C(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames) {
  if (frames <= 0) return;
  if (channels == 1) {
    std::memcpy(dst, src, static_cast<size_t>(frames) * sizeof(int16_t));
    return;
  }
  for (int32_t f = 0; f < frames; ++f) {
    const int16_t* frame = src + static_cast<int64_t>(f) * channels;
    uint32_t sum = 0;  // wraps like the 32-bit register sum
    for (int32_t c = 0; c < channels; ++c) sum += static_cast<uint32_t>(static_cast<int32_t>(frame[c]));
    dst[f] = static_cast<int16_t>(static_cast<int32_t>(sum) / channels);
  }
}

double InnerProduct_C(const double* taps, const int16_t* x, int32_t count) {
  double s[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  for (int32_t k = 0; k < count; k += 8)
    for (int j = 0; j < 8; ++j) s[j] = s[j] + taps[k + j] * static_cast<double>(x[k + j]);
  double t0 = s[0] + s[4], t1 = s[1] + s[5], t2 = s[2] + s[6], t3 = s[3] + s[7];
  return (t0 + t2) + (t1 + t3);
}

AudioKernelTable AudioKernelsFor(uint32_t features) {
  AudioKernelTable table{FloatToPcm16_C, Pcm16ToFloat_C, MixToMono_C, InnerProduct_C, nullptr};
#if defined(__x86_64__) || defined(_M_X64)
  if (features & kCpuAvx2) {
    table.floatToPcm16 = FloatToPcm16_AVX2;
    table.pcm16ToFloat = Pcm16ToFloat_AVX2;
    table.mixToMono = MixToMono_AVX2;
    if (features & kCpuFma) table.polyphaseBlock = PolyphaseBlock_AVX2;
    if ((features & kCpuFma) && (features & kCpuAvx512)) table.polyphaseBlock = PolyphaseBlock_AVX512;
  }
#else
  (void)features;
#endif
  return table;
}

const AudioKernelTable& AudioKernels() {
  static const AudioKernelTable table = AudioKernelsFor(DetectedCpuFeatures());
  return table;
}

uint32_t DetectedCpuFeatures() {
#if (defined(__x86_64__) || defined(_M_X64)) && (defined(__GNUC__) || defined(__clang__))
  static const uint32_t features = [] {
    __builtin_cpu_init();
    uint32_t found = 0;
    if (__builtin_cpu_supports("avx2")) found |= kCpuAvx2;
    if (__builtin_cpu_supports("fma")) found |= kCpuFma;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl"))
      found |= kCpuAvx512;
    return found;
  }();
  return features;
#else
  return 0;
#endif
}

}  // namespace lmx::dsp
