// AVX-512 (F, BW) row bodies and their any-width entry points (row_simd.h). This
// file alone is compiled with -mavx512f -mavx512bw -mavx512vl. Loads and stores
// are unaligned, and no 512-bit value crosses a call that is not inlined (the
// Windows x64 ABI does not align the stack for it).
#include <immintrin.h>

#include <cstring>

#include "kernels/row.h"
#include "kernels/row_any.h"
#include "kernels/row_simd.h"

namespace lmx::kernels {
namespace {

inline __m512i Pair16(int16_t low, int16_t high) {
  return _mm512_set1_epi32(static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(high)) << 16) |
                                                static_cast<uint16_t>(low)));
}

// 32 pixels per block (64 source bytes, 128 destination bytes). The arithmetic
// is the SSSE3 body's (row_ssse3.cpp: coefficients split into a shift and a
// 16-bit madd, exact in 32 bits) on all four 128-bit lanes; lane i holds pixels
// 8i to 8i + 7 until the final two-source permutes.
template <bool kRgba>
void YUY2ToFourChannelRow(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  const __m512i zero = _mm512_setzero_si512();
  const __m512i alpha8 = _mm512_set1_epi8(static_cast<char>(alpha));
  const __m512i luma_coeffs = Pair16(10748, -18559);
  const __m512i sixty_four = _mm512_set1_epi16(64);
  const __m512i high_words = _mm512_set1_epi32(static_cast<int32_t>(0xFFFF0000u));
  const __m512i first_half = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
  const __m512i second_half = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
  for (int x = 0; x < width; x += 32, src += 64, dst += 128) {
    const __m512i yuy2 = _mm512_loadu_si512(src);
    const __m512i y = _mm512_and_si512(yuy2, _mm512_set1_epi16(0x00FF));
    const __m512i uv = _mm512_sub_epi16(_mm512_srli_epi16(yuy2, 8), _mm512_set1_epi16(128));

    const __m512i luma_lo = _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpacklo_epi16(y, sixty_four), luma_coeffs),
                                             _mm512_unpacklo_epi16(zero, y));
    const __m512i luma_hi = _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpackhi_epi16(y, sixty_four), luma_coeffs),
                                             _mm512_unpackhi_epi16(zero, y));
    const __m512i v_shifted = _mm512_and_si512(uv, high_words);
    const __m512i u_shifted = _mm512_slli_epi32(uv, 16);
    const __m512i red =
        _mm512_add_epi32(_mm512_madd_epi16(uv, Pair16(0, -26477)), _mm512_add_epi32(v_shifted, v_shifted));
    const __m512i green = _mm512_add_epi32(_mm512_madd_epi16(uv, Pair16(25690, -12255)), v_shifted);
    const __m512i blue =
        _mm512_add_epi32(_mm512_madd_epi16(uv, Pair16(1114, 0)), _mm512_add_epi32(u_shifted, u_shifted));

    const __m512i r_lo = _mm512_srai_epi32(_mm512_add_epi32(luma_lo, _mm512_unpacklo_epi32(red, red)), 16);
    const __m512i r_hi = _mm512_srai_epi32(_mm512_add_epi32(luma_hi, _mm512_unpackhi_epi32(red, red)), 16);
    const __m512i g_lo = _mm512_srai_epi32(_mm512_sub_epi32(luma_lo, _mm512_unpacklo_epi32(green, green)), 16);
    const __m512i g_hi = _mm512_srai_epi32(_mm512_sub_epi32(luma_hi, _mm512_unpackhi_epi32(green, green)), 16);
    const __m512i b_lo = _mm512_srai_epi32(_mm512_add_epi32(luma_lo, _mm512_unpacklo_epi32(blue, blue)), 16);
    const __m512i b_hi = _mm512_srai_epi32(_mm512_add_epi32(luma_hi, _mm512_unpackhi_epi32(blue, blue)), 16);

    const __m512i r16 = _mm512_packs_epi32(r_lo, r_hi);
    const __m512i g16 = _mm512_packs_epi32(g_lo, g_hi);
    const __m512i b16 = _mm512_packs_epi32(b_lo, b_hi);
    const __m512i first_third = kRgba ? _mm512_packus_epi16(r16, b16) : _mm512_packus_epi16(b16, r16);
    const __m512i g8 = _mm512_packus_epi16(g16, g16);
    const __m512i c01 = _mm512_unpacklo_epi8(first_third, g8);
    const __m512i c23 = _mm512_unpacklo_epi8(_mm512_unpackhi_epi64(first_third, first_third), alpha8);
    const __m512i px_a = _mm512_unpacklo_epi16(c01, c23);  // pixels 0-3 | 8-11 | 16-19 | 24-27
    const __m512i px_b = _mm512_unpackhi_epi16(c01, c23);  // pixels 4-7 | 12-15 | 20-23 | 28-31
    _mm512_storeu_si512(dst, _mm512_permutex2var_epi64(px_a, first_half, px_b));
    _mm512_storeu_si512(dst + 64, _mm512_permutex2var_epi64(px_a, second_half, px_b));
  }
}

void YUY2ToBGRARow_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<false>(src, dst, width, alpha);
}
void YUY2ToRGBARow_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<true>(src, dst, width, alpha);
}

}  // namespace

void YUY2ToBGRARow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToBGRARow_AVX512, YUY2ToBGRARow_C, 32, 4>(src, dst, width, alpha);
}
void YUY2ToRGBARow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToRGBARow_AVX512, YUY2ToRGBARow_C, 32, 4>(src, dst, width, alpha);
}

}  // namespace lmx::kernels
