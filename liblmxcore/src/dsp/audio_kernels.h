// audio_kernels.h: the audio signal-processing primitives and their CPU variants.
//
// Every primitive has a scalar reference (`_C`, the readable definition) and an
// AVX2 body (`_AVX2`) that gives bit-identical results, except the resampler's
// polyphase block (below), whose fast body is single precision and stays within
// one output step of the double reference; tests compare the variants on random
// input. The production entry points use the active table (ActiveAudioKernels()),
// chosen from the CPU features like the pixel rows' (cpu_features.h).
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
// Inner product (resampler reference): sum of taps[k] * x[k] over `count` taps (a
// multiple of 8) in double precision, accumulated in a fixed order: eight partial
// sums s[j] over k = j, j+8, j+16, ...; then (s0+s4), (s1+s5), (s2+s6), (s3+s7);
// then ((s0+s4)+(s2+s6)) + ((s1+s5)+(s3+s7)).
//
// Polyphase block (resampler fast path, AVX2 + FMA, or AVX-512): the outputs of a
// run computed in single precision from a float copy of the bank and of the input.
// It is not bit-exact to the double reference: taps are rounded to float once,
// products are fused into the sums (FMA), and the sums run in another order. The
// AVX2 body (and the AVX-512 body, except below) accumulates each output in eight
// lanes (tap k in lane k % 8, in ascending k) reduced as
// ((l0+l1)+(l2+l3)) + ((l4+l5)+(l6+l7)); for up-sampling by 2, 3 or 4 (step 1) the
// AVX-512 body sums the taps in one chain in ascending order, as the lanes bodies
// below do. The error stays far below one output step (a few hundredths
// at full scale), so an output differs from the reference by at most 1, where the
// exact value lies near a rounding boundary. Each output is computed the same way
// whichever other outputs it is grouped with, so the results do not depend on how
// a stream is split into runs.
#pragma once

#include <cstdint>

namespace lmx {

using FloatToPcm16Fn = void (*)(const float* src, int16_t* dst, int32_t count);
using Pcm16ToFloatFn = void (*)(const int16_t* src, float* dst, int32_t count);
using MixToMonoFn = void (*)(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames);
using InnerProductFn = double (*)(const double* taps, const int16_t* x, int32_t count);

// A polyphase bank in single precision: `phases` filters of `length` taps each,
// one after another; the outputs advance by `step` / `phases` input samples.
struct FloatPolyphaseBank {
  const float* taps;
  int32_t length;  // a multiple of 8
  int32_t phases;
  int32_t step;
};

// Computes `count` outputs at positions position, position + step, ... (in
// 1/phases input samples, relative to x). The output at position q, with
// n = q / phases and p = q % phases, is the sum of taps[p * length + k] *
// x[n - length/2 + k] over k, times gain, rounded to nearest (halves to even)
// and saturated to -32768..32767. Reads only x[n - length/2 .. n + length/2 - 1]
// of the first and last output and what lies between; n >= length/2.
using PolyphaseBlockFn = void (*)(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                                  float gain, int16_t* out);

// The same bank laid out with outputs in lanes. A super period is `outputs`
// consecutive outputs (a whole number of periods of `phases` outputs) spanning
// `inputs` input samples; its outputs fall into `groups` groups of kLanes, output
// o of the super period in lane o % kLanes of group o / kLanes. Group g holds
// `vectors` tap vectors of kLanes floats at taps + g * vectors * kLanes: lane j of
// vector i is the tap that output o = g * kLanes + j applies to input sample
// base + offsets[g] + i (base: the super period's first output's sample), zero
// where output o has no tap there or lies past `outputs`. Super periods differ
// only in base, which advances by `inputs`, so they share every vector.
inline constexpr int32_t kLanes = 16;
struct LanesPolyphaseBank {
  const float* taps;  // 64-byte aligned
  const float* rows;  // the FloatPolyphaseBank's taps: `phases` rows of `length`
  int32_t length;
  const int32_t* offsets;  // per group
  int32_t groups;
  int32_t vectors;      // per group
  int32_t outputs;      // per super period
  int32_t inputs;       // per super period
  int32_t phases;       // L
  int32_t step;         // M
  int32_t stepInverse;  // M * stepInverse = 1 (mod L)
  int32_t reach;        // samples a group reads beyond its wanted outputs' windows, each side
};

// Computes `count` outputs exactly as PolyphaseBlockFn does, each as one chain of
// fused multiply-adds over its taps in ascending order (so the outputs do not
// depend on how a stream is split, nor on the body). Reads x from `reach` samples
// before the first output's window to `reach` after the last one's; those must be
// finite (zeros will do).
using PolyphaseLanesFn = void (*)(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                                  float gain, int16_t* out);

struct AudioKernelTable {
  FloatToPcm16Fn floatToPcm16;
  Pcm16ToFloatFn pcm16ToFloat;
  MixToMonoFn mixToMono;
  InnerProductFn innerProduct;      // the resampler's double-precision reference
  PolyphaseBlockFn polyphaseBlock;  // the resampler's fast path; null: use innerProduct
  PolyphaseLanesFn polyphaseLanes;  // its outputs-in-lanes form, where the bank has one; null with polyphaseBlock
};

// The table for a feature set (kCpuHas* bits): starts from the scalar bodies and
// upgrades each entry the features allow (AVX2; the polyphase block with AVX2 and
// FMA, or AVX-512 and FMA). Pure.
AudioKernelTable SelectAudioKernels(uint32_t features);
// The active table, chosen from CpuFeatures() on first use.
const AudioKernelTable& ActiveAudioKernels();

// Scalar references. Requirements: count/frames >= 0, channels >= 1, non-overlapping
// buffers of the stated lengths (frames * channels samples in, frames out).
void FloatToPcm16_C(const float* src, int16_t* dst, int32_t count);
void Pcm16ToFloat_C(const int16_t* src, float* dst, int32_t count);
void MixToMono_C(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames);
double InnerProduct_C(const double* taps, const int16_t* x, int32_t count);

// AVX2 bodies: whole blocks inside, remainders through the scalar body. Only call
// them when CpuFeatures() has kCpuHasAVX2 (and kCpuHasFMA for the polyphase block).
void FloatToPcm16_AVX2(const float* src, int16_t* dst, int32_t count);
void Pcm16ToFloat_AVX2(const int16_t* src, float* dst, int32_t count);
void MixToMono_AVX2(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames);
void PolyphaseBlock_AVX2(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                         int16_t* out);

// AVX-512 bodies of the sample conversions (kCpuHasAVX512BW).
void FloatToPcm16_AVX512(const float* src, int16_t* dst, int32_t count);
void Pcm16ToFloat_AVX512(const int16_t* src, float* dst, int32_t count);

// AVX-512 body of the polyphase block: more outputs share each load; outputs
// identical to the AVX2 body's except for up-sampling by 2, 3 or 4 (see above).
// Only call it when CpuFeatures() has kCpuHasAVX512BW as well.
void PolyphaseBlock_AVX512(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                           int16_t* out);

// Outputs-in-lanes bodies: 16 lanes in one register (AVX-512) or two (AVX2 + FMA);
// identical outputs.
void PolyphaseLanes_AVX2(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                         int16_t* out);
void PolyphaseLanes_AVX512(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                           int16_t* out);

}  // namespace lmx
