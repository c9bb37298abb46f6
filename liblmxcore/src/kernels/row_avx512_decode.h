// row_avx512_decode.h: the AVX-512 YUY2 decode shared by row_avx512.cpp and
// row_avx512_vnni.cpp.
//
// Include only from a file compiled for AVX-512 F, BW and VL. Everything here
// has internal linkage on purpose: each including file is compiled for its own
// instruction sets, and a shared (inline, external) copy could be merged by the
// linker into the other file's, VNNI code reaching processors without it.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace lmx {
namespace {
inline __m512i Pair16(int16_t low, int16_t high) {
  return _mm512_set1_epi32(
      static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(high)) << 16) | static_cast<uint16_t>(low)));
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
alignas(64) constexpr uint16_t kMergePixels[32] = {1, 33, 3,  35, 17, 49, 19, 51, 5,  37, 7,  39, 21, 53, 23, 55,
                                                   9, 41, 11, 43, 25, 57, 27, 59, 13, 45, 15, 47, 29, 61, 31, 63};

// Joins the 16-bit channel words of 32 decoded pixels
// into pixels 0-15 (`px_lo`) and 16-31 (`px_hi`) of four bytes.
template <bool kRgba>
inline void JoinChannels(__m512i r16, __m512i g16, __m512i b16, __m512i alpha16, __m512i* px_lo, __m512i* px_hi) {
  const __m512i first_third = kRgba ? _mm512_packus_epi16(r16, b16) : _mm512_packus_epi16(b16, r16);
  const __m512i green_alpha = _mm512_packus_epi16(g16, alpha16);
  const __m512i c01 = _mm512_unpacklo_epi8(first_third, green_alpha);
  const __m512i c23 = _mm512_unpackhi_epi8(first_third, green_alpha);
  *px_lo = _mm512_unpacklo_epi16(c01, c23);
  *px_hi = _mm512_unpackhi_epi16(c01, c23);
}

// Stores 32 decoded four-byte pixels as 96 bytes of three: the alpha bytes
// squeezed out of each lane (12 bytes at its bottom), then the 32-bit groups
// gathered: the first 64 bytes of output from all of the first register and the
// start of the second, the last 32 from the second.
struct ThreeChannelStore {
  __m512i squeeze = EachLane(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  __m512i gather_first = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20);
  __m512i gather_rest = _mm512_setr_epi32(5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0, 0, 0, 0, 0);

  void operator()(__m512i lo, __m512i hi, uint8_t* dst) const {
    lo = _mm512_shuffle_epi8(lo, squeeze);
    hi = _mm512_shuffle_epi8(hi, squeeze);
    _mm512_storeu_si512(dst, _mm512_permutex2var_epi32(lo, gather_first, hi));
    _mm512_mask_storeu_epi32(dst + 64, 0x00FF, _mm512_maskz_permutexvar_epi32(0x00FF, gather_rest, hi));
  }
};

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
  const __m512i red = _mm512_add_epi32(_mm512_madd_epi16(uv_scaled, Pair16(0, 6973)), _mm512_set1_epi32(kRedOffset));
  const __m512i blue = _mm512_add_epi32(_mm512_madd_epi16(uv_scaled, Pair16(22031, 0)), _mm512_set1_epi32(kBlueOffset));
  const __m512i uv_v =  // U + V | V << 16
      _mm512_maddubs_epi16(_mm512_shuffle_epi8(yuy2, UVVMask512()), _mm512_set1_epi32(0x00010101));
  const __m512i green =
      _mm512_add_epi32(_mm512_madd_epi16(uv_v, Pair16(-25690, -27591)), _mm512_set1_epi32(kGreenOffset));

  const __m512i r16 = _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, red), merge, _mm512_add_epi32(luma1, red));
  const __m512i g16 = _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, green), merge, _mm512_add_epi32(luma1, green));
  const __m512i b16 = _mm512_permutex2var_epi16(_mm512_add_epi32(luma0, blue), merge, _mm512_add_epi32(luma1, blue));
  JoinChannels<kRgba>(r16, g16, b16, alpha16, px_lo, px_hi);
}

}  // namespace
}  // namespace lmx
