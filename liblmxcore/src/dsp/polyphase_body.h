// polyphase_body.h: the resampler's fast polyphase block (audio_kernels.h), shared
// by polyphase_avx2.cpp (AVX2 + FMA, 16 vector registers) and polyphase_avx512.cpp
// (the same 256-bit arithmetic with AVX-512VL's 32 registers, which lets more
// outputs share each load). Include it only from those files, which compile it for
// their instruction sets; everything here has internal linkage.
//
// Outputs are computed in groups of eight, one 8-lane accumulator each; the eight
// accumulators are reduced together (SumEach), so the horizontal sums cost a few
// instructions per output. Every output gets the same arithmetic whichever path
// computes it: its accumulator starts at zero, takes one FMA per 8 taps in
// ascending order, and is reduced by the same tree. So any splits of a stream into
// runs give identical outputs, and so do the two files where both use this code.
// A group shorter than eight repeats its last output, which reads nothing outside
// that output's window.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "dsp/audio_kernels.h"

namespace lmx {
namespace {

constexpr int kGroup = 8;

// Lane g of the result is the sum of the lanes l0..l7 of acc[g], added as
// ((l0+l1)+(l2+l3)) + ((l4+l5)+(l6+l7)).
inline __m256 SumEach(const __m256* acc) {
  const __m256 h01 = _mm256_hadd_ps(acc[0], acc[1]);  // per half: acc0 pairs, acc1 pairs
  const __m256 h23 = _mm256_hadd_ps(acc[2], acc[3]);
  const __m256 h45 = _mm256_hadd_ps(acc[4], acc[5]);
  const __m256 h67 = _mm256_hadd_ps(acc[6], acc[7]);
  const __m256 q0 = _mm256_hadd_ps(h01, h23);  // low half: l0..l3 sums of acc0..3; high half: l4..l7
  const __m256 q1 = _mm256_hadd_ps(h45, h67);
  return _mm256_add_ps(_mm256_permute2f128_ps(q0, q1, 0x20), _mm256_permute2f128_ps(q0, q1, 0x31));
}

// Scales, saturates and rounds eight sums (nearest, halves to even).
inline __m128i ToPcm(__m256 sums, float gain) {
  __m256 y = _mm256_mul_ps(sums, _mm256_set1_ps(gain));
  y = _mm256_min_ps(_mm256_max_ps(y, _mm256_set1_ps(-32768.0f)), _mm256_set1_ps(32767.0f));
  const __m256i words = _mm256_cvtps_epi32(y);
  return _mm_packs_epi32(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
}

// Stores the first `valid` of eight outputs.
inline void Store(__m256 sums, float gain, int16_t* out, int valid) {
  const __m128i packed = ToPcm(sums, gain);
  if (valid == kGroup) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), packed);
  } else {
    alignas(16) int16_t staged[kGroup];
    _mm_store_si128(reinterpret_cast<__m128i*>(staged), packed);
    std::memcpy(out, staged, static_cast<size_t>(valid) * sizeof(int16_t));
  }
}

// Position of an output as input sample n plus phase p / phases.
struct Cursor {
  int64_t n;
  int32_t p;
};

struct Walk {
  int64_t whole;  // step / phases
  int32_t frac;   // step % phases
  int32_t phases;
  void Advance(Cursor& c) const {
    c.n += whole;
    c.p += frac;
    if (c.p >= phases) {
      c.p -= phases;
      ++c.n;
    }
  }
};

// Any outputs, eight at a time, each with its own window and filter. With one
// phase the filter is loaded once per 8 taps for all eight outputs.
template <bool kOnePhase>
void RunAny(const FloatPolyphaseBank& bank, const float* x, const Walk& walk, Cursor& c, int32_t count, float gain,
            int16_t* out) {
  const int32_t length = bank.length;
  const int32_t half = length / 2;
  for (int32_t done = 0; done < count; done += kGroup) {
    const int valid = static_cast<int>(std::min<int32_t>(kGroup, count - done));
    const float* window[kGroup];
    const float* taps[kGroup];
    for (int g = 0; g < kGroup; ++g) {
      if (g < valid) {
        window[g] = x + (c.n - half);
        taps[g] = bank.taps + static_cast<int64_t>(c.p) * length;
        walk.Advance(c);
      } else {  // past the last valid output the group repeats it
        window[g] = window[valid - 1];
        taps[g] = taps[valid - 1];
      }
    }
    __m256 acc[kGroup];
    for (auto& a : acc) a = _mm256_setzero_ps();
    for (int32_t k = 0; k < length; k += 8) {
      if constexpr (kOnePhase) {
        const __m256 t = _mm256_loadu_ps(taps[0] + k);
#pragma GCC unroll 8
        for (int g = 0; g < kGroup; ++g) acc[g] = _mm256_fmadd_ps(t, _mm256_loadu_ps(window[g] + k), acc[g]);
      } else {
#pragma GCC unroll 8
        for (int g = 0; g < kGroup; ++g)
          acc[g] = _mm256_fmadd_ps(_mm256_loadu_ps(taps[g] + k), _mm256_loadu_ps(window[g] + k), acc[g]);
      }
    }
    Store(SumEach(acc), gain, out + done, valid);
  }
}

// Many phases: outputs `phases` apart share their filter (their positions differ
// by step whole input samples), so a block of 8 * phases outputs runs as groups
// of eight such outputs, loading each filter once per 8 taps. What is left after
// the whole blocks goes through RunAny.
void RunStrided(const FloatPolyphaseBank& bank, const float* x, const Walk& walk, Cursor& c, int32_t count, float gain,
                int16_t* out) {
  const int32_t length = bank.length;
  const int32_t half = length / 2;
  const int32_t phases = bank.phases;
  const int64_t block = static_cast<int64_t>(kGroup) * phases;
  int32_t done = 0;
  for (; count - done >= block; done += static_cast<int32_t>(block)) {
    Cursor first = c;  // output done + r, r = 0 .. phases - 1
    for (int32_t r = 0; r < phases; ++r) {
      const float* window = x + (first.n - half);
      const float* taps = bank.taps + static_cast<int64_t>(first.p) * length;
      __m256 acc[kGroup];
      for (auto& a : acc) a = _mm256_setzero_ps();
      for (int32_t k = 0; k < length; k += 8) {
        const __m256 t = _mm256_loadu_ps(taps + k);
#pragma GCC unroll 8
        for (int g = 0; g < kGroup; ++g)
          acc[g] = _mm256_fmadd_ps(t, _mm256_loadu_ps(window + g * static_cast<int64_t>(bank.step) + k), acc[g]);
      }
      alignas(16) int16_t staged[kGroup];
      _mm_store_si128(reinterpret_cast<__m128i*>(staged), ToPcm(SumEach(acc), gain));
      for (int g = 0; g < kGroup; ++g) out[done + r + static_cast<int64_t>(g) * phases] = staged[g];
      walk.Advance(first);
    }
    c.n += static_cast<int64_t>(kGroup) * bank.step;  // the phase is back where it was
  }
  RunAny<false>(bank, x, walk, c, count - done, gain, out + done);
}

// Up-sampling by a whole factor (step 1, kPhases phases): the kPhases outputs of
// one input sample share its window, so kWindows consecutive windows are loaded
// once per 8 taps and each feeds all phases. Outputs before the first phase 0 and
// after the last whole set of windows go through RunAny.
template <int kPhases, int kWindows>
void RunShared(const FloatPolyphaseBank& bank, const float* x, const Walk& walk, Cursor& c, int32_t count, float gain,
               int16_t* out) {
  constexpr int kOutputs = kPhases * kWindows;
  constexpr int kGroups = (kOutputs + kGroup - 1) / kGroup;
  const int32_t length = bank.length;
  const int32_t half = length / 2;
  const int32_t head = std::min<int32_t>(count, (kPhases - c.p) % kPhases);
  RunAny<false>(bank, x, walk, c, head, gain, out);
  int32_t done = head;
  for (; count - done >= kOutputs; done += kOutputs) {
    const float* window = x + (c.n - half);
    __m256 acc[kGroups * kGroup];
    for (auto& a : acc) a = _mm256_setzero_ps();
    for (int32_t k = 0; k < length; k += 8) {
      __m256 in[kWindows];
#pragma GCC unroll 16
      for (int u = 0; u < kWindows; ++u) in[u] = _mm256_loadu_ps(window + u + k);
#pragma GCC unroll 16
      for (int p = 0; p < kPhases; ++p) {
        __m256 t = _mm256_loadu_ps(bank.taps + p * length + k);
        // Loaded once for all windows: the compiler would otherwise fold a load
        // into each FMA, and loads are what limits this loop.
        __asm__("" : "+x"(t));
#pragma GCC unroll 16
        for (int u = 0; u < kWindows; ++u) acc[u * kPhases + p] = _mm256_fmadd_ps(t, in[u], acc[u * kPhases + p]);
      }
    }
    for (int g = 0; g < kGroups; ++g)
      Store(SumEach(acc + g * kGroup), gain, out + done + g * kGroup, std::min(kGroup, kOutputs - g * kGroup));
    c.n += kWindows;
  }
  RunAny<false>(bank, x, walk, c, count - done, gain, out + done);
}

// Picks the shape for the bank. kWide: 32 vector registers, so more windows per
// load in the up-sampling shapes.
template <bool kWide>
void RunPolyphaseBlock(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                       int16_t* out) {
  const Walk walk{bank.step / bank.phases, bank.step % bank.phases, bank.phases};
  Cursor c{position / bank.phases, static_cast<int32_t>(position % bank.phases)};
  if (bank.phases == 1) return RunAny<true>(bank, x, walk, c, count, gain, out);
  if (bank.step == 1) {
    switch (bank.phases) {
      case 2:
        return RunShared < 2, kWide ? 8 : 4 > (bank, x, walk, c, count, gain, out);
      case 3:
        return RunShared < 3, kWide ? 5 : 2 > (bank, x, walk, c, count, gain, out);
      case 4:
        return RunShared < 4, kWide ? 4 : 2 > (bank, x, walk, c, count, gain, out);
      case 6:
        return RunShared < 6, kWide ? 2 : 1 > (bank, x, walk, c, count, gain, out);
      default:
        break;
    }
  }
  RunStrided(bank, x, walk, c, count, gain, out);
}

}  // namespace
}  // namespace lmx
