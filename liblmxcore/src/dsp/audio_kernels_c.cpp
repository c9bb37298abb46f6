// Scalar reference bodies of the audio primitives and the variant tables.
#include <cmath>
#include <cstring>

#include "cpu/cpu_features.h"
#include "dsp/audio_kernels.h"

namespace lmx {

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

AudioKernelTable SelectAudioKernels(uint32_t features) {
  AudioKernelTable table{FloatToPcm16_C, Pcm16ToFloat_C, MixToMono_C, InnerProduct_C, nullptr, nullptr};
#if defined(__x86_64__) || defined(_M_X64)
  if (features & kCpuHasAVX2) {
    table.floatToPcm16 = FloatToPcm16_AVX2;
    table.pcm16ToFloat = Pcm16ToFloat_AVX2;
    table.mixToMono = MixToMono_AVX2;
    if (features & kCpuHasFMA) {
      table.polyphaseBlock = PolyphaseBlock_AVX2;
      table.polyphaseLanes = PolyphaseLanes_AVX2;
    }
    if (features & kCpuHasAVX512BW) {
      table.floatToPcm16 = FloatToPcm16_AVX512;
      table.pcm16ToFloat = Pcm16ToFloat_AVX512;
    }
    if ((features & kCpuHasFMA) && (features & kCpuHasAVX512BW)) {
      table.polyphaseBlock = PolyphaseBlock_AVX512;
      table.polyphaseLanes = PolyphaseLanes_AVX512;
    }
  }
#else
  (void)features;
#endif
  return table;
}

namespace {
ActiveKernelTable<AudioKernelTable, SelectAudioKernels> g_active;
}  // namespace

const AudioKernelTable& ActiveAudioKernels() { return g_active.Get(); }

}  // namespace lmx
