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

namespace lmx {
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
  JoinChannels<kRgba>(r16, g16, b16, alpha16, px_lo, px_hi);
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
  JoinChannels<kRgba>(r16, g16, b16, alpha16, px_lo, px_hi);
}

// The rows of YUY2ToFourChannelRow and YUY2ToThreeChannelRow with that decode
// (the loops repeat because each must carry the VNNI target to inline it).
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
  const ThreeChannelStore store;
  const __m512i merge = _mm512_load_si512(kMergePixels);
  const __m512i alpha16 = _mm512_setzero_si512();
  for (int x = 0; x < width; x += 32, src += 64, dst += 96) {
    __m512i lo, hi;
    DecodeYUY2x32Vnni<kRgb>(src, merge, alpha16, &lo, &hi);
    store(lo, hi, dst);
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
  const __m512i chroma = _mm512_add_epi32(_mm512_madd_epi16(c02_sums, chroma_c02),
                                          _mm512_madd_epi16(g_sums, Quad16(-74, 257, -94, 257)));
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
void BGRAToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  // Pairs through the blocks; a lone last pixel has its own chroma rule.
  AnyRow<BGRAToYUY2Row_AVX512, 32, 4, 2>(src, dst, width & ~1);
  if (width & 1) BGRAToYUY2Row_C(src + 4 * static_cast<ptrdiff_t>(width - 1), dst + 2 * static_cast<ptrdiff_t>(width - 1), 1);
}
void RGBAToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<RGBAToYUY2Row_AVX512, 32, 4, 2>(src, dst, width & ~1);
  if (width & 1) RGBAToYUY2Row_C(src + 4 * static_cast<ptrdiff_t>(width - 1), dst + 2 * static_cast<ptrdiff_t>(width - 1), 1);
}
void BGRToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<BGRToYUY2Row_AVX512, 32, 3, 2>(src, dst, width & ~1);
  if (width & 1) BGRToYUY2Row_C(src + 3 * static_cast<ptrdiff_t>(width - 1), dst + 2 * static_cast<ptrdiff_t>(width - 1), 1);
}
void RGBToYUY2Row_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<RGBToYUY2Row_AVX512, 32, 3, 2>(src, dst, width & ~1);
  if (width & 1) RGBToYUY2Row_C(src + 3 * static_cast<ptrdiff_t>(width - 1), dst + 2 * static_cast<ptrdiff_t>(width - 1), 1);
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
