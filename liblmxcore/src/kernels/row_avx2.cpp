// AVX2 row bodies and their any-width entry points (row_simd.h). This file and
// row_avx2_geometry.cpp alone are compiled with -mavx2. Loads and stores are
// unaligned throughout, and no 256-bit value is passed by value to a function
// that is not inlined: the Windows x64 ABI does not align the stack to 32 bytes.
#include <immintrin.h>

#include <cstring>

#include "kernels/row.h"
#include "kernels/row_any.h"
#include "kernels/row_simd.h"

namespace lmx {
namespace {

inline __m256i Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void Store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
inline __m128i Load128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

inline __m256i Pair16(int16_t low, int16_t high) {
  return _mm256_set1_epi32(
      static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(high)) << 16) | static_cast<uint16_t>(low)));
}

// Byte shuffle mask giving U V V 0 in every 32-bit lane of YUY2 dwords.
inline __m256i UVVMask256() {
  return _mm256_setr_epi8(1, 3, 3, -128, 5, 7, 7, -128, 9, 11, 11, -128, 13, 15, 15, -128,  //
                          1, 3, 3, -128, 5, 7, 7, -128, 9, 11, 11, -128, 13, 15, 15, -128);
}

// --- YUY2 to colour ----------------------------------------------------------------

// The colour constants of ycc_math.h with the chroma bias of 128 folded in, so
// that U and V enter as the unsigned bytes: each channel's chroma term plus this
// offset is the formula's sum minus the luma product.
constexpr int32_t kRedOffset = -104595 * 128 - 1187776;
constexpr int32_t kGreenOffset = (25690 + 53281) * 128 - 1187776;
constexpr int32_t kBlueOffset = -132186 * 128 - 1187776;

// Decodes 16 pixels (32 YUY2 bytes) with every sum of the fixed-point formula
// (ycc_math.h) formed exactly in 32 bits, one 32-bit lane per pixel pair (the
// YUY2 dword Y0 U Y1 V):
//   - byte madds scale the luma and chroma bytes into 16-bit words (exact, far
//     from saturation) so that every coefficient is a 16-bit one: 76284 =
//     4 * 19071, 104595 = 15 * 6973, 132186 = 6 * 22031, and 25690 U + 53281 V
//     = 25690 (U + V) + 27591 V;
//   - 16-bit madds then give the luma products of the pair's first and second
//     pixel, each in its own register, and the chroma terms with the offsets
//     added, shared by both pixels;
//   - each channel's two sums floor-divided by 65536 by taking their high
//     16-bit halves (the arithmetic shift the scalar row does): the first
//     pixel's moved down, the second pixel's kept in place, one blend gives the
//     channel's 16-bit values in pixel order.
// The source's 64-bit quarters are taken in the order 0 2 1 3, so that after the
// per-lane packs and unpacks the two output registers hold pixels 0-7 and 8-15
// (no lane crossing at the end). The unsigned byte pack clamps to 0..255.
template <bool kRgba>
inline void DecodeYUY2x16(const uint8_t* src, __m256i alpha16, __m256i* px_lo, __m256i* px_hi) {
  const __m256i yuy2 = _mm256_permute4x64_epi64(Load(src), 0xD8);
  const __m256i y4 = _mm256_maddubs_epi16(yuy2, _mm256_set1_epi32(0x00040004));  // 4 Y0 | 4 Y1 << 16
  const __m256i luma0 = _mm256_madd_epi16(y4, Pair16(19071, 0));
  const __m256i luma1 = _mm256_madd_epi16(y4, Pair16(0, 19071));
  const __m256i uv_scaled = _mm256_maddubs_epi16(yuy2, _mm256_set1_epi32(0x0F000600));  // 6 U | 15 V << 16
  const __m256i red = _mm256_add_epi32(_mm256_madd_epi16(uv_scaled, Pair16(0, 6973)), _mm256_set1_epi32(kRedOffset));
  const __m256i blue = _mm256_add_epi32(_mm256_madd_epi16(uv_scaled, Pair16(22031, 0)), _mm256_set1_epi32(kBlueOffset));
  const __m256i uv_v =  // U + V | V << 16
      _mm256_maddubs_epi16(_mm256_shuffle_epi8(yuy2, UVVMask256()), _mm256_set1_epi32(0x00010101));
  const __m256i green =
      _mm256_add_epi32(_mm256_madd_epi16(uv_v, Pair16(-25690, -27591)), _mm256_set1_epi32(kGreenOffset));

  const __m256i r16 =
      _mm256_blend_epi16(_mm256_srli_epi32(_mm256_add_epi32(luma0, red), 16), _mm256_add_epi32(luma1, red), 0xAA);
  const __m256i g16 =
      _mm256_blend_epi16(_mm256_srli_epi32(_mm256_add_epi32(luma0, green), 16), _mm256_add_epi32(luma1, green), 0xAA);
  const __m256i b16 =
      _mm256_blend_epi16(_mm256_srli_epi32(_mm256_add_epi32(luma0, blue), 16), _mm256_add_epi32(luma1, blue), 0xAA);

  // Per lane: bytes 0-7 first channel, 8-15 third; green and alpha likewise.
  const __m256i first_third = kRgba ? _mm256_packus_epi16(r16, b16) : _mm256_packus_epi16(b16, r16);
  const __m256i green_alpha = _mm256_packus_epi16(g16, alpha16);
  const __m256i c01 = _mm256_unpacklo_epi8(first_third, green_alpha);
  const __m256i c23 = _mm256_unpackhi_epi8(first_third, green_alpha);
  *px_lo = _mm256_unpacklo_epi16(c01, c23);
  *px_hi = _mm256_unpackhi_epi16(c01, c23);
}

// 16 pixels per block (32 source bytes, 64 destination bytes).
template <bool kRgba>
void YUY2ToFourChannelRow(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  const __m256i alpha16 = _mm256_set1_epi16(alpha);
  for (int x = 0; x < width; x += 16, src += 32, dst += 64) {
    __m256i lo, hi;
    DecodeYUY2x16<kRgba>(src, alpha16, &lo, &hi);
    Store(dst, lo);
    Store(dst + 32, hi);
  }
}

void YUY2ToBGRARow_AVX2(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<false>(src, dst, width, alpha);
}
void YUY2ToRGBARow_AVX2(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<true>(src, dst, width, alpha);
}

// 16 pixels per block (32 source bytes, 48 destination bytes): decoded to four
// channels, the alpha bytes squeezed out of each lane (12 bytes at its bottom),
// then the 32-bit groups gathered: the first 32 bytes of output from the first
// register and two groups of the second, the last 16 from the second.
template <bool kRgb>
void YUY2ToThreeChannelRow(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i squeeze = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                           0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  const __m256i gather_lo = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 0, 0);
  const __m256i gather_hi = _mm256_setr_epi32(2, 4, 5, 6, 0, 0, 0, 1);
  const __m256i alpha16 = _mm256_setzero_si256();
  for (int x = 0; x < width; x += 16, src += 32, dst += 48) {
    __m256i lo, hi;
    DecodeYUY2x16<kRgb>(src, alpha16, &lo, &hi);
    lo = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(lo, squeeze), gather_lo);
    hi = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(hi, squeeze), gather_hi);
    Store(dst, _mm256_blend_epi32(lo, hi, 0xC0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 32), _mm256_castsi256_si128(hi));
  }
}

void YUY2ToBGRRow_AVX2(const uint8_t* src, uint8_t* dst, int width) { YUY2ToThreeChannelRow<false>(src, dst, width); }
void YUY2ToRGBRow_AVX2(const uint8_t* src, uint8_t* dst, int width) { YUY2ToThreeChannelRow<true>(src, dst, width); }

// --- Colour to YUY2 ------------------------------------------------------------------

// Four 16-bit words repeated in every 64-bit lane.
inline __m256i Quad16(int16_t w0, int16_t w1, int16_t w2, int16_t w3) {
  const auto word = [](int16_t w, int at) { return static_cast<uint64_t>(static_cast<uint16_t>(w)) << at; };
  return _mm256_set1_epi64x(static_cast<long long>(word(w0, 0) | word(w1, 16) | word(w2, 32) | word(w3, 48)));
}

// Encodes 8 pixels into their 16 YUY2 bytes as 16-bit words (Y0 U0 Y1 V0 ...,
// in pixel order). The pixels come as two word vectors, one 32-bit lane per
// pixel: `c02` its first and third channel in memory order, `g128` its green
// and the constant 128. Every sum of ycc_math.h is formed exactly by 16-bit
// madds:
//   - luma: the channel products plus 33 * 128 = 128 + 16 * 256 (rounding and
//     offset) from the constant word;
//   - chroma: each pair's channel sums in both of its 32-bit lanes (the lanes
//     swapped and added), then one madd pair gives U in the even lane and V in
//     the odd one, plus 257 * 256 = 256 + 128 * 512 from the summed constant;
//   - luma divided by 256 into its low word; chroma by 512 into its high word
//     (shifted left by 7, the high word is the sum >> 9: the sums are positive
//     and below 2^25); one word blend joins them.
template <bool kRgb>
inline __m256i EncodeYUY2Words8(__m256i c02, __m256i g128) {
  const __m256i luma_c02 = kRgb ? Pair16(66, 25) : Pair16(25, 66);
  const __m256i chroma_c02 = kRgb ? Quad16(-38, 112, 112, -18) : Quad16(112, -38, -18, 112);
  const __m256i luma = _mm256_add_epi32(_mm256_madd_epi16(c02, luma_c02), _mm256_madd_epi16(g128, Pair16(129, 33)));
  const __m256i c02_sums = _mm256_add_epi16(c02, _mm256_shuffle_epi32(c02, 0xB1));
  const __m256i g_sums = _mm256_add_epi16(g128, _mm256_shuffle_epi32(g128, 0xB1));
  const __m256i chroma =
      _mm256_add_epi32(_mm256_madd_epi16(c02_sums, chroma_c02), _mm256_madd_epi16(g_sums, Quad16(-74, 257, -94, 257)));
  return _mm256_blend_epi16(_mm256_srli_epi32(luma, 8), _mm256_slli_epi32(chroma, 7), 0xAA);
}

// The YUY2 words of pixels 0-7 (`a`) and 8-15 (`b`) to bytes in order: the pack
// works per lane, one qword permute puts the lanes' halves in order.
inline __m256i PackYUY2x16(__m256i a, __m256i b) { return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8); }

// 16 pixels per block (64 source bytes, 32 destination bytes). The green byte
// goes to the bottom of each 32-bit lane, the constant 128 is or-ed in above it.
template <bool kRgb>
void FourChannelToYUY2Row(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i take_green = _mm256_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1,  //
                                              1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1);
  const __m256i c02_mask = _mm256_set1_epi32(0x00FF00FF), const128 = _mm256_set1_epi32(128 << 16);
  for (int x = 0; x < width; x += 16, src += 64, dst += 32) {
    const __m256i a = Load(src), b = Load(src + 32);
    const __m256i ya = EncodeYUY2Words8<kRgb>(_mm256_and_si256(a, c02_mask),
                                              _mm256_or_si256(_mm256_shuffle_epi8(a, take_green), const128));
    const __m256i yb = EncodeYUY2Words8<kRgb>(_mm256_and_si256(b, c02_mask),
                                              _mm256_or_si256(_mm256_shuffle_epi8(b, take_green), const128));
    Store(dst, PackYUY2x16(ya, yb));
  }
}

// 16 pixels per block (48 source bytes, 32 destination bytes). Each group of 8
// pixels is two 16-byte loads, at 0 (pixels 0-3 at byte 0) and at 8 (pixels 4-7
// at byte 4), spread into the two word vectors by byte shuffles; no load leaves
// the block.
template <bool kRgb>
void ThreeChannelToYUY2Row(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i take_c02 = _mm256_setr_epi8(0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1,  //
                                            4, -1, 6, -1, 7, -1, 9, -1, 10, -1, 12, -1, 13, -1, 15, -1);
  const __m256i take_green = _mm256_setr_epi8(1, -1, -1, -1, 4, -1, -1, -1, 7, -1, -1, -1, 10, -1, -1, -1,  //
                                              5, -1, -1, -1, 8, -1, -1, -1, 11, -1, -1, -1, 14, -1, -1, -1);
  const __m256i const128 = _mm256_set1_epi32(128 << 16);
  for (int x = 0; x < width; x += 16, src += 48, dst += 32) {
    const __m256i a = _mm256_inserti128_si256(_mm256_castsi128_si256(Load128(src)), Load128(src + 8), 1);
    const __m256i b = _mm256_inserti128_si256(_mm256_castsi128_si256(Load128(src + 24)), Load128(src + 32), 1);
    const __m256i ya = EncodeYUY2Words8<kRgb>(_mm256_shuffle_epi8(a, take_c02),
                                              _mm256_or_si256(_mm256_shuffle_epi8(a, take_green), const128));
    const __m256i yb = EncodeYUY2Words8<kRgb>(_mm256_shuffle_epi8(b, take_c02),
                                              _mm256_or_si256(_mm256_shuffle_epi8(b, take_green), const128));
    Store(dst, PackYUY2x16(ya, yb));
  }
}

void BGRAToYUY2Row_AVX2(const uint8_t* src, uint8_t* dst, int width) { FourChannelToYUY2Row<false>(src, dst, width); }
void RGBAToYUY2Row_AVX2(const uint8_t* src, uint8_t* dst, int width) { FourChannelToYUY2Row<true>(src, dst, width); }
void BGRToYUY2Row_AVX2(const uint8_t* src, uint8_t* dst, int width) { ThreeChannelToYUY2Row<false>(src, dst, width); }
void RGBToYUY2Row_AVX2(const uint8_t* src, uint8_t* dst, int width) { ThreeChannelToYUY2Row<true>(src, dst, width); }

// --- 4:2:2 <-> 4:2:0, luma ----------------------------------------------------------------

// 32 pixels per block: 64 YUY2 bytes to 32 luma bytes.
void YUY2ToY8Row_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i low_bytes = _mm256_set1_epi16(0x00FF);
  for (int x = 0; x < width; x += 32, src += 64, dst += 32) {
    const __m256i packed =
        _mm256_packus_epi16(_mm256_and_si256(Load(src), low_bytes), _mm256_and_si256(Load(src + 32), low_bytes));
    Store(dst, _mm256_permute4x64_epi64(packed, 0xD8));
  }
}

// 32 pixels per block: 64 bytes of each YUY2 row to 32 chroma bytes, rounded
// average (a + b + 1) >> 1.
void YUY2ToUVRow_AVX2(const uint8_t* src0, const uint8_t* src1, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 32, src0 += 64, src1 += 64, dst += 32) {
    const __m256i lo = _mm256_srli_epi16(_mm256_avg_epu8(Load(src0), Load(src1)), 8);
    const __m256i hi = _mm256_srli_epi16(_mm256_avg_epu8(Load(src0 + 32), Load(src1 + 32)), 8);
    Store(dst, _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8));
  }
}

// 32 pixels per block: 32 luma and 32 chroma bytes to 64 YUY2 bytes.
void NV12ToYUY2Row_AVX2(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 32, src_y += 32, src_uv += 32, dst += 64) {
    const __m256i y = Load(src_y), uv = Load(src_uv);
    const __m256i lo = _mm256_unpacklo_epi8(y, uv);  // pixels 0-7 | 16-23
    const __m256i hi = _mm256_unpackhi_epi8(y, uv);  // pixels 8-15 | 24-31
    Store(dst, _mm256_permute2x128_si256(lo, hi, 0x20));
    Store(dst + 32, _mm256_permute2x128_si256(lo, hi, 0x31));
  }
}

// --- Channel swap, grey, depth ----------------------------------------------------------

// 8 pixels per block.
void BGRAToRGBARow_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i swap = _mm256_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15,  //
                                        2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15);
  for (int x = 0; x < width; x += 8, src += 32, dst += 32) Store(dst, _mm256_shuffle_epi8(Load(src), swap));
}

// 32 pixels per block: the byte repeated is v * 257.
void Y8ToY16Row_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 32, src += 32, dst += 64) {
    const __m256i v = Load(src);
    const __m256i lo = _mm256_unpacklo_epi8(v, v);  // pixels 0-7 | 16-23
    const __m256i hi = _mm256_unpackhi_epi8(v, v);  // pixels 8-15 | 24-31
    Store(dst, _mm256_permute2x128_si256(lo, hi, 0x20));
    Store(dst + 32, _mm256_permute2x128_si256(lo, hi, 0x31));
  }
}

// 32 pixels per block: the high bytes.
void Y16ToY8Row_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 32, src += 64, dst += 32) {
    const __m256i packed = _mm256_packus_epi16(_mm256_srli_epi16(Load(src), 8), _mm256_srli_epi16(Load(src + 32), 8));
    Store(dst, _mm256_permute4x64_epi64(packed, 0xD8));
  }
}

// 16 pixels per block; saturation as in the SSSE3 body.
void DepthShiftRow_AVX2(const uint8_t* src, uint8_t* dst, int width, int shift) {
  if (shift >= 0) {
    const __m128i count = _mm_cvtsi32_si128(shift);
    const __m256i limit = _mm256_set1_epi16(static_cast<short>(shift >= 16 ? 0 : 0xFFFF >> shift));
    const __m256i zero = _mm256_setzero_si256();
    const __m256i all_ones = _mm256_set1_epi16(-1);
    for (int x = 0; x < width; x += 16, src += 32, dst += 32) {
      const __m256i v = Load(src);
      const __m256i in_range = _mm256_cmpeq_epi16(_mm256_subs_epu16(v, limit), zero);
      Store(dst, _mm256_or_si256(_mm256_sll_epi16(v, count), _mm256_andnot_si256(in_range, all_ones)));
    }
  } else {
    const __m128i count = _mm_cvtsi32_si128(shift <= -16 ? 16 : -shift);
    for (int x = 0; x < width; x += 16, src += 32, dst += 32) Store(dst, _mm256_srl_epi16(Load(src), count));
  }
}

// 8 pixels per block.
void DepthToFloatRow_AVX2(const uint8_t* src, uint8_t* dst, int width, float scale) {
  const __m256 factor = _mm256_set1_ps(scale);
  for (int x = 0; x < width; x += 8, src += 16, dst += 32) {
    const __m256 v = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(Load128(src)));
    _mm256_storeu_ps(reinterpret_cast<float*>(dst), _mm256_mul_ps(v, factor));
  }
}

// 16 pixels per block; clamping as in the SSSE3 body (NaN to 0), then the
// unsigned pack, which works per lane, and a permute.
void FloatToDepthRow_AVX2(const uint8_t* src, uint8_t* dst, int width, float factor) {
  const __m256 f = _mm256_set1_ps(factor);
  const __m256 zero = _mm256_setzero_ps(), top = _mm256_set1_ps(65535.0f), half = _mm256_set1_ps(0.5f);
  for (int x = 0; x < width; x += 16, src += 64, dst += 32) {
    const __m256 a = _mm256_mul_ps(_mm256_loadu_ps(reinterpret_cast<const float*>(src)), f);
    const __m256 b = _mm256_mul_ps(_mm256_loadu_ps(reinterpret_cast<const float*>(src + 32)), f);
    const __m256i ia = _mm256_cvttps_epi32(_mm256_add_ps(_mm256_min_ps(_mm256_max_ps(a, zero), top), half));
    const __m256i ib = _mm256_cvttps_epi32(_mm256_add_ps(_mm256_min_ps(_mm256_max_ps(b, zero), top), half));
    Store(dst, _mm256_permute4x64_epi64(_mm256_packus_epi32(ia, ib), 0xD8));
  }
}

// --- Grey from colour ----------------------------------------------------------------

// 8 pixels of four bytes (channels in memory order c0 c1 c2 x) to 8 grey values
// in 32-bit lanes: the SSSE3 body's float steps (row_ssse3.cpp), which are the
// scalar row's. Each channel is isolated in place by a mask, so it converts to
// its value times 1, 256 or 65536; the weights are divided by the same powers of
// two, which leaves every product exactly the scalar row's.
inline __m256i GreyOf8(__m256i pixels, __m256 w0, __m256 w1, __m256 w2) {
  const __m256 f0 = _mm256_cvtepi32_ps(_mm256_and_si256(pixels, _mm256_set1_epi32(0xFF)));
  const __m256 f1 = _mm256_cvtepi32_ps(_mm256_and_si256(pixels, _mm256_set1_epi32(0xFF00)));
  const __m256 f2 = _mm256_cvtepi32_ps(_mm256_and_si256(pixels, _mm256_set1_epi32(0xFF0000)));
  const __m256 sum = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(w0, f0), _mm256_mul_ps(w1, f1)), _mm256_mul_ps(w2, f2));
  return _mm256_cvttps_epi32(_mm256_add_ps(sum, _mm256_set1_ps(0.5f)));
}

// 8 pixels as four bytes each: four-byte pixels in one load; three-byte pixels
// as bytes 0-15 (pixels 0-3 at byte 0) and 8-23 (pixels 4-7 at byte 4 of that
// half) of the group, so no load leaves it, spread by one byte shuffle.
template <int kBpp>
inline __m256i LoadGreyGroup(const uint8_t* p) {
  if constexpr (kBpp == 4) {
    return Load(p);
  } else {
    const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,  //
                                            4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1);
    return _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(Load128(p)), Load128(p + 8), 1), spread);
  }
}

// 32 pixels per block, in four groups of 8; weights in memory order of the
// channels. The packs work per lane, a dword permute puts the groups in order.
template <int kBpp, bool kRgb>
void GreyRow(const uint8_t* src, uint8_t* dst, int width) {
  const __m256 w0 = _mm256_set1_ps(kRgb ? 0.299f : 0.114f), w1 = _mm256_set1_ps(0.587f / 256.0f),
               w2 = _mm256_set1_ps((kRgb ? 0.114f : 0.299f) / 65536.0f);
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  for (int x = 0; x < width; x += 32, src += 32 * kBpp, dst += 32) {
    const __m256i g0 = GreyOf8(LoadGreyGroup<kBpp>(src), w0, w1, w2);
    const __m256i g1 = GreyOf8(LoadGreyGroup<kBpp>(src + 8 * kBpp), w0, w1, w2);
    const __m256i g2 = GreyOf8(LoadGreyGroup<kBpp>(src + 16 * kBpp), w0, w1, w2);
    const __m256i g3 = GreyOf8(LoadGreyGroup<kBpp>(src + 24 * kBpp), w0, w1, w2);
    const __m256i packed = _mm256_packus_epi16(_mm256_packs_epi32(g0, g1), _mm256_packs_epi32(g2, g3));
    Store(dst, _mm256_permutevar8x32_epi32(packed, order));
  }
}

}  // namespace

// --- Any-width entry points --------------------------------------------------------------

void YUY2ToBGRARow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToBGRARow_AVX2, YUY2ToBGRARow_C, 16, 4>(src, dst, width, alpha);
}
void YUY2ToRGBARow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToRGBARow_AVX2, YUY2ToRGBARow_C, 16, 4>(src, dst, width, alpha);
}
void YUY2ToBGRRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToBGRRow_AVX2, YUY2ToBGRRow_C, 16, 3>(src, dst, width);
}
void YUY2ToRGBRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToRGBRow_AVX2, YUY2ToRGBRow_C, 16, 3>(src, dst, width);
}
void YUY2ToY8Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<YUY2ToY8Row_AVX2, 32, 2, 1>(src, dst, width);
}
void YUY2ToUVRow_Any_AVX2(const uint8_t* src0, const uint8_t* src1, uint8_t* dst, int width) {
  AnyTwoRows<YUY2ToUVRow_AVX2, 32, 2, 2, 1>(src0, src1, dst, width);
}
void NV12ToYUY2Row_Any_AVX2(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst, int width) {
  // The scalar row writes pairs only; an odd last column is left alone.
  AnyTwoRows<NV12ToYUY2Row_AVX2, 32, 1, 1, 2>(src_y, src_uv, dst, width & ~1);
}
void BGRAToYUY2Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<BGRAToYUY2Row_AVX2, BGRAToYUY2Row_C, 16, 4>(src, dst, width);
}
void RGBAToYUY2Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<RGBAToYUY2Row_AVX2, RGBAToYUY2Row_C, 16, 4>(src, dst, width);
}
void BGRToYUY2Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<BGRToYUY2Row_AVX2, BGRToYUY2Row_C, 16, 3>(src, dst, width);
}
void RGBToYUY2Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<RGBToYUY2Row_AVX2, RGBToYUY2Row_C, 16, 3>(src, dst, width);
}
void BGRAToRGBARow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<BGRAToRGBARow_AVX2, 8, 4, 4>(src, dst, width);
}
void Y8ToY16Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<Y8ToY16Row_AVX2, 32, 1, 2>(src, dst, width);
}
void Y16ToY8Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<Y16ToY8Row_AVX2, 32, 2, 1>(src, dst, width);
}
void DepthShiftRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width, int shift) {
  AnyRow<DepthShiftRow_AVX2, 16, 2, 2, int>(src, dst, width, shift);
}
void DepthToFloatRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width, float scale) {
  AnyRow<DepthToFloatRow_AVX2, 8, 2, 4, float>(src, dst, width, scale);
}
void FloatToDepthRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width, float factor) {
  AnyRow<FloatToDepthRow_AVX2, 16, 4, 2, float>(src, dst, width, factor);
}
void BGRAToY8Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<4, false>, 32, 4, 1>(src, dst, width);
}
void RGBAToY8Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<4, true>, 32, 4, 1>(src, dst, width);
}
void BGRToY8Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<3, false>, 32, 3, 1>(src, dst, width);
}
void RGBToY8Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<3, true>, 32, 3, 1>(src, dst, width);
}

}  // namespace lmx
