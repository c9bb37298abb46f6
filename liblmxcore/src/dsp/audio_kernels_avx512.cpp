// AVX-512 bodies of the sample conversions (audio_kernels.h): sixteen samples a
// step, the remainder through masked loads and stores, so every sample takes the
// same arithmetic as in the AVX2 and scalar bodies. This file alone is compiled
// with -mavx512f -mavx512bw -mavx512vl; it is called only on processors with them.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include <immintrin.h>

namespace lmx {

namespace {

inline __attribute__((always_inline)) __m256i ToPcm16(__m512 x) {
  __m512 y = _mm512_mul_ps(x, _mm512_set1_ps(32768.0f));
  y = _mm512_maskz_mov_ps(_mm512_cmp_ps_mask(y, y, _CMP_ORD_Q), y);  // NaN -> 0
  y = _mm512_min_ps(_mm512_max_ps(y, _mm512_set1_ps(-32768.0f)), _mm512_set1_ps(32767.0f));
  return _mm512_cvtepi32_epi16(_mm512_cvtps_epi32(y));
}

inline __attribute__((always_inline)) __m512 ToFloat(__m256i s) {
  return _mm512_mul_ps(_mm512_cvtepi32_ps(_mm512_cvtepi16_epi32(s)), _mm512_set1_ps(1.0f / 32768.0f));
}

}  // namespace

void FloatToPcm16_AVX512(const float* src, int16_t* dst, int32_t count) {
  int32_t i = 0;
  for (; i + 16 <= count; i += 16)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), ToPcm16(_mm512_loadu_ps(src + i)));
  if (i < count) {
    const auto rest = static_cast<__mmask16>((1u << (count - i)) - 1u);
    _mm256_mask_storeu_epi16(dst + i, rest, ToPcm16(_mm512_maskz_loadu_ps(rest, src + i)));
  }
}

void Pcm16ToFloat_AVX512(const int16_t* src, float* dst, int32_t count) {
  int32_t i = 0;
  for (; i + 16 <= count; i += 16)
    _mm512_storeu_ps(dst + i, ToFloat(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i))));
  if (i < count) {
    const auto rest = static_cast<__mmask16>((1u << (count - i)) - 1u);
    _mm512_mask_storeu_ps(dst + i, rest, ToFloat(_mm256_maskz_loadu_epi16(rest, src + i)));
  }
}

}  // namespace lmx

#endif  // x86-64
