// resampler.h: fixed-ratio polyphase resampler for 16-bit mono samples.
//
// Four operations: a size query, a set-up that takes the filter bank (resampler_bank.h:
// designed once per filter in a process and shared) into a caller-allocated state, a
// run over a block of input, and a release of the state's bank. The state is opaque
// bytes.
//
// Filter bank. With g = gcd(inRate, outRate) the output times advance by
// inRate/outRate input samples and fall on outRate/g distinct fractional phases
// p/(outRate/g); the bank holds one filter of `length` taps per phase, designed in
// double precision: a windowed sinc with cut-off rollf * min(1, outRate/inRate) of
// the input Nyquist frequency, under a Kaiser window of parameter alpha that spans
// +-length/2 input samples around the output time.
//
// Tap alignment. For an output at time t = n + p/L (n = floor(t), L phases), tap k
// (0 <= k < length) multiplies input sample n - length/2 + k, whose distance from
// t is k - length/2 - p/L. So the taps read samples n - length/2 .. n + length/2 - 1:
// never beyond the last of the length/2 samples the caller guarantees after the
// last position. (At phases other than 0 the window's right-most point, within one
// sample of its edge and weighted below 0.3 % of the peak, falls outside the taps.)
// Each phase's taps are scaled to sum to exactly 1.0 in double, so the gain at
// zero frequency is 1.0 before the run's `norm` factor.
//
// Run. Output times are kept exactly as an integer sample index and a phase; the
// `time` value passed in and out is their double form, from which the phase is
// recovered by rounding, so feeding a stream in different block sizes produces
// the same output samples. The variant chosen at set-up from the active audio
// table (so a ScopedCpuFeatureMask around the set-up forces one) computes each output:
//  - reference (scalar, and any CPU without AVX2 + FMA): the inner product in
//    double precision times norm, rounded to nearest with halves away from zero,
//    saturated to -32768..32767;
//  - fast (AVX2 + FMA, or AVX-512): the same sum in single precision from a float
//    copy of the bank and of the input, with fused multiply-adds, scaled,
//    saturated and rounded to nearest with halves to even. Where the bank has an
//    outputs-in-lanes layout (most rate pairs) each output is one chain of fused
//    multiply-adds over its taps in ascending order, the same in both instruction
//    sets; otherwise the per-output block (audio_kernels.h). It may differ from the
//    reference by 1 where the exact value lies near a rounding boundary, never
//    more. Each output's arithmetic is fixed, so block sizes do not change the
//    stream in this variant either.
//
// Limits: at most kResamplerMaxPhases phases (outRate/g), which keeps a bank
// (double and float) at 1.5 MiB for 64 taps; inRate at most length/2 times
// outRate, so one output step never skips the held-back history; length a multiple of 8 from 8 to 512. Set-ups
// outside these limits fail with a negative status and touch nothing.
#pragma once

#include <cstdint>

#include "dsp/audio_kernels.h"

namespace lmx::dsp {

enum VkpAlgHint : int32_t {
  vkpAlgHintNone = 0,
  vkpAlgHintFast = 1,
  vkpAlgHintAccurate = 2,  // double-precision design (the only mode; accumulation as the variant does)
};

// 0 success, negative failures.
using VkpStatus = int32_t;
inline constexpr VkpStatus kVkpOk = 0;
inline constexpr VkpStatus kVkpNullPointer = -1;
inline constexpr VkpStatus kVkpBadRate = -2;        // a rate below 1
inline constexpr VkpStatus kVkpBadLength = -3;      // length not a multiple of 8 in 8..512
inline constexpr VkpStatus kVkpTooManyPhases = -4;  // outRate/gcd above kResamplerMaxPhases
inline constexpr VkpStatus kVkpBadRatio = -5;       // inRate above length/2 * outRate
inline constexpr VkpStatus kVkpBadArgument = -6;    // bad time, bad window
inline constexpr VkpStatus kVkpBadState = -7;       // state not set up
inline constexpr VkpStatus kVkpNoMemory = -8;       // the bank could not be allocated

inline constexpr int32_t kResamplerMaxPhases = 2048;

// The operating point at which the audio converter (audio_converter.cpp) runs the
// resampler; the fast path's stack span is sized for it.
struct ResamplerPresets {
  int32_t history;     // input samples held back between calls; the filter has 2 x history taps
  int32_t block;       // input samples gathered per resampler run (the converter's bufLen)
  int32_t inputSpare;  // the input buffer holds history + block + inputSpare samples
  float rolloff;       // cut-off as a fraction of the lower Nyquist frequency
  float kaiserAlpha;   // Kaiser window parameter of the filter design
  float gain;          // output gain: a little headroom against the filter's overshoot
};
inline constexpr ResamplerPresets kConverterPresets = {32, 4096, 2, 0.95f, 9.0f, 0.98f};

// Size of the state for these parameters, the filter length and the number of filters.
VkpStatus vkpsResamplePolyphaseFixedGetSize_16s(int32_t inRate, int32_t outRate, int32_t length, int32_t* stateSize,
                                                int32_t* filterLen, int32_t* filterNum, VkpAlgHint hint);

// Takes the filter's bank (designed on its first use in the process) into `state`
// (at least the queried size; no alignment needed). A set-up state holds a
// reference to the bank until vkpsResamplePolyphaseFixedRelease_16s.
VkpStatus vkpsResamplePolyphaseFixedInit_16s(int32_t inRate, int32_t outRate, int32_t length, float rollf, float alpha,
                                             uint8_t* state, VkpAlgHint hint);

// Produces the outputs at times t, t + inRate/outRate, ... for every t below the
// start time plus `count` (none when count is negative). Requires length/2 valid
// samples before in[floor(t)] and after in[floor(t_last)], and room for
// count * outRate / inRate + 1 outputs. On
// return `time` holds the time of the next output not yet produced and `outLen`
// the number produced.
VkpStatus vkpsResamplePolyphaseFixed_16s(const int16_t* in, int32_t count, int16_t* out, float norm, double* time,
                                         int32_t* outLen, uint8_t* state);

// The same run over the samples' float images (s * 2^-15, so exactly the 16-bit
// values), read in place: besides the windows, `in` must hold kResamplerFloatPad
// finite samples before the first output's window and after the last one's (the
// outputs-in-lanes body reads zero-weighted samples there). The outputs are those
// of vkpsResamplePolyphaseFixed_16s on the 16-bit samples.
inline constexpr int32_t kResamplerFloatPad = 512;
VkpStatus vkpsResamplePolyphaseFixed_32f(const float* in, int32_t count, int16_t* out, float norm, double* time,
                                         int32_t* outLen, uint8_t* state);

// Drops the state's reference to its bank; the state is then no longer set up.
// Null or not set up: nothing to do.
void vkpsResamplePolyphaseFixedRelease_16s(uint8_t* state);

}  // namespace lmx::dsp
