// AVX-512 body of the resampler's polyphase block (audio_kernels.h). This file
// alone is compiled with -mavx512f -mavx512bw -mavx512vl -mfma; it is called only
// on processors with them. No 512-bit value crosses a call that is not inlined
// (the Windows x64 ABI does not align the stack for it).
//
// Most banks run the AVX2 body's code (polyphase_body.h) with the 32 registers
// of AVX-512VL, which let more outputs share each load; the outputs are identical
// to the AVX2 body's. Up-sampling by 2, 3 or 4 (step 1) runs RunLanes instead,
// whose arithmetic differs (see there) but is the same for every output of the
// stream.
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
    for (int i = 0; i < 64; ++i) index[i] = static_cast<int16_t>(i < 16 * kPhases ? (i % kPhases) * 16 + i / kPhases : 0);
  }
};

// Scales, saturates and rounds 16 sums (nearest, halves to even) to 16 words.
LMX_INLINE __m256i ToPcm16(__m512 sums, float gain) {
  __m512 y = _mm512_mul_ps(sums, _mm512_set1_ps(gain));
  y = _mm512_min_ps(_mm512_max_ps(y, _mm512_set1_ps(-32768.0f)), _mm512_set1_ps(32767.0f));
  return _mm512_cvtepi32_epi16(_mm512_cvtps_epi32(y));
}

// Up-sampling by a whole factor (step 1, kPhases phases): the outputs of 16
// consecutive input samples at once, one lane per input sample, so there are no
// horizontal sums. Per tap, one load of 16 input samples feeds every phase, the
// tap itself broadcast. Each output is the sum of two FMA chains, over the even
// and the odd taps in ascending order, added at the end. A group that needs fewer
// than 16 windows loads the others as zeros (masked loads read nothing there) and
// one that starts or ends within an input sample's outputs stores only those asked
// for, so every output gets the same arithmetic.
template <int kPhases>
void RunLanes(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
              int16_t* out) {
  static constexpr Interleave<kPhases> kOrder;
  constexpr int kOutputs = 16 * kPhases;
  const int32_t length = bank.length;
  const int32_t half = length / 2;
  int64_t n = position / kPhases;
  int32_t skip = static_cast<int32_t>(position % kPhases);  // outputs of sample n already done
  for (int32_t done = 0; done < count;) {
    const int64_t wanted = skip + static_cast<int64_t>(count - done);  // from (n, phase 0) on
    const int windows = static_cast<int>(std::min<int64_t>(16, (wanted + kPhases - 1) / kPhases));
    const __mmask16 mask = static_cast<__mmask16>((1u << windows) - 1u);
    const float* w = x + (n - half);
    __m512 even[kPhases], odd[kPhases];
    for (int p = 0; p < kPhases; ++p) even[p] = odd[p] = _mm512_setzero_ps();
    for (int32_t k = 0; k < length; k += 2) {
      const __m512 x0 = _mm512_maskz_loadu_ps(mask, w + k);
      const __m512 x1 = _mm512_maskz_loadu_ps(mask, w + k + 1);
      for (int p = 0; p < kPhases; ++p) {
        even[p] = _mm512_fmadd_ps(_mm512_set1_ps(bank.taps[p * length + k]), x0, even[p]);
        odd[p] = _mm512_fmadd_ps(_mm512_set1_ps(bank.taps[p * length + k + 1]), x1, odd[p]);
      }
    }
    __m256i rows[4];
    for (int p = 0; p < kPhases; ++p) rows[p] = ToPcm16(_mm512_add_ps(even[p], odd[p]), gain);
    for (int p = kPhases; p < 4; ++p) rows[p] = _mm256_setzero_si256();
    const __m512i rows01 = _mm512_inserti64x4(_mm512_castsi256_si512(rows[0]), rows[1], 1);
    const __m512i rows23 = _mm512_inserti64x4(_mm512_castsi256_si512(rows[2]), rows[3], 1);
    const __m512i first = _mm512_permutex2var_epi16(rows01, _mm512_load_si512(kOrder.index), rows23);
    const __m512i second = _mm512_permutex2var_epi16(rows01, _mm512_load_si512(kOrder.index + 32), rows23);
    const int32_t produced = static_cast<int32_t>(std::min<int64_t>(windows * kPhases, wanted)) - skip;
    if (skip == 0 && produced == kOutputs) {
      _mm512_storeu_si512(out + done, first);
      if constexpr (kOutputs > 32) _mm512_mask_storeu_epi16(out + done + 32, (1ull << (kOutputs - 32)) - 1, second);
    } else {
      alignas(64) int16_t staged[64];
      _mm512_store_si512(staged, first);
      _mm512_store_si512(staged + 32, second);
      std::memcpy(out + done, staged + skip, static_cast<size_t>(produced) * sizeof(int16_t));
    }
    done += produced;
    n += windows;
    skip = 0;
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

void PolyphaseBlock_AVX512(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                           float gain, int16_t* out) {
  if (bank.step == 1) {
    switch (bank.phases) {
      case 2: return RunLanes<2>(bank, x, position, count, gain, out);
      case 3: return RunLanes<3>(bank, x, position, count, gain, out);
      case 4: return RunLanes<4>(bank, x, position, count, gain, out);
      default: break;
    }
  }
  RunPolyphaseBlock<true>(bank, x, position, count, gain, out);
}

void PolyphaseLanes_AVX512(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                           float gain, int16_t* out) {
  RunLanes<Lanes512>(bank, x, position, count, gain, out);
}

}  // namespace lmx

#endif  // x86-64
