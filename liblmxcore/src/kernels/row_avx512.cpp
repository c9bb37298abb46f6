// AVX-512 (F, BW) row bodies and their any-width entry points (row_simd.h). This
// file alone is compiled with -mavx512f -mavx512bw -mavx512vl; the functions
// that use VNNI as well carry it as a target attribute. Loads and stores are
// unaligned, and no 512-bit value crosses a call that is not inlined (the
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

// The same 16 bytes in each 128-bit lane. (The zero-masked broadcast: GCC's
// plain one starts from an "undefined" register that -Wuninitialized flags.)
inline __m512i EachLane(__m128i bytes) { return _mm512_maskz_broadcast_i32x4(0xFFFF, bytes); }

// Byte shuffle mask giving U V V 0 in every 32-bit lane of YUY2 dwords.
inline __m512i UVVMask512() {
  return EachLane(_mm_setr_epi8(1, 3, 3, -128, 5, 7, 7, -128, 9, 11, 11, -128, 13, 15, 15, -128));
}

// The colour offsets with the chroma bias folded in, as in row_avx2.cpp.
constexpr int32_t kRedOffset = -104595 * 128 - 1187776;
constexpr int32_t kGreenOffset = (25690 + 53281) * 128 - 1187776;
constexpr int32_t kBlueOffset = -132186 * 128 - 1187776;

// Word i of a decoded channel: the high word of the pair sum of its pixel, from
// the first-pixel sums (index < 32) or the second-pixel ones (index >= 32),
// ordered so that lane j holds pixels 4j to 4j + 3 and 16 + 4j to 16 + 4j + 3:
// the per-lane packs and unpacks at the end then give pixels 0-15 and 16-31.
alignas(64) constexpr uint16_t kMergePixels[32] = {1, 33, 3, 35, 17, 49, 19, 51, 5, 37, 7, 39, 21, 53, 23, 55,
                                                   9, 41, 11, 43, 25, 57, 27, 59, 13, 45, 15, 47, 29, 61, 31, 63};

// Decodes 32 pixels (64 YUY2 bytes) into pixels 0-15 (`px_lo`) and 16-31
// (`px_hi`) of four bytes. The arithmetic is the AVX2 body's (row_avx2.cpp: one
// 32-bit lane per pixel pair, exact sums, floor by the high 16-bit halves) on
// all four 128-bit lanes; one two-source word permute per channel takes the
// high halves of both pixels' sums.
template <bool kRgba>
inline void DecodeYUY2x32(const uint8_t* src, __m512i merge, __m512i alpha16, __m512i* px_lo, __m512i* px_hi) {
  const __m512i yuy2 = _mm512_loadu_si512(src);
  // Luma and chroma bytes scaled in 16-bit words by byte madds (exact, far from
  // saturation), so that every coefficient of the formula is a 16-bit one:
  // 76284 = 4 * 19071, 104595 = 15 * 6973, 132186 = 6 * 22031, and
  // 25690 U + 53281 V = 25690 (U + V) + 27591 V.
  const __m512i y4 = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x00040004));  // 4 Y0 | 4 Y1 << 16
  const __m512i luma0 = _mm512_madd_epi16(y4, Pair16(19071, 0));
  const __m512i luma1 = _mm512_madd_epi16(y4, Pair16(0, 19071));
  const __m512i uv_scaled = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x0F000600));  // 6 U | 15 V << 16
  const __m512i red =
      _mm512_add_epi32(_mm512_madd_epi16(uv_scaled, Pair16(0, 6973)), _mm512_set1_epi32(kRedOffset));
  const __m512i blue =
      _mm512_add_epi32(_mm512_madd_epi16(uv_scaled, Pair16(22031, 0)), _mm512_set1_epi32(kBlueOffset));
  const __m512i uv_v =  // U + V | V << 16
      _mm512_maddubs_epi16(_mm512_shuffle_epi8(yuy2, UVVMask512()), _mm512_set1_epi32(0x00010101));
  const __m512i green =
      _mm512_add_epi32(_mm512_madd_epi16(uv_v, Pair16(-25690, -27591)), _mm512_set1_epi32(kGreenOffset));

  const __m512i r16 = _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, red), merge, _mm512_add_epi32(luma1, red));
  const __m512i g16 = _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, green), merge, _mm512_add_epi32(luma1, green));
  const __m512i b16 = _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, blue), merge, _mm512_add_epi32(luma1, blue));

  const __m512i first_third = kRgba ? _mm512_packus_epi16(r16, b16) : _mm512_packus_epi16(b16, r16);
  const __m512i green_alpha = _mm512_packus_epi16(g16, alpha16);
  const __m512i c01 = _mm512_unpacklo_epi8(first_third, green_alpha);
  const __m512i c23 = _mm512_unpackhi_epi8(first_third, green_alpha);
  *px_lo = _mm512_unpacklo_epi16(c01, c23);
  *px_hi = _mm512_unpackhi_epi16(c01, c23);
}

// 32 pixels per block (64 source bytes, 128 destination bytes).
template <bool kRgba>
void YUY2ToFourChannelRow(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  const __m512i alpha16 = _mm512_set1_epi16(alpha);
  const __m512i merge = _mm512_load_si512(kMergePixels);
  for (int x = 0; x < width; x += 32, src += 64, dst += 128) {
    __m512i lo, hi;
    DecodeYUY2x32<kRgba>(src, merge, alpha16, &lo, &hi);
    _mm512_storeu_si512(dst, lo);
    _mm512_storeu_si512(dst + 64, hi);
  }
}

void YUY2ToBGRARow_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<false>(src, dst, width, alpha);
}
void YUY2ToRGBARow_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<true>(src, dst, width, alpha);
}

// 32 pixels per block (64 source bytes, 96 destination bytes): decoded to four
// channels, the alpha bytes squeezed out of each lane (12 bytes at its bottom),
// then the 32-bit groups gathered: the first 64 bytes of output from all of the
// first register and the start of the second, the last 32 from the second.
template <bool kRgb>
void YUY2ToThreeChannelRow(const uint8_t* src, uint8_t* dst, int width) {
  const __m512i squeeze =
      EachLane(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  const __m512i gather_first = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20);
  const __m512i gather_rest = _mm512_setr_epi32(5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m512i merge = _mm512_load_si512(kMergePixels);
  const __m512i alpha16 = _mm512_setzero_si512();
  for (int x = 0; x < width; x += 32, src += 64, dst += 96) {
    __m512i lo, hi;
    DecodeYUY2x32<kRgb>(src, merge, alpha16, &lo, &hi);
    lo = _mm512_shuffle_epi8(lo, squeeze);
    hi = _mm512_shuffle_epi8(hi, squeeze);
    _mm512_storeu_si512(dst, _mm512_permutex2var_epi32(lo, gather_first, hi));
    _mm512_mask_storeu_epi32(dst + 64, 0x00FF, _mm512_maskz_permutexvar_epi32(0x00FF, gather_rest, hi));
  }
}

void YUY2ToBGRRow_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  YUY2ToThreeChannelRow<false>(src, dst, width);
}
void YUY2ToRGBRow_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  YUY2ToThreeChannelRow<true>(src, dst, width);
}

// --- YUY2 to colour with AVX-512 VNNI ------------------------------------------------

// Every function of this part carries the VNNI target (so they inline into each
// other) and runs only when the processor has it (kCpuHasAVX512VNNI).
#define LMX_VNNI __attribute__((target("avx512vnni")))

// The decode of DecodeYUY2x32 with each dot product and its 32-bit addend in one
// instruction (vpdpwssd; exact, it does not saturate): the offsets are the
// chroma sums' addends, the chroma sums the luma products' ones.
template <bool kRgba>
LMX_VNNI inline void DecodeYUY2x32Vnni(const uint8_t* src, __m512i merge, __m512i alpha16, __m512i* px_lo,
                                       __m512i* px_hi) {
  const __m512i yuy2 = _mm512_loadu_si512(src);
  const __m512i y4 = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x00040004));  // 4 Y0 | 4 Y1 << 16
  const __m512i uv_scaled = _mm512_maddubs_epi16(yuy2, _mm512_set1_epi32(0x0F000600));  // 6 U | 15 V << 16
  const __m512i uv_v =  // U + V | V << 16
      _mm512_maddubs_epi16(_mm512_shuffle_epi8(yuy2, UVVMask512()), _mm512_set1_epi32(0x00010101));
  const __m512i red = _mm512_dpwssd_epi32(_mm512_set1_epi32(kRedOffset), uv_scaled, Pair16(0, 6973));
  const __m512i blue = _mm512_dpwssd_epi32(_mm512_set1_epi32(kBlueOffset), uv_scaled, Pair16(22031, 0));
  const __m512i green = _mm512_dpwssd_epi32(_mm512_set1_epi32(kGreenOffset), uv_v, Pair16(-25690, -27591));

  const __m512i first = Pair16(19071, 0), second = Pair16(0, 19071);  // luma of the pair's first, second pixel
  const __m512i r16 = _mm512_permutex2var_epi16(_mm512_dpwssd_epi32(red, y4, first), merge,
                                                _mm512_dpwssd_epi32(red, y4, second));
  const __m512i g16 = _mm512_permutex2var_epi16(_mm512_dpwssd_epi32(green, y4, first), merge,
                                                _mm512_dpwssd_epi32(green, y4, second));
  const __m512i b16 = _mm512_permutex2var_epi16(_mm512_dpwssd_epi32(blue, y4, first), merge,
                                                _mm512_dpwssd_epi32(blue, y4, second));

  const __m512i first_third = kRgba ? _mm512_packus_epi16(r16, b16) : _mm512_packus_epi16(b16, r16);
  const __m512i green_alpha = _mm512_packus_epi16(g16, alpha16);
  const __m512i c01 = _mm512_unpacklo_epi8(first_third, green_alpha);
  const __m512i c23 = _mm512_unpackhi_epi8(first_third, green_alpha);
  *px_lo = _mm512_unpacklo_epi16(c01, c23);
  *px_hi = _mm512_unpackhi_epi16(c01, c23);
}

// The rows of YUY2ToFourChannelRow and YUY2ToThreeChannelRow with that decode.
template <bool kRgba>
LMX_VNNI void YUY2ToFourChannelRowVnni(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
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
LMX_VNNI void YUY2ToThreeChannelRowVnni(const uint8_t* src, uint8_t* dst, int width) {
  const __m512i squeeze = EachLane(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  const __m512i gather_first = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20);
  const __m512i gather_rest = _mm512_setr_epi32(5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m512i merge = _mm512_load_si512(kMergePixels);
  const __m512i alpha16 = _mm512_setzero_si512();
  for (int x = 0; x < width; x += 32, src += 64, dst += 96) {
    __m512i lo, hi;
    DecodeYUY2x32Vnni<kRgb>(src, merge, alpha16, &lo, &hi);
    lo = _mm512_shuffle_epi8(lo, squeeze);
    hi = _mm512_shuffle_epi8(hi, squeeze);
    _mm512_storeu_si512(dst, _mm512_permutex2var_epi32(lo, gather_first, hi));
    _mm512_mask_storeu_epi32(dst + 64, 0x00FF, _mm512_maskz_permutexvar_epi32(0x00FF, gather_rest, hi));
  }
}

LMX_VNNI void YUY2ToBGRARow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRowVnni<false>(src, dst, width, alpha);
}
LMX_VNNI void YUY2ToRGBARow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRowVnni<true>(src, dst, width, alpha);
}
LMX_VNNI void YUY2ToBGRRow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width) {
  YUY2ToThreeChannelRowVnni<false>(src, dst, width);
}
LMX_VNNI void YUY2ToRGBRow_AVX512VNNI(const uint8_t* src, uint8_t* dst, int width) {
  YUY2ToThreeChannelRowVnni<true>(src, dst, width);
}

#undef LMX_VNNI

// --- Channel swap ---------------------------------------------------------

// 16 pixels per block: one byte shuffle per 64 bytes.
void BGRAToRGBARow_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  const __m512i swap = EachLane(_mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15));
  for (int x = 0; x < width; x += 16, src += 64, dst += 64) {
    _mm512_storeu_si512(dst, _mm512_shuffle_epi8(_mm512_loadu_si512(src), swap));
  }
}

// --- Grey from colour ----------------------------------------------------------------

// Float multiply and add, each rounded on its own: AVX-512F has fused
// multiply-add, and the compiler may fuse a plain product and sum into one (a
// single rounding, not the scalar row's result); the explicit-rounding forms are
// never fused.
constexpr int kNearest = _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC;
inline __m512 Mul(__m512 a, __m512 b) { return _mm512_mul_round_ps(a, b, kNearest); }
inline __m512 Add(__m512 a, __m512 b) { return _mm512_add_round_ps(a, b, kNearest); }

// 16 pixels of four bytes (channels in memory order c0 c1 c2 x) to 16 grey
// values in 32-bit lanes, with the float steps of the scalar row: the AVX2 body
// (row_avx2.cpp) on 512 bits. Each channel is isolated in place by a mask and
// its weight divided by the same power of two, so every product is exactly the
// scalar row's.
inline __m512i GreyOf16(__m512i pixels, __m512 w0, __m512 w1, __m512 w2) {
  const __m512 f0 = _mm512_cvtepi32_ps(_mm512_and_si512(pixels, _mm512_set1_epi32(0xFF)));
  const __m512 f1 = _mm512_cvtepi32_ps(_mm512_and_si512(pixels, _mm512_set1_epi32(0xFF00)));
  const __m512 f2 = _mm512_cvtepi32_ps(_mm512_and_si512(pixels, _mm512_set1_epi32(0xFF0000)));
  const __m512 sum = Add(Add(Mul(w0, f0), Mul(w1, f1)), Mul(w2, f2));
  return _mm512_cvttps_epi32(Add(sum, _mm512_set1_ps(0.5f)));
}

// 16 pixels as four bytes each. Three-byte pixels: the group's 48 bytes by a
// masked load (nothing past them is read), 12 bytes moved into each lane, then
// spread to four bytes a pixel.
template <int kBpp>
inline __m512i LoadGreyGroup(const uint8_t* p) {
  if constexpr (kBpp == 4) {
    return _mm512_loadu_si512(p);
  } else {
    const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0);
    const __m512i spread =
        EachLane(_mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
    const __m512i bytes = _mm512_maskz_loadu_epi8(0x0000FFFFFFFFFFFFull, p);
    return _mm512_shuffle_epi8(_mm512_permutexvar_epi32(lanes, bytes), spread);
  }
}

// 64 pixels per block, in four groups of 16; weights in memory order of the
// channels. The packs work per lane; a dword permute puts the groups in order.
template <int kBpp, bool kRgb>
void GreyRow(const uint8_t* src, uint8_t* dst, int width) {
  const __m512 w0 = _mm512_set1_ps(kRgb ? 0.299f : 0.114f), w1 = _mm512_set1_ps(0.587f / 256.0f),
               w2 = _mm512_set1_ps((kRgb ? 0.114f : 0.299f) / 65536.0f);
  const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  for (int x = 0; x < width; x += 64, src += 64 * kBpp, dst += 64) {
    const __m512i g0 = GreyOf16(LoadGreyGroup<kBpp>(src), w0, w1, w2);
    const __m512i g1 = GreyOf16(LoadGreyGroup<kBpp>(src + 16 * kBpp), w0, w1, w2);
    const __m512i g2 = GreyOf16(LoadGreyGroup<kBpp>(src + 32 * kBpp), w0, w1, w2);
    const __m512i g3 = GreyOf16(LoadGreyGroup<kBpp>(src + 48 * kBpp), w0, w1, w2);
    const __m512i packed = _mm512_packus_epi16(_mm512_packs_epi32(g0, g1), _mm512_packs_epi32(g2, g3));
    _mm512_storeu_si512(dst, _mm512_permutexvar_epi32(order, packed));
  }
}

}  // namespace

void YUY2ToBGRARow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToBGRARow_AVX512, YUY2ToBGRARow_C, 32, 4>(src, dst, width, alpha);
}
void YUY2ToRGBARow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToRGBARow_AVX512, YUY2ToRGBARow_C, 32, 4>(src, dst, width, alpha);
}
void YUY2ToBGRRow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToBGRRow_AVX512, YUY2ToBGRRow_C, 32, 3>(src, dst, width);
}
void YUY2ToRGBRow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToRGBRow_AVX512, YUY2ToRGBRow_C, 32, 3>(src, dst, width);
}
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
void BGRAToRGBARow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<BGRAToRGBARow_AVX512, 16, 4, 4>(src, dst, width);
}
void BGRAToY8Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<4, false>, 64, 4, 1>(src, dst, width);
}
void RGBAToY8Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<4, true>, 64, 4, 1>(src, dst, width);
}
void BGRToY8Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<3, false>, 64, 3, 1>(src, dst, width);
}
void RGBToY8Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<3, true>, 64, 3, 1>(src, dst, width);
}

}  // namespace lmx::kernels
