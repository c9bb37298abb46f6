// AVX-512 rows that also use VNNI (16-bit dot products into 32-bit sums), and
// their any-width entry points (row_simd.h). This file is compiled with
// -mavx512f -mavx512bw -mavx512vl -mavx512vnni; the dispatch table calls into it
// only when the processor has VNNI (kCpuHasAVX512VNNI).
#include <immintrin.h>

#include "kernels/row.h"
#include "kernels/row_any.h"
#include "kernels/row_avx512_decode.h"
#include "kernels/row_simd.h"

namespace lmx {
namespace {

// The decode of DecodeYUY2x32 with each dot product and its 32-bit addend in one
// instruction (vpdpwssd; exact, it does not saturate): the offsets are the
// chroma sums' addends, the chroma sums the luma products' ones.
template <bool kRgba>
inline void DecodeYUY2x32Vnni(const uint8_t* src, __m512i merge, __m512i alpha16, __m512i* px_lo, __m512i* px_hi) {
  const __m512i yuy2 = _mm512_loadu_si512(src);
  const __m512i y4 = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x00040004));         // 4 Y0 | 4 Y1 << 16
  const __m512i uv_scaled = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x0F000600));  // 6 U | 15 V << 16
  const __m512i uv_v =                                                                  // U + V | V << 16
      _mm512_maddubs_epi16(_mm512_shuffle_epi8(yuy2, UVVMask512()), _mm512_set1_epi32(0x00010101));
  const __m512i red = _mm512_dpwssd_epi32(_mm512_set1_epi32(kRedOffset), uv_scaled, Pair16(0, 6973));
  const __m512i blue = _mm512_dpwssd_epi32(_mm512_set1_epi32(kBlueOffset), uv_scaled, Pair16(22031, 0));
  const __m512i green = _mm512_dpwssd_epi32(_mm512_set1_epi32(kGreenOffset), uv_v, Pair16(-25690, -27591));

  const __m512i first = Pair16(19071, 0), second = Pair16(0, 19071);  // luma of the pair's first, second pixel
  const __m512i r16 =
      _mm512_permutex2var_epi16(_mm512_dpwssd_epi32(red, y4, first), merge, _mm512_dpwssd_epi32(red, y4, second));
  const __m512i g16 =
      _mm512_permutex2var_epi16(_mm512_dpwssd_epi32(green, y4, first), merge, _mm512_dpwssd_epi32(green, y4, second));
  const __m512i b16 =
      _mm512_permutex2var_epi16(_mm512_dpwssd_epi32(blue, y4, first), merge, _mm512_dpwssd_epi32(blue, y4, second));
  JoinChannels<kRgba>(r16, g16, b16, alpha16, px_lo, px_hi);
}

// The rows of YUY2ToFourChannelRow and YUY2ToThreeChannelRow (row_avx512.cpp)
// with that decode.
template <bool kRgba>
void YUY2ToFourChannelRowVnni(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  const __m512i alpha16 = _mm512_set1_epi16(alpha);
  const __m512i merge = _mm512_load_si512(kMergePixels);
  for (int x = 0; x < width; x += 32, src += 64, dst += 128) {
    __m512i lo, hi;
    DecodeYUY2x32Vnni<kRgba>(src, merge, alpha16, &lo, &hi);
    _mm512_storeu_si512(dst, lo);
    _mm512_storeu_si512(dst + 64, hi);
  }
}

template <bool kRgb>
void YUY2ToThreeChannelRowVnni(const uint8_t* src, uint8_t* dst, int width) {
  const ThreeChannelStore store;
  const __m512i merge = _mm512_load_si512(kMergePixels);
  const __m512i alpha16 = _mm512_setzero_si512();
  for (int x = 0; x < width; x += 32, src += 64, dst += 96) {
    __m512i lo, hi;
    DecodeYUY2x32Vnni<kRgb>(src, merge, alpha16, &lo, &hi);
    store(lo, hi, dst);
  }
}

void YUY2ToBGRARow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRowVnni<false>(src, dst, width, alpha);
}
void YUY2ToRGBARow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRowVnni<true>(src, dst, width, alpha);
}
void YUY2ToBGRRow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width) {
  YUY2ToThreeChannelRowVnni<false>(src, dst, width);
}
void YUY2ToRGBRow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width) {
  YUY2ToThreeChannelRowVnni<true>(src, dst, width);
}

}  // namespace

void YUY2ToBGRARow_Any_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToBGRARow_AVX512VNNI, YUY2ToBGRARow_C, 32, 4>(src, dst, width, alpha);
}
void YUY2ToRGBARow_Any_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToRGBARow_AVX512VNNI, YUY2ToRGBARow_C, 32, 4>(src, dst, width, alpha);
}
void YUY2ToBGRRow_Any_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToBGRRow_AVX512VNNI, YUY2ToBGRRow_C, 32, 3>(src, dst, width);
}
void YUY2ToRGBRow_Any_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToRGBRow_AVX512VNNI, YUY2ToRGBRow_C, 32, 3>(src, dst, width);
}

}  // namespace lmx
