// AVX-512 body of the resampler's polyphase block (audio_kernels.h). This file
// alone is compiled with -mavx512f -mavx512bw -mavx512vl -mfma; it is called only
// on processors with them. No 512-bit value crosses a call that is not inlined
// (the Windows x64 ABI does not align the stack for it).
//
// Banks with a lanes layout run the lanes loop (polyphase_lanes.h) with 16 lanes
// in one register. Others run the AVX2 body's code (polyphase_body.h) with the 32
// registers of AVX-512VL, which let more outputs share each load; the outputs are
// identical to the AVX2 body's. Up-sampling by 2, 3 or 4 (step 1) runs
// RunWholeFactor in either case, whose outputs are the lanes loop's.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include "dsp/polyphase_body.h"
#include "dsp/polyphase_lanes.h"

namespace lmx {
namespace {

#define LMX_INLINE inline __attribute__((always_inline))

// Word order that interleaves kPhases rows of 16 (row p, lane j -> output
// j * kPhases + p), as indexes into the rows laid out back to back.
template <int kPhases>
struct Interleave {
  alignas(64) int16_t index[64];
  constexpr Interleave() : index() {
    for (int i = 0; i < 64; ++i)
      index[i] = static_cast<int16_t>(i < 16 * kPhases ? (i % kPhases) * 16 + i / kPhases : 0);
  }
};

// Scales, saturates and rounds 16 sums (nearest, halves to even) to 16 words.
LMX_INLINE __m256i ToPcm16(__m512 sums, float gain) {
  __m512 y = _mm512_mul_ps(sums, _mm512_set1_ps(gain));
  y = _mm512_min_ps(_mm512_max_ps(y, _mm512_set1_ps(-32768.0f)), _mm512_set1_ps(32767.0f));
  return _mm512_cvtepi32_epi16(_mm512_cvtps_epi32(y));
}

// Up-sampling by a whole factor (step 1, kPhases phases): the outputs of 16
// consecutive input samples per group, one lane per input sample, kGroups groups
// at a time. Per tap, one load of 16 input samples per group feeds every phase, the
// tap itself broadcast. Each output is one chain of fused multiply-adds over its
// taps in ascending order, as in the lanes body (polyphase_lanes.h), so the two
// give identical outputs. A group that needs fewer than 16 windows loads the
// others as zeros (masked loads read nothing there) and one that starts or ends
// within an input sample's outputs stores only those asked for.
template <int kPhases, int kGroups>
void RunWholeFactor(const float* rows, int32_t length, const float* x, int64_t position, int32_t count, float gain,
                    int16_t* out) {
  static constexpr Interleave<kPhases> kOrder;
  const int32_t half = length / 2;
  int64_t n = position / kPhases;
  int32_t skip = static_cast<int32_t>(position % kPhases);  // outputs of sample n already done
  for (int32_t done = 0; done < count;) {
    const int64_t wanted = skip + static_cast<int64_t>(count - done);  // from (n, phase 0) on
    const int64_t windows = std::min<int64_t>(16 * kGroups, (wanted + kPhases - 1) / kPhases);
    __mmask16 masks[kGroups];
    for (int u = 0; u < kGroups; ++u) {
      const int64_t inGroup = std::clamp<int64_t>(windows - 16 * u, 0, 16);
      masks[u] = static_cast<__mmask16>((1u << inGroup) - 1u);
    }
    const float* w = x + (n - half);
    __m512 acc[kGroups][kPhases];
    for (auto& group : acc)
      for (auto& a : group) a = _mm512_setzero_ps();
    for (int32_t k = 0; k < length; ++k) {
      __m512 in[kGroups];
#pragma GCC unroll 8
      for (int u = 0; u < kGroups; ++u) in[u] = _mm512_maskz_loadu_ps(masks[u], w + 16 * u + k);
#pragma GCC unroll 8
      for (int p = 0; p < kPhases; ++p) {
        const __m512 tap = _mm512_set1_ps(rows[p * length + k]);
#pragma GCC unroll 8
        for (int u = 0; u < kGroups; ++u) acc[u][p] = _mm512_fmadd_ps(tap, in[u], acc[u][p]);
      }
    }
#pragma GCC unroll 8
    for (int u = 0; u < kGroups; ++u) {  // unrolled, so the accumulators stay in registers
      if (done == count) break;
      __m256i pcm[4];
      for (int p = 0; p < kPhases; ++p) pcm[p] = ToPcm16(acc[u][p], gain);
      for (int p = kPhases; p < 4; ++p) pcm[p] = _mm256_setzero_si256();
      const __m512i rows01 = _mm512_inserti64x4(_mm512_castsi256_si512(pcm[0]), pcm[1], 1);
      const __m512i rows23 = _mm512_inserti64x4(_mm512_castsi256_si512(pcm[2]), pcm[3], 1);
      const __m512i first = _mm512_permutex2var_epi16(rows01, _mm512_load_si512(kOrder.index), rows23);
      const __m512i second = _mm512_permutex2var_epi16(rows01, _mm512_load_si512(kOrder.index + 32), rows23);
      const int64_t groupWanted = skip + static_cast<int64_t>(count - done);
      const int32_t produced = static_cast<int32_t>(std::min<int64_t>(16 * kPhases, groupWanted)) - skip;
      if (skip == 0 && produced == 16 * kPhases) {
        _mm512_storeu_si512(out + done, first);
        if constexpr (kPhases > 2) _mm512_mask_storeu_epi16(out + done + 32, (1ull << (16 * kPhases - 32)) - 1, second);
      } else {
        alignas(64) int16_t staged[64];
        _mm512_store_si512(staged, first);
        _mm512_store_si512(staged + 32, second);
        std::memcpy(out + done, staged + skip, static_cast<size_t>(produced) * sizeof(int16_t));
      }
      done += produced;
      skip = 0;
    }
    n += windows;
  }
}

// The whole-factor loop for 2, 3 or 4 phases; false for others.
LMX_INLINE bool RunWholeFactor(const float* rows, int32_t length, int32_t phases, const float* x, int64_t position,
                               int32_t count, float gain, int16_t* out) {
  switch (phases) {
    case 2:
      RunWholeFactor<2, 6>(rows, length, x, position, count, gain, out);
      return true;
    case 3:
      RunWholeFactor<3, 4>(rows, length, x, position, count, gain, out);
      return true;
    case 4:
      RunWholeFactor<4, 3>(rows, length, x, position, count, gain, out);
      return true;
    default:
      return false;
  }
}

// Sixteen lanes in one register.
struct Lanes512 {
  using Acc = __m512;
  static constexpr int kChains = 8;
  static LMX_INLINE __m512 Zero() { return _mm512_setzero_ps(); }
  static LMX_INLINE __m512 Load(const float* v) { return _mm512_load_ps(v); }
  static LMX_INLINE __m512 Fma(__m512 t, float x, __m512 acc) { return _mm512_fmadd_ps(t, _mm512_set1_ps(x), acc); }
  // Stores lanes from..to-1 at out.
  static LMX_INLINE void Store(__m512 acc, float gain, int16_t* out, int from, int to) {
    const __m256i words = ToPcm16(acc, gain);
    if (from == 0) {
      _mm256_mask_storeu_epi16(out, static_cast<__mmask16>((1u << to) - 1u), words);
      return;
    }
    alignas(32) int16_t staged[kLanes];
    _mm256_store_si256(reinterpret_cast<__m256i*>(staged), words);
    std::memcpy(out, staged + from, static_cast<size_t>(to - from) * sizeof(int16_t));
  }
};

#undef LMX_INLINE

}  // namespace

void PolyphaseBlock_AVX512(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                           int16_t* out) {
  if (bank.step == 1 && RunWholeFactor(bank.taps, bank.length, bank.phases, x, position, count, gain, out)) return;
  RunPolyphaseBlock<true>(bank, x, position, count, gain, out);
}

void PolyphaseLanes_AVX512(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                           int16_t* out) {
  if (bank.step == 1 && RunWholeFactor(bank.rows, bank.length, bank.phases, x, position, count, gain, out)) return;
  RunLanes<Lanes512>(bank, x, position, count, gain, out);
}

}  // namespace lmx

#endif  // x86-64
