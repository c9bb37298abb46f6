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

// Byte shuffle mask giving U V V 0 in every 32-bit lane of YUY2 dwords.
inline __m512i UVVMask512() {
  return _mm512_broadcast_i32x4(_mm_setr_epi8(1, 3, 3, -128, 5, 7, 7, -128, 9, 11, 11, -128, 13, 15, 15, -128));
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
  // Word i of a channel: the high word of the pair sum of its pixel, taken from
  // the first-pixel sums (index < 32) or the second-pixel ones (index >= 32),
  // pixels ordered per lane as the packs and unpacks below need them: lane j
  // gets pixels 4j to 4j + 3 and 16 + 4j to 16 + 4j + 3.
  alignas(64) static constexpr uint16_t kMerge[32] = {
      1, 33, 3, 35, 17, 49, 19, 51, 5, 37, 7, 39, 21, 53, 23, 55,
      9, 41, 11, 43, 25, 57, 27, 59, 13, 45, 15, 47, 29, 61, 31, 63};
  const __m512i merge = _mm512_load_si512(kMerge);
#pragma GCC unroll 2
  for (int x = 0; x < width; x += 32, src += 64, dst += 128) {
    const __m512i yuy2 = _mm512_loadu_si512(src);
    // Luma and chroma bytes scaled in 16-bit words by byte madds (exact, far
    // from saturation), so that every coefficient of the formula is a 16-bit one:
    // 76284 = 4 * 19071, 104595 = 15 * 6973, 132186 = 6 * 22031, and
    // 25690 U + 53281 V = 25690 (U + V) + 27591 V.
    const __m512i y4 = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x00040004));  // 4 Y0 | 4 Y1 << 16
    const __m512i luma0 = _mm512_madd_epi16(y4, Pair16(19071, 0));
    const __m512i luma1 = _mm512_madd_epi16(y4, Pair16(0, 19071));
    const __m512i uv_scaled = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x0F000600));  // 6 U | 15 V << 16
    const __m512i red = _mm512_add_epi32(_mm512_madd_epi16(uv_scaled, Pair16(0, 6973)), _mm512_set1_epi32(kRedOffset));
    const __m512i blue = _mm512_add_epi32(_mm512_madd_epi16(uv_scaled, Pair16(22031, 0)), _mm512_set1_epi32(kBlueOffset));
    const __m512i uv_v = _mm512_maddubs_epi16(_mm512_shuffle_epi8(yuy2, UVVMask512()), _mm512_set1_epi32(0x00010101));  // U + V | V << 16
    const __m512i green = _mm512_add_epi32(_mm512_madd_epi16(uv_v, Pair16(-25690, -27591)), _mm512_set1_epi32(kGreenOffset));

    const __m512i r16 =
        _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, red), merge, _mm512_add_epi32(luma1, red));
    const __m512i g16 =
        _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, green), merge, _mm512_add_epi32(luma1, green));
    const __m512i b16 =
        _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, blue), merge, _mm512_add_epi32(luma1, blue));

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
