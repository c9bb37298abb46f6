// AVX2 bodies of the audio primitives. Each runs whole blocks with vector code and
// hands the remainder to the scalar reference, so results are identical to it.
// This file is compiled with -mavx2 (CMakeLists.txt); the table calls into it only
// on processors that have AVX2.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include <immintrin.h>

#include <cstring>

namespace lmx {

// Blocks of 16 samples (two registers of 8 floats -> one register of 16 int16).
void FloatToPcm16_AVX2(const float* src, int16_t* dst, int32_t count) {
  const __m256 scale = _mm256_set1_ps(32768.0f);
  const __m256 lo = _mm256_set1_ps(-32768.0f);
  const __m256 hi = _mm256_set1_ps(32767.0f);
  int32_t i = 0;
  for (; i + 16 <= count; i += 16) {
    __m256 a = _mm256_mul_ps(_mm256_loadu_ps(src + i), scale);
    __m256 b = _mm256_mul_ps(_mm256_loadu_ps(src + i + 8), scale);
    a = _mm256_and_ps(a, _mm256_cmp_ps(a, a, _CMP_ORD_Q));  // NaN -> 0
    b = _mm256_and_ps(b, _mm256_cmp_ps(b, b, _CMP_ORD_Q));
    a = _mm256_min_ps(_mm256_max_ps(a, lo), hi);
    b = _mm256_min_ps(_mm256_max_ps(b, lo), hi);
    __m256i packed = _mm256_packs_epi32(_mm256_cvtps_epi32(a), _mm256_cvtps_epi32(b));
    packed = _mm256_permute4x64_epi64(packed, 0xD8);  // undo the per-lane interleave
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), packed);
  }
  FloatToPcm16_C(src + i, dst + i, count - i);
}

// Blocks of 8 samples.
void Pcm16ToFloat_AVX2(const int16_t* src, float* dst, int32_t count) {
  const __m256 scale = _mm256_set1_ps(1.0f / 32768.0f);
  int32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    __m256 f = _mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(s));
    _mm256_storeu_ps(dst + i, _mm256_mul_ps(f, scale));
  }
  Pcm16ToFloat_C(src + i, dst + i, count - i);
}

namespace {

// Stereo: blocks of 16 frames. madd with ones gives the 32-bit pair sums exactly.
int32_t MixStereo_AVX2(const int16_t* src, int16_t* dst, int32_t frames) {
  const __m256i ones = _mm256_set1_epi16(1);
  int32_t f = 0;
  for (; f + 16 <= frames; f += 16) {
    __m256i a = _mm256_madd_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * f)), ones);
    __m256i b = _mm256_madd_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * f + 16)), ones);
    // Truncating division by 2: add 1 to negative sums before the arithmetic shift.
    a = _mm256_srai_epi32(_mm256_add_epi32(a, _mm256_srli_epi32(a, 31)), 1);
    b = _mm256_srai_epi32(_mm256_add_epi32(b, _mm256_srli_epi32(b, 31)), 1);
    __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + f), packed);
  }
  return f;
}

// Keeps the low 16 bits of each 32-bit lane, sign-extended (the scalar cast).
inline __m128i Low16(__m128i v) { return _mm_srai_epi32(_mm_slli_epi32(v, 16), 16); }

// N channels: blocks of 8 frames gathered per channel. A gather reads 4 bytes per
// sample, 2 beyond the sample itself, so a block runs only when at least one more
// frame follows it. Division through double is exact for these ranges: a quotient
// that is not an integer lies at least 1/N from one, far above the rounding error.
int32_t MixMany_AVX2(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames) {
  const __m256i frameOffsets =
      _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(channels * 2));
  const __m256i step = _mm256_set1_epi32(2);
  const __m256d divisor = _mm256_set1_pd(static_cast<double>(channels));
  int32_t f = 0;
  for (; f + 8 < frames; f += 8) {
    const int* base = reinterpret_cast<const int*>(src + static_cast<int64_t>(f) * channels);
    __m256i offsets = frameOffsets;
    __m256i sum = _mm256_setzero_si256();
    for (int32_t c = 0; c < channels; ++c) {
      __m256i g = _mm256_i32gather_epi32(base, offsets, 1);
      sum = _mm256_add_epi32(sum, _mm256_srai_epi32(_mm256_slli_epi32(g, 16), 16));
      offsets = _mm256_add_epi32(offsets, step);
    }
    __m128i q0 = _mm256_cvttpd_epi32(_mm256_div_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(sum)), divisor));
    __m128i q1 = _mm256_cvttpd_epi32(_mm256_div_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(sum, 1)), divisor));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + f), _mm_packs_epi32(Low16(q0), Low16(q1)));
  }
  return f;
}

// Beyond this many channels the gather offsets could overflow; the scalar body runs.
constexpr int32_t kMaxGatherChannels = 65536;

}  // namespace

void MixToMono_AVX2(const int16_t* src, int32_t channels, int16_t* dst, int32_t frames) {
  int32_t done = 0;
  if (channels == 2) {
    done = MixStereo_AVX2(src, dst, frames);
  } else if (channels >= 3 && channels <= kMaxGatherChannels) {
    done = MixMany_AVX2(src, channels, dst, frames);
  }
  MixToMono_C(src + static_cast<int64_t>(done) * channels, channels, dst + done, frames - done);
}

}  // namespace lmx

#endif  // x86-64
