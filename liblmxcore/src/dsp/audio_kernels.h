// audio_kernels.h: the audio signal-processing primitives and their CPU variants.
//
// Every primitive has a scalar reference (`_C`, the readable definition) and an
// AVX2 body (`_AVX2`) that gives bit-identical results; tests compare the two on
// random input. The production entry points pick the variant once, from the CPU
// features detected at first use (AudioKernels()).
//
// Sample conversion:
//   float -> PCM: x * 32768, rounded to nearest with halves to even (the current
//   rounding mode, nearest-even unless a caller changed it), saturated to
//   -32768..32767; NaN becomes 0. Multiplying by a power of two is exact, so the
//   only rounding is the one to integer.
//   PCM -> float: s * 2^-15, exact.
//
// Channel mixing to mono (frames of `channels` interleaved samples):
//   1 channel   copy;
//   2 channels  (l + r) / 2, 32-bit sum, truncated toward zero (-3,-4 -> -3; -1,0 -> 0);
//   N >= 3      32-bit sum of the N samples / N, truncated toward zero; the sum
//               wraps modulo 2^32 and the quotient keeps its low 16 bits, which only
//               matters beyond 65536 channels.
//
// Inner product (resampler): sum of taps[k] * x[k] over `count` taps (a multiple of
// 8) in double precision, accumulated in a fixed order that both variants follow:
// eight partial sums s[j] over k = j, j+8, j+16, ...; then (s0+s4), (s1+s5), (s2+s6),
// (s3+s7); then ((s0+s4)+(s2+s6)) + ((s1+s5)+(s3+s7)). Products and sums are
// separately rounded (no fused multiply-add), so the variants are bit-exact.
#pragma once

#include <cstdint>

namespace lmx::dsp {

// CPU feature bits.
inline constexpr uint32_t kCpuAvx2 = 1u << 0;

// Features of this processor (and its operating system), detected once.
uint32_t DetectedCpuFeatures();

using FloatToPcm16Fn = void (*)(const float* src, int16_t* dst, int32_t count);
using Pcm16ToFloatFn = void (*)(const int16_t* src, float* dst, int32_t count);
using MixToMonoFn = void (*)(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames);
using InnerProductFn = double (*)(const double* taps, const int16_t* x, int32_t count);

struct AudioKernelTable {
  FloatToPcm16Fn floatToPcm16;
  Pcm16ToFloatFn pcm16ToFloat;
  MixToMonoFn mixToMono;
  InnerProductFn innerProduct;
};

// The table for a feature set: starts from the scalar bodies and upgrades each
// entry the features allow. Tests and benchmarks use it to force a variant.
AudioKernelTable AudioKernelsFor(uint32_t features);
// The table for this processor, built once.
const AudioKernelTable& AudioKernels();

// Scalar references. Requirements: count/frames >= 0, channels >= 1, non-overlapping
// buffers of the stated lengths (frames * channels samples in, frames out).
void FloatToPcm16_C(const float* src, int16_t* dst, int32_t count);
void Pcm16ToFloat_C(const int16_t* src, float* dst, int32_t count);
void MixToMono_C(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames);
double InnerProduct_C(const double* taps, const int16_t* x, int32_t count);

// AVX2 bodies: whole blocks inside, remainders through the scalar body. Only call
// them when DetectedCpuFeatures() has kCpuAvx2.
void FloatToPcm16_AVX2(const float* src, int16_t* dst, int32_t count);
void Pcm16ToFloat_AVX2(const int16_t* src, float* dst, int32_t count);
void MixToMono_AVX2(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames);
double InnerProduct_AVX2(const double* taps, const int16_t* x, int32_t count);

}  // namespace lmx::dsp
