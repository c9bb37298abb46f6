// AVX-512 (F, BW) row bodies and their any-width entry points (row_simd.h). This
// file is compiled with -mavx512f -mavx512bw -mavx512vl (the rows that also use
// VNNI are in row_avx512_vnni.cpp). Loads and stores are unaligned, and no
// 512-bit value crosses a call that is not inlined (the Windows x64 ABI does not
// align the stack for it).
#include <immintrin.h>

#include <cstring>

#include "kernels/row.h"
#include "kernels/row_avx512_decode.h"
#include "kernels/row_any.h"
#include "kernels/row_simd.h"

namespace lmx {
namespace {

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
// channels, then stored as three.
template <bool kRgb>
void YUY2ToThreeChannelRow(const uint8_t* src, uint8_t* dst, int width) {
  const ThreeChannelStore store;
  const __m512i merge = _mm512_load_si512(kMergePixels);
  const __m512i alpha16 = _mm512_setzero_si512();
  for (int x = 0; x < width; x += 32, src += 64, dst += 96) {
    __m512i lo, hi;
    DecodeYUY2x32<kRgb>(src, merge, alpha16, &lo, &hi);
    store(lo, hi, dst);
  }
}

void YUY2ToBGRRow_AVX512(const uint8_t* src, uint8_t* dst, int width) { YUY2ToThreeChannelRow<false>(src, dst, width); }
void YUY2ToRGBRow_AVX512(const uint8_t* src, uint8_t* dst, int width) { YUY2ToThreeChannelRow<true>(src, dst, width); }

#undef LMX_VNNI

// --- Colour to YUY2 -------------------------------------------------------------------

// Four 16-bit words repeated in every 64-bit lane.
inline __m512i Quad16(int16_t w0, int16_t w1, int16_t w2, int16_t w3) {
  const auto word = [](int16_t w, int at) { return static_cast<uint64_t>(static_cast<uint16_t>(w)) << at; };
  return _mm512_set1_epi64(static_cast<long long>(word(w0, 0) | word(w1, 16) | word(w2, 32) | word(w3, 48)));
}

// Encodes 16 pixels into their 32 YUY2 bytes as 16-bit words (Y0 U0 Y1 V0 ...,
// in pixel order). The pixels come as two word vectors, one 32-bit lane per
// pixel: `c02` its first and third channel in memory order, `g128` its green
// and the constant 128. Every sum of ycc_math.h is formed exactly by 16-bit
// madds:
//   - luma: the channel products plus 33 * 128 = 128 + 16 * 256 (rounding and
//     offset) from the constant word;
//   - chroma: each pair's channel sums in both of its 32-bit lanes (the qword
//     rotated by 32 and added), then one madd pair gives U in the even lane and
//     V in the odd one, plus 257 * 256 = 256 + 128 * 512 from the summed
//     constant;
//   - luma divided by 256 into its low word; chroma by 512 into its high word
//     (shifted left by 7, the high word is the sum >> 9: the sums are positive
//     and below 2^25); one word blend joins them.
template <bool kRgb>
inline __m512i EncodeYUY2Words16(__m512i c02, __m512i g128) {
  const __m512i luma_c02 = kRgb ? Pair16(66, 25) : Pair16(25, 66);
  const __m512i chroma_c02 = kRgb ? Quad16(-38, 112, 112, -18) : Quad16(112, -38, -18, 112);
  const __m512i luma = _mm512_add_epi32(_mm512_madd_epi16(c02, luma_c02), _mm512_madd_epi16(g128, Pair16(129, 33)));
  const __m512i c02_sums = _mm512_add_epi16(c02, _mm512_ror_epi64(c02, 32));
  const __m512i g_sums = _mm512_add_epi16(g128, _mm512_ror_epi64(g128, 32));
  const __m512i chroma =
      _mm512_add_epi32(_mm512_madd_epi16(c02_sums, chroma_c02), _mm512_madd_epi16(g_sums, Quad16(-74, 257, -94, 257)));
  return _mm512_mask_blend_epi16(0xAAAAAAAA, _mm512_srli_epi32(luma, 8), _mm512_slli_epi32(chroma, 7));
}

// The YUY2 words of pixels 0-15 (`a`) and 16-31 (`b`) to bytes in order: the
// pack works per lane, one qword permute puts the lanes' halves in order.
inline __m512i PackYUY2x32(__m512i a, __m512i b) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), _mm512_packus_epi16(a, b));
}

// Each 32-bit lane as the word pair (green, 128): the green byte picked by
// `take_green` (per 128-bit lane) into its bottom byte, the other bytes those of
// the constant 128 << 16.
inline __m512i GreenOver128(__m512i pixels, __m128i take_green) {
  return _mm512_mask_shuffle_epi8(_mm512_set1_epi32(128 << 16), 0x1111111111111111ull, pixels, EachLane(take_green));
}

// 32 pixels per block (128 source bytes, 64 destination bytes).
template <bool kRgb>
void FourChannelToYUY2Row(const uint8_t* src, uint8_t* dst, int width) {
  const __m128i take_green = _mm_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1);
  const __m512i c02_mask = _mm512_set1_epi32(0x00FF00FF);
  for (int x = 0; x < width; x += 32, src += 128, dst += 64) {
    const __m512i a = _mm512_loadu_si512(src), b = _mm512_loadu_si512(src + 64);
    const __m512i ya = EncodeYUY2Words16<kRgb>(_mm512_and_si512(a, c02_mask), GreenOver128(a, take_green));
    const __m512i yb = EncodeYUY2Words16<kRgb>(_mm512_and_si512(b, c02_mask), GreenOver128(b, take_green));
    _mm512_storeu_si512(dst, PackYUY2x32(ya, yb));
  }
}

// 32 pixels per block (96 source bytes, 64 destination bytes). Each group of 16
// pixels is one 64-byte load inside the block (at byte 0, and at byte 32 for
// pixels 16-31, which start at its byte 16), its 48 bytes moved 12 to a lane,
// then spread into the two word vectors by byte shuffles.
template <bool kRgb>
void ThreeChannelToYUY2Row(const uint8_t* src, uint8_t* dst, int width) {
  const __m512i lanes_a = _mm512_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0);
  const __m512i lanes_b = _mm512_setr_epi32(4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 0, 13, 14, 15, 0);
  const __m512i take_c02 = EachLane(_mm_setr_epi8(0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1));
  const __m128i take_green = _mm_setr_epi8(1, -1, -1, -1, 4, -1, -1, -1, 7, -1, -1, -1, 10, -1, -1, -1);
  for (int x = 0; x < width; x += 32, src += 96, dst += 64) {
    const __m512i a = _mm512_permutexvar_epi32(lanes_a, _mm512_loadu_si512(src));
    const __m512i b = _mm512_permutexvar_epi32(lanes_b, _mm512_loadu_si512(src + 32));
    const __m512i ya = EncodeYUY2Words16<kRgb>(_mm512_shuffle_epi8(a, take_c02), GreenOver128(a, take_green));
    const __m512i yb = EncodeYUY2Words16<kRgb>(_mm512_shuffle_epi8(b, take_c02), GreenOver128(b, take_green));
    _mm512_storeu_si512(dst, PackYUY2x32(ya, yb));
  }
}

void BGRAToYUY2Row_AVX512(const uint8_t* src, uint8_t* dst, int width) { FourChannelToYUY2Row<false>(src, dst, width); }
void RGBAToYUY2Row_AVX512(const uint8_t* src, uint8_t* dst, int width) { FourChannelToYUY2Row<true>(src, dst, width); }
void BGRToYUY2Row_AVX512(const uint8_t* src, uint8_t* dst, int width) { ThreeChannelToYUY2Row<false>(src, dst, width); }
void RGBToYUY2Row_AVX512(const uint8_t* src, uint8_t* dst, int width) { ThreeChannelToYUY2Row<true>(src, dst, width); }

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
    const __m512i spread = EachLane(_mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
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
void BGRAToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<BGRAToYUY2Row_AVX512, BGRAToYUY2Row_C, 32, 4>(src, dst, width);
}
void RGBAToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<RGBAToYUY2Row_AVX512, RGBAToYUY2Row_C, 32, 4>(src, dst, width);
}
void BGRToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<BGRToYUY2Row_AVX512, BGRToYUY2Row_C, 32, 3>(src, dst, width);
}
void RGBToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<RGBToYUY2Row_AVX512, RGBToYUY2Row_C, 32, 3>(src, dst, width);
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

}  // namespace lmx
