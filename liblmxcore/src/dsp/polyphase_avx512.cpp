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

#include <utility>

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

// Down-sampling by a whole factor M (one phase, step M, 2 <= M <= kMaxDecimation).
// Output o reads samples n + o * M - half + k, so with the input split into M
// streams (stream r holding samples r, r + M, r + 2M, ... of the block), tap k
// of 16 consecutive outputs is 16 consecutive entries of stream k % M: one load
// per tap and output vector, and no lane carries a zero tap. Each output is one
// chain of fused multiply-adds over its taps in ascending order, as in the lanes
// body, so the two give identical outputs. The input is split a block of
// kDecimationVectors output vectors at a time; a block's vectors all share
// each tap's broadcast.
constexpr int kMaxDecimation = 8;
constexpr int kMaxDecimationLength = 512;  // taps
constexpr int kDecimationVectors = 16;
// A block and the taps' reach.
constexpr int kMaxStreamVectors = kDecimationVectors + kMaxDecimationLength / 2 / 16 + 1;

// For each factor, each stream's lanes as indexes into pairs of input vectors
// (sample r + M * i of 16 * M is lane (r + M * i) % 32 of pair (r + M * i) / 32)
// and, per pair, the lanes it supplies.
struct DecimationOrder {
  alignas(64) int32_t index[kMaxDecimation + 1][kMaxDecimation][16];
  uint16_t masks[kMaxDecimation + 1][kMaxDecimation][(kMaxDecimation + 1) / 2];
  constexpr DecimationOrder() : index(), masks() {
    for (int m = 2; m <= kMaxDecimation; ++m)
      for (int r = 0; r < m; ++r)
        for (int i = 0; i < 16; ++i) {
          const int e = r + m * i;
          index[m][r][i] = e % 32;
          masks[m][r][e / 32] = static_cast<uint16_t>(masks[m][r][e / 32] | (1u << i));
        }
  }
};

template <int kVectors>
LMX_INLINE void AccumulateDecimated(const float* taps, int32_t length, int32_t factor, const float* streams,
                                    __m512* acc) {
  for (int v = 0; v < kVectors; ++v) acc[v] = _mm512_setzero_ps();
  int32_t r = 0, q = 0;  // tap k = q * factor + r
  for (int32_t k = 0; k < length; ++k) {
    const __m512 tap = _mm512_set1_ps(taps[k]);
    const float* s = streams + r * kMaxStreamVectors * 16 + q;
#pragma GCC unroll 16
    for (int v = 0; v < kVectors; ++v) acc[v] = _mm512_fmadd_ps(tap, _mm512_loadu_ps(s + 16 * v), acc[v]);
    if (++r == factor) r = 0, ++q;
  }
}

// GCC 12 warns of the undefined pass-through inside its own AVX-512 min/max
// intrinsics once this block is unrolled (a false positive).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
template <int kVectors>
void DecimateBlock(const float* taps, int32_t length, int32_t factor, const float* streams, float gain, int16_t* out,
                   int32_t count) {
  __m512 acc[kVectors];
  AccumulateDecimated<kVectors>(taps, length, factor, streams, acc);
#pragma GCC unroll 16
  for (int v = 0; v < kVectors; ++v) {
    const int32_t left = std::min(16, count - 16 * v);
    _mm256_mask_storeu_epi16(out + 16 * v, static_cast<__mmask16>((1u << left) - 1u), ToPcm16(acc[v], gain));
  }
}

#pragma GCC diagnostic pop

template <int... kVectors>
void DecimateBlock(int32_t vectors, const float* taps, int32_t length, int32_t factor, const float* streams, float gain,
                   int16_t* out, int32_t count, std::integer_sequence<int, kVectors...>) {
  using Block = void (*)(const float*, int32_t, int32_t, const float*, float, int16_t*, int32_t);
  static constexpr Block kBlocks[] = {DecimateBlock<kVectors + 1>...};
  kBlocks[vectors - 1](taps, length, factor, streams, gain, out, count);
}

// Splits `samples` samples at `block` into kFactor streams of `chunks` vectors,
// zeros past the samples: each chunk of 16 * kFactor samples is one vector of
// every stream.
template <int kFactor>
void SplitStreams(const float* block, int64_t samples, int32_t chunks, float (*streams)[kMaxStreamVectors * 16]) {
  static constexpr DecimationOrder kOrder;
  __m512i index[kFactor];
  for (int r = 0; r < kFactor; ++r) index[r] = _mm512_load_si512(kOrder.index[kFactor][r]);
  const int64_t whole = std::min<int64_t>(chunks, samples / (16 * kFactor));  // chunks read without a mask
  for (int32_t c = 0; c < chunks; ++c) {
    const float* at = block + static_cast<int64_t>(c) * 16 * kFactor;
    __m512 in[kFactor + 1];
    for (int j = 0; j < kFactor; ++j) {
      if (c < whole) {
        in[j] = _mm512_loadu_ps(at + 16 * j);
      } else {
        const int64_t left = std::clamp<int64_t>(samples - (static_cast<int64_t>(c) * kFactor + j) * 16, 0, 16);
        in[j] = _mm512_maskz_loadu_ps(static_cast<__mmask16>((1u << left) - 1u), at + 16 * j);
      }
    }
    in[kFactor] = in[kFactor - 1];
    for (int r = 0; r < kFactor; ++r) {
      __m512 lanes = _mm512_permutex2var_ps(in[0], index[r], in[1]);
      for (int pair = 1; 2 * pair < kFactor; ++pair)
        lanes = _mm512_mask_mov_ps(lanes, kOrder.masks[kFactor][r][pair],
                                   _mm512_permutex2var_ps(in[2 * pair], index[r], in[2 * pair + 1]));
      _mm512_store_ps(streams[r] + 16 * c, lanes);
    }
  }
}

template <int... kFactors>
void SplitStreams(int32_t factor, const float* block, int64_t samples, int32_t chunks,
                  float (*streams)[kMaxStreamVectors * 16], std::integer_sequence<int, kFactors...>) {
  using Split = void (*)(const float*, int64_t, int32_t, float(*)[kMaxStreamVectors * 16]);
  static constexpr Split kSplits[] = {SplitStreams<kFactors + 2>...};
  kSplits[factor - 2](block, samples, chunks, streams);
}

void RunDecimate(const float* taps, int32_t length, int32_t factor, const float* x, int64_t position, int32_t count,
                 float gain, int16_t* out) {
  alignas(64) float streams[kMaxDecimation][kMaxStreamVectors * 16];
  const int32_t half = length / 2;
  const int32_t reach = (length - 1) / factor / 16 + 1;  // stream vectors the taps read past a block's outputs
  for (int32_t done = 0; done < count;) {
    const int32_t outputs = std::min(16 * kDecimationVectors, count - done);
    const int32_t vectors = (outputs + 15) / 16;
    // Samples the block's outputs read; the split reads no further.
    const float* block = x + position + static_cast<int64_t>(done) * factor - half;
    const int64_t samples = static_cast<int64_t>(outputs - 1) * factor + length;
    SplitStreams(factor, block, samples, vectors + reach, streams,
                 std::make_integer_sequence<int, kMaxDecimation - 1>());
    DecimateBlock(vectors, taps, length, factor, streams[0], gain, out + done, outputs,
                  std::make_integer_sequence<int, kDecimationVectors>());
    done += outputs;
  }
}

// Sixteen lanes in one register.
struct Lanes512 {
  using Acc = __m512;
  static constexpr int kChains = 8;
  static LMX_INLINE __m512 Zero() { return _mm512_setzero_ps(); }
  // The tap vector is pinned in a register: left to itself, the compiler loads it
  // again for every super period and broadcasts the sample instead, two loads per
  // multiply-add rather than one (the vector loaded once, the sample broadcast from
  // memory by the multiply-add itself).
  static LMX_INLINE __m512 Load(const float* v) {
    __m512 t = _mm512_load_ps(v);
    __asm__("" : "+v"(t));
    return t;
  }
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
  if (bank.phases == 1 && bank.step >= 2 && bank.step <= kMaxDecimation && bank.length <= kMaxDecimationLength)
    return RunDecimate(bank.rows, bank.length, bank.step, x, position, count, gain, out);
  RunLanes<Lanes512>(bank, x, position, count, gain, out);
}

}  // namespace lmx

#endif  // x86-64
