// AVX2 + FMA body of the resampler's polyphase block (audio_kernels.h). This file
// alone is compiled with -mavx2 -mfma; it is called only on processors with both.
//
// Outputs are computed eight at a time, one 8-lane accumulator each, and the eight
// accumulators are reduced together (SumEach), so the horizontal sums cost a few
// instructions per output. Every output gets the same arithmetic whichever path
// computes it: accumulators start at zero, take one FMA per 8 taps in ascending
// order, and are reduced by the same tree. A group shorter than eight repeats its
// last output, which reads nothing outside that output's window.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include <immintrin.h>

#include <algorithm>
#include <cstring>

namespace lmx::dsp {
namespace {

constexpr int kGroup = 8;

// Lane g of the result is the sum of the lanes l0..l7 of acc[g], added as
// ((l0+l1)+(l2+l3)) + ((l4+l5)+(l6+l7)).
inline __m256 SumEach(const __m256 (&acc)[kGroup]) {
  const __m256 h01 = _mm256_hadd_ps(acc[0], acc[1]);  // per half: acc0 pairs, acc1 pairs
  const __m256 h23 = _mm256_hadd_ps(acc[2], acc[3]);
  const __m256 h45 = _mm256_hadd_ps(acc[4], acc[5]);
  const __m256 h67 = _mm256_hadd_ps(acc[6], acc[7]);
  const __m256 q0 = _mm256_hadd_ps(h01, h23);  // low half: l0..l3 sums of acc0..3; high half: l4..l7
  const __m256 q1 = _mm256_hadd_ps(h45, h67);
  return _mm256_add_ps(_mm256_permute2f128_ps(q0, q1, 0x20), _mm256_permute2f128_ps(q0, q1, 0x31));
}

// Scales, saturates and rounds eight sums (nearest, halves to even); stores the first `valid`.
inline void Store(__m256 sums, float gain, int16_t* out, int valid) {
  __m256 y = _mm256_mul_ps(sums, _mm256_set1_ps(gain));
  y = _mm256_min_ps(_mm256_max_ps(y, _mm256_set1_ps(-32768.0f)), _mm256_set1_ps(32767.0f));
  const __m256i words = _mm256_cvtps_epi32(y);
  const __m128i packed = _mm_packs_epi32(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
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

// Up-sampling by a whole factor (step 1, kPhases phases): the kPhases outputs of
// one input sample share its window, so kWindows consecutive windows are loaded
// once per 8 taps and each feeds all phases. Outputs before the first phase 0 and
// after the last whole set of windows go through RunAny.
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
    __m256 acc[kGroup];
    for (auto& a : acc) a = _mm256_setzero_ps();
    for (int32_t k = 0; k < length; k += 8) {
      __m256 in[kWindows];
      for (int u = 0; u < kWindows; ++u) in[u] = _mm256_loadu_ps(window + u + k);
      for (int p = 0; p < kPhases; ++p) {
        const __m256 t = _mm256_loadu_ps(bank.taps + p * length + k);
        for (int u = 0; u < kWindows; ++u) acc[u * kPhases + p] = _mm256_fmadd_ps(t, in[u], acc[u * kPhases + p]);
      }
    }
    Store(SumEach(acc), gain, out + done, kOutputs);
    c.n += kWindows;
  }
  RunAny<false>(bank, x, walk, c, count - done, gain, out + done);
}

}  // namespace

void PolyphaseBlock_AVX2(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                         float gain, int16_t* out) {
  const Walk walk{bank.step / bank.phases, bank.step % bank.phases, bank.phases};
  Cursor c{position / bank.phases, static_cast<int32_t>(position % bank.phases)};
  if (bank.phases == 1) return RunAny<true>(bank, x, walk, c, count, gain, out);
  if (bank.step == 1) {
    switch (bank.phases) {
      case 2: return RunShared<2, 4>(bank, x, walk, c, count, gain, out);
      case 3: return RunShared<3, 2>(bank, x, walk, c, count, gain, out);
      case 4: return RunShared<4, 2>(bank, x, walk, c, count, gain, out);
      case 6: return RunShared<6, 1>(bank, x, walk, c, count, gain, out);
      default: break;
    }
  }
  RunAny<false>(bank, x, walk, c, count, gain, out);
}

}  // namespace lmx::dsp

#endif  // x86-64
