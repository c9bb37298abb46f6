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

constexpr int32_t kRedOffset = -104595 * 128 - 1187776;  // as in row_avx2.cpp
constexpr int32_t kGreenOffset = (25690 + 53281) * 128 - 1187776;
constexpr int32_t kBlueOffset = -132186 * 128 - 1187776;

// 32 pixels per block (64 source bytes, 128 destination bytes). The arithmetic
// is the AVX2 body's (row_avx2.cpp: one 32-bit lane per pixel pair, exact sums,
// floor by the high 16-bit halves) on all four 128-bit lanes. The source's
// 64-bit quarters are taken in the order 0 4 1 5 2 6 3 7, so lane i holds
// pixels 4i to 4i + 3 and 16 + 4i to 16 + 4i + 3, and the per-lane unpacks at
// the end give pixels 0-15 and 16-31 in order.
template <bool kRgba>
void YUY2ToFourChannelRow(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  const __m512i alpha16 = _mm512_set1_epi16(alpha);
  const __m512i high_words = _mm512_set1_epi32(static_cast<int32_t>(0xFFFF0000u));
  const __mmask32 second_pixels = 0xAAAAAAAAu;  // the odd 16-bit words
  const __m512i spread = _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7);
  for (int x = 0; x < width; x += 32, src += 64, dst += 128) {
    const __m512i yuy2 = _mm512_permutexvar_epi64(spread, _mm512_loadu_si512(src));
    const __m512i y = _mm512_and_si512(yuy2, _mm512_set1_epi32(0x00FF00FF));  // Y0 | Y1 << 16
    const __m512i luma0 = _mm512_slli_epi32(_mm512_madd_epi16(y, Pair16(19071, 0)), 2);
    const __m512i luma1 = _mm512_slli_epi32(_mm512_madd_epi16(y, Pair16(0, 19071)), 2);

    const __m512i uv = _mm512_srli_epi16(yuy2, 8);  // U | V << 16
    const __m512i v16 = _mm512_and_si512(uv, high_words);
    const __m512i red = _mm512_add_epi32(_mm512_madd_epi16(uv, Pair16(0, -26477)),
                                         _mm512_add_epi32(_mm512_add_epi32(v16, v16), _mm512_set1_epi32(kRedOffset)));
    const __m512i green = _mm512_sub_epi32(_mm512_madd_epi16(uv, Pair16(-25690, 12255)),
                                           _mm512_sub_epi32(v16, _mm512_set1_epi32(kGreenOffset)));
    const __m512i blue = _mm512_add_epi32(_mm512_madd_epi16(uv, Pair16(1114, 0)),
                                          _mm512_add_epi32(_mm512_slli_epi32(uv, 17), _mm512_set1_epi32(kBlueOffset)));

    const __m512i r16 = _mm512_mask_blend_epi16(second_pixels, _mm512_srli_epi32(_mm512_add_epi32(luma0, red), 16),
                                                _mm512_add_epi32(luma1, red));
    const __m512i g16 = _mm512_mask_blend_epi16(second_pixels, _mm512_srli_epi32(_mm512_add_epi32(luma0, green), 16),
                                                _mm512_add_epi32(luma1, green));
    const __m512i b16 = _mm512_mask_blend_epi16(second_pixels, _mm512_srli_epi32(_mm512_add_epi32(luma0, blue), 16),
                                                _mm512_add_epi32(luma1, blue));

    const __m512i first_third = kRgba ? _mm512_packus_epi16(r16, b16) : _mm512_packus_epi16(b16, r16);
    const __m512i green_alpha = _mm512_packus_epi16(g16, alpha16);
    const __m512i c01 = _mm512_unpacklo_epi8(first_third, green_alpha);
    const __m512i c23 = _mm512_unpackhi_epi8(first_third, green_alpha);
    _mm512_storeu_si512(dst, _mm512_unpacklo_epi16(c01, c23));
    _mm512_storeu_si512(dst + 64, _mm512_unpackhi_epi16(c01, c23));
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
