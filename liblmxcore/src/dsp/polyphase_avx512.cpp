// AVX-512 body of the resampler's polyphase block (audio_kernels.h). This file
// alone is compiled with -mavx512f -mavx512bw -mavx512vl; it is called only on
// processors with them. No 512-bit value crosses a call that is not inlined (the
// Windows x64 ABI does not align the stack for it).
//
// The shape of the AVX2 body with 16 lanes and groups of 16 outputs: 32 registers
// hold sixteen accumulators plus the shared windows and taps, each accumulator's
// dependency chain is half as long, and one reduction serves sixteen outputs.
// Every output gets the same arithmetic whichever path computes it: accumulators
// start at zero, take one FMA per 16 taps in ascending order (tap k in lane
// k % 16), and are reduced by the same tree (SumEach). Filters whose length is not
// a multiple of 16 run the AVX2 body.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include <immintrin.h>

#include <algorithm>
#include <cstring>

namespace lmx::dsp {
namespace {

constexpr int kGroup = 16;

// Helpers that take or return 512-bit values are always inlined.
#define LMX_INLINE inline __attribute__((always_inline))

// [a.lo256 + a.hi256 | b.lo256 + b.hi256]
LMX_INLINE __m512 AddHalves(__m512 a, __m512 b) {
  return _mm512_add_ps(_mm512_shuffle_f32x4(a, b, _MM_SHUFFLE(1, 0, 1, 0)),
                       _mm512_shuffle_f32x4(a, b, _MM_SHUFFLE(3, 2, 3, 2)));
}

// Two operands of AddHalves' form -> [a, b, c, d], each four lanes j + (j+4).
LMX_INLINE __m512 AddQuarters(__m512 ab, __m512 cd) {
  return _mm512_add_ps(_mm512_shuffle_f32x4(ab, cd, _MM_SHUFFLE(2, 0, 2, 0)),
                       _mm512_shuffle_f32x4(ab, cd, _MM_SHUFFLE(3, 1, 3, 1)));
}

// Lane i of the result is the sum of the 16 lanes of acc[i], added as lanes
// j + (j+8), then j + (j+4), then j + (j+2), then j + (j+1).
LMX_INLINE __m512 SumEach(const __m512 (&acc)[kGroup]) {
  const __m512 u0 = AddQuarters(AddHalves(acc[0], acc[1]), AddHalves(acc[2], acc[3]));  // blocks: 0 1 2 3
  const __m512 u1 = AddQuarters(AddHalves(acc[4], acc[5]), AddHalves(acc[6], acc[7]));  // 4 5 6 7
  const __m512 u2 = AddQuarters(AddHalves(acc[8], acc[9]), AddHalves(acc[10], acc[11]));
  const __m512 u3 = AddQuarters(AddHalves(acc[12], acc[13]), AddHalves(acc[14], acc[15]));
  // Per block: two lanes of each of two outputs (block i: outputs i and i + 4, then i + 8 and i + 12).
  const __m512 v0 = _mm512_add_ps(_mm512_shuffle_ps(u0, u1, _MM_SHUFFLE(1, 0, 1, 0)),
                                  _mm512_shuffle_ps(u0, u1, _MM_SHUFFLE(3, 2, 3, 2)));
  const __m512 v1 = _mm512_add_ps(_mm512_shuffle_ps(u2, u3, _MM_SHUFFLE(1, 0, 1, 0)),
                                  _mm512_shuffle_ps(u2, u3, _MM_SHUFFLE(3, 2, 3, 2)));
  // Block i: outputs i, i + 4, i + 8, i + 12.
  const __m512 w = _mm512_add_ps(_mm512_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0)),
                                 _mm512_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1)));
  return _mm512_permutexvar_ps(_mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), w);
}

// Scales, saturates and rounds 16 sums (nearest, halves to even); stores the first `valid`.
LMX_INLINE void Store(__m512 sums, float gain, int16_t* out, int valid) {
  __m512 y = _mm512_mul_ps(sums, _mm512_set1_ps(gain));
  y = _mm512_min_ps(_mm512_max_ps(y, _mm512_set1_ps(-32768.0f)), _mm512_set1_ps(32767.0f));
  const __m256i packed = _mm512_cvtepi32_epi16(_mm512_cvtps_epi32(y));
  if (valid == kGroup) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), packed);
  } else {
    alignas(32) int16_t staged[kGroup];
    _mm256_store_si256(reinterpret_cast<__m256i*>(staged), packed);
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

// Any outputs, sixteen at a time, each with its own window and filter. With one
// phase the filter is loaded once per 16 taps for all sixteen outputs. A group
// shorter than sixteen repeats its last output.
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
      } else {
        window[g] = window[valid - 1];
        taps[g] = taps[valid - 1];
      }
    }
    __m512 acc[kGroup];
    for (auto& a : acc) a = _mm512_setzero_ps();
    for (int32_t k = 0; k < length; k += kGroup) {
      if constexpr (kOnePhase) {
        const __m512 t = _mm512_loadu_ps(taps[0] + k);
#pragma GCC unroll 16
        for (int g = 0; g < kGroup; ++g) acc[g] = _mm512_fmadd_ps(t, _mm512_loadu_ps(window[g] + k), acc[g]);
      } else {
#pragma GCC unroll 16
        for (int g = 0; g < kGroup; ++g)
          acc[g] = _mm512_fmadd_ps(_mm512_loadu_ps(taps[g] + k), _mm512_loadu_ps(window[g] + k), acc[g]);
      }
    }
    Store(SumEach(acc), gain, out + done, valid);
  }
}

// Up-sampling by a whole factor (step 1, kPhases phases): kWindows consecutive
// windows are loaded once per 16 taps and each feeds all phases. Outputs before
// the first phase 0 and after the last whole set of windows go through RunAny.
template <int kPhases, int kWindows>
void RunShared(const FloatPolyphaseBank& bank, const float* x, const Walk& walk, Cursor& c, int32_t count, float gain,
               int16_t* out) {
  static_assert(kPhases * kWindows <= kGroup);
  constexpr int kOutputs = kPhases * kWindows;
  const int32_t length = bank.length;
  const int32_t half = length / 2;
  const int32_t head = std::min<int32_t>(count, (kPhases - c.p) % kPhases);
  RunAny<false>(bank, x, walk, c, head, gain, out);
  int32_t done = head;
  for (; count - done >= kOutputs; done += kOutputs) {
    const float* window = x + (c.n - half);
    __m512 acc[kGroup];
    for (auto& a : acc) a = _mm512_setzero_ps();
    for (int32_t k = 0; k < length; k += kGroup) {
      __m512 in[kWindows];
#pragma GCC unroll 16
      for (int u = 0; u < kWindows; ++u) in[u] = _mm512_loadu_ps(window + u + k);
#pragma GCC unroll 16
      for (int p = 0; p < kPhases; ++p) {
        const __m512 t = _mm512_loadu_ps(bank.taps + p * length + k);
#pragma GCC unroll 16
        for (int u = 0; u < kWindows; ++u) acc[u * kPhases + p] = _mm512_fmadd_ps(t, in[u], acc[u * kPhases + p]);
      }
    }
    Store(SumEach(acc), gain, out + done, kOutputs);
    c.n += kWindows;
  }
  RunAny<false>(bank, x, walk, c, count - done, gain, out + done);
}

}  // namespace

#undef LMX_INLINE

void PolyphaseBlock_AVX512(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                           float gain, int16_t* out) {
  if (bank.length % kGroup != 0) return PolyphaseBlock_AVX2(bank, x, position, count, gain, out);
  const Walk walk{bank.step / bank.phases, bank.step % bank.phases, bank.phases};
  Cursor c{position / bank.phases, static_cast<int32_t>(position % bank.phases)};
  if (bank.phases == 1) return RunAny<true>(bank, x, walk, c, count, gain, out);
  if (bank.step == 1) {
    switch (bank.phases) {
      case 2: return RunShared<2, 8>(bank, x, walk, c, count, gain, out);
      case 3: return RunShared<3, 5>(bank, x, walk, c, count, gain, out);
      case 4: return RunShared<4, 4>(bank, x, walk, c, count, gain, out);
      case 6: return RunShared<6, 2>(bank, x, walk, c, count, gain, out);
      default: break;
    }
  }
  RunAny<false>(bank, x, walk, c, count, gain, out);
}

}  // namespace lmx::dsp

#endif  // x86-64
