// AVX2 + FMA body of the resampler's polyphase block (audio_kernels.h; the code is
// in polyphase_body.h). This file alone is compiled with -mavx2 -mfma; it is called
// only on processors with both.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include "dsp/polyphase_body.h"
#include "dsp/polyphase_lanes.h"

namespace lmx {
namespace {

// Sixteen lanes in two 8-float registers.
struct Lanes256 {
  struct Acc {
    __m256 low, high;
  };
  static constexpr int kChains = 4;
  static Acc Zero() { return {_mm256_setzero_ps(), _mm256_setzero_ps()}; }
  static Acc Load(const float* v) { return {_mm256_load_ps(v), _mm256_load_ps(v + 8)}; }
  static Acc Fma(Acc t, float x, Acc acc) {
    const __m256 sample = _mm256_set1_ps(x);
    return {_mm256_fmadd_ps(t.low, sample, acc.low), _mm256_fmadd_ps(t.high, sample, acc.high)};
  }
  // Stores lanes from..to-1 at out.
  static void Store(Acc acc, float gain, int16_t* out, int from, int to) {
    const __m128i low = ToPcm(acc.low, gain), high = ToPcm(acc.high, gain);
    if (from == 0 && to == kLanes) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), low);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), high);
      return;
    }
    alignas(16) int16_t staged[kLanes];
    _mm_store_si128(reinterpret_cast<__m128i*>(staged), low);
    _mm_store_si128(reinterpret_cast<__m128i*>(staged + 8), high);
    std::memcpy(out, staged + from, static_cast<size_t>(to - from) * sizeof(int16_t));
  }
};

}  // namespace

void PolyphaseBlock_AVX2(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                         int16_t* out) {
  RunPolyphaseBlock<false>(bank, x, position, count, gain, out);
}

void PolyphaseLanes_AVX2(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count, float gain,
                         int16_t* out) {
  RunLanes<Lanes256>(bank, x, position, count, gain, out);
}

}  // namespace lmx

#endif  // x86-64
