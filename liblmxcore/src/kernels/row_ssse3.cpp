// SSSE3 row bodies and their any-width entry points (row_simd.h). This file
// and row_ssse3_geometry.cpp alone are compiled with -mssse3. Loads and stores
// are unaligned throughout: rows may start anywhere.
#include <tmmintrin.h>

#include <cstring>
#include <type_traits>

#include "kernels/row.h"
#include "kernels/row_any.h"
#include "kernels/row_simd.h"

namespace lmx {
namespace {

inline __m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// Two 16-bit coefficients side by side in every 32-bit lane, for _mm_madd_epi16
// against lanes holding (low, high) 16-bit samples.
inline __m128i Pair16(int16_t low, int16_t high) {
  return _mm_set1_epi32(
      static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(high)) << 16) | static_cast<uint16_t>(low)));
}

// --- Byte shuffles from constant masks ---------------------------------------------

// A byte permutation from kIn input registers to kOut output registers, built at
// compile time from a map: output byte o takes input byte map(o); a map value of
// -1 gives 0 and -2 gives 255 (an alpha byte).
template <int kInRegs, int kOutRegs>
struct ShuffleNet {
  static constexpr int kIn = kInRegs;
  static constexpr int kOut = kOutRegs;
  int8_t mask[kOutRegs][kInRegs][16];
  uint8_t fill[kOutRegs][16];
  bool used[kOutRegs][kInRegs];
};

template <int kIn, int kOut, typename Map>
constexpr ShuffleNet<kIn, kOut> MakeNet(Map map) {
  ShuffleNet<kIn, kOut> net{};
  for (int o = 0; o < kOut; ++o) {
    for (int k = 0; k < kIn; ++k) {
      net.used[o][k] = false;
      for (int b = 0; b < 16; ++b) net.mask[o][k][b] = -128;  // high bit set: pshufb writes 0
    }
  }
  for (int o = 0; o < 16 * kOut; ++o) {
    const int s = map(o);
    if (s == -2) net.fill[o / 16][o % 16] = 0xFF;
    if (s < 0) continue;
    net.mask[o / 16][s / 16][o % 16] = static_cast<int8_t>(s % 16);
    net.used[o / 16][s / 16] = true;
  }
  return net;
}

// Applies a net to one block: all inputs are loaded before any output is stored,
// so a block may be converted in place.
template <const auto& kNet>
inline void ShuffleBlock(const uint8_t* src, uint8_t* dst) {
  using Net = std::remove_cvref_t<decltype(kNet)>;
  __m128i in[Net::kIn];
  for (int k = 0; k < Net::kIn; ++k) in[k] = Load(src + 16 * k);
  for (int o = 0; o < Net::kOut; ++o) {
    __m128i acc = Load(kNet.fill[o]);
    for (int k = 0; k < Net::kIn; ++k) {
      if (kNet.used[o][k]) acc = _mm_or_si128(acc, _mm_shuffle_epi8(in[k], Load(kNet.mask[o][k])));
    }
    Store(dst + 16 * o, acc);
  }
}

// Converts 16 pixels per block (kSrcBpp and kDstBpp bytes per pixel).
template <const auto& kNet, int kSrcBpp, int kDstBpp>
void ShuffleRows(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 16) ShuffleBlock<kNet>(src + x * kSrcBpp, dst + x * kDstBpp);
}

// Each net covers 16 pixels.
constexpr auto kSwapRB3 = MakeNet<3, 3>([](int o) { return 3 * (o / 3) + 2 - o % 3; });
constexpr auto kDropAlpha = MakeNet<4, 3>([](int o) { return 4 * (o / 3) + o % 3; });
constexpr auto kDropAlphaSwap = MakeNet<4, 3>([](int o) { return 4 * (o / 3) + 2 - o % 3; });
constexpr auto kAddAlpha = MakeNet<3, 4>([](int o) { return o % 4 == 3 ? -2 : 3 * (o / 4) + o % 4; });
constexpr auto kAddAlphaSwap = MakeNet<3, 4>([](int o) { return o % 4 == 3 ? -2 : 3 * (o / 4) + 2 - o % 4; });
constexpr auto kSwapRB4 = MakeNet<4, 4>([](int o) { return o % 4 == 3 ? o : 4 * (o / 4) + 2 - o % 4; });
constexpr auto kGreyToBGR = MakeNet<1, 3>([](int o) { return o / 3; });
constexpr auto kYUY2Luma = MakeNet<2, 1>([](int o) { return 2 * o; });
constexpr auto kY16ToBGRA = MakeNet<2, 4>([](int o) { return o % 4 == 3 ? -2 : 2 * (o / 4) + 1; });

// --- YUY2 to colour ----------------------------------------------------------------

// Decodes 8 pixels (16 YUY2 bytes) with the fixed-point formula of ycc_math.h,
// exactly: every product and sum is formed in 32 bits as the scalar row forms
// it. The coefficients above 16 bits are split into a multiple of 65536 (a
// shift) and a 16-bit remainder (_mm_madd_epi16):
//   76284 Y - 1187776 = (Y << 16) + 10748 Y - 18559 * 64
//   104595 v = (v << 17) - 26477 v
//   25690 u + 53281 v = 25690 u - 12255 v + (v << 16)
//   132186 u = (u << 17) + 1114 u
// Results are the three channels as 8 bytes each, saturated to 0..255:
// b_r holds blue in its low and red in its high 8 bytes.
inline void DecodeYUY2x8(__m128i yuy2, __m128i* b_r, __m128i* g8) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i y = _mm_and_si128(yuy2, _mm_set1_epi16(0x00FF));
  const __m128i uv = _mm_sub_epi16(_mm_srli_epi16(yuy2, 8), _mm_set1_epi16(128));  // u0 v0 u1 v1 ...

  const __m128i luma_coeffs = Pair16(10748, -18559);
  const __m128i sixty_four = _mm_set1_epi16(64);
  const __m128i luma_lo =
      _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(y, sixty_four), luma_coeffs), _mm_unpacklo_epi16(zero, y));
  const __m128i luma_hi =
      _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(y, sixty_four), luma_coeffs), _mm_unpackhi_epi16(zero, y));

  const __m128i v_shifted = _mm_and_si128(uv, _mm_set1_epi32(static_cast<int32_t>(0xFFFF0000u)));  // v << 16
  const __m128i u_shifted = _mm_slli_epi32(uv, 16);                                                // u << 16
  const __m128i red = _mm_add_epi32(_mm_madd_epi16(uv, Pair16(0, -26477)), _mm_add_epi32(v_shifted, v_shifted));
  const __m128i green = _mm_add_epi32(_mm_madd_epi16(uv, Pair16(25690, -12255)), v_shifted);
  const __m128i blue = _mm_add_epi32(_mm_madd_epi16(uv, Pair16(1114, 0)), _mm_add_epi32(u_shifted, u_shifted));

  // Chroma of pair j serves pixels 2j and 2j + 1.
  const __m128i r_lo = _mm_srai_epi32(_mm_add_epi32(luma_lo, _mm_unpacklo_epi32(red, red)), 16);
  const __m128i r_hi = _mm_srai_epi32(_mm_add_epi32(luma_hi, _mm_unpackhi_epi32(red, red)), 16);
  const __m128i g_lo = _mm_srai_epi32(_mm_sub_epi32(luma_lo, _mm_unpacklo_epi32(green, green)), 16);
  const __m128i g_hi = _mm_srai_epi32(_mm_sub_epi32(luma_hi, _mm_unpackhi_epi32(green, green)), 16);
  const __m128i b_lo = _mm_srai_epi32(_mm_add_epi32(luma_lo, _mm_unpacklo_epi32(blue, blue)), 16);
  const __m128i b_hi = _mm_srai_epi32(_mm_add_epi32(luma_hi, _mm_unpackhi_epi32(blue, blue)), 16);

  // Saturating packs: int32 -> int16 (values stay far inside), int16 -> 0..255.
  const __m128i g16 = _mm_packs_epi32(g_lo, g_hi);
  *b_r = _mm_packus_epi16(_mm_packs_epi32(b_lo, b_hi), _mm_packs_epi32(r_lo, r_hi));
  *g8 = _mm_packus_epi16(g16, g16);
}

// 8 pixels per block (16 source bytes, 32 destination bytes).
template <bool kRgba>
void YUY2ToFourChannelRow(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  const __m128i alpha8 = _mm_set1_epi8(static_cast<char>(alpha));
  for (int x = 0; x < width; x += 8, src += 16, dst += 32) {
    __m128i b_r, g8;
    DecodeYUY2x8(Load(src), &b_r, &g8);
    const __m128i first = kRgba ? _mm_unpackhi_epi64(b_r, b_r) : b_r;  // byte 0 of each pixel
    const __m128i third = kRgba ? b_r : _mm_unpackhi_epi64(b_r, b_r);  // byte 2
    const __m128i c01 = _mm_unpacklo_epi8(first, g8);
    const __m128i c23 = _mm_unpacklo_epi8(third, alpha8);
    Store(dst, _mm_unpacklo_epi16(c01, c23));
    Store(dst + 16, _mm_unpackhi_epi16(c01, c23));
  }
}

void YUY2ToBGRARow_SSSE3(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<false>(src, dst, width, alpha);
}
void YUY2ToRGBARow_SSSE3(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  YUY2ToFourChannelRow<true>(src, dst, width, alpha);
}

// 16 pixels per block (32 source bytes, 48 destination bytes): decoded to four
// channels on the stack, then the alpha bytes dropped.
template <bool kRgba>
void YUY2ToThreeChannelRow(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 16, src += 32, dst += 48) {
    uint8_t four[64];
    YUY2ToFourChannelRow<kRgba>(src, four, 16, 0);
    ShuffleBlock<kDropAlpha>(four, dst);
  }
}

void YUY2ToBGRRow_SSSE3(const uint8_t* src, uint8_t* dst, int width) { YUY2ToThreeChannelRow<false>(src, dst, width); }
void YUY2ToRGBRow_SSSE3(const uint8_t* src, uint8_t* dst, int width) { YUY2ToThreeChannelRow<true>(src, dst, width); }

// --- Colour to YUY2 ------------------------------------------------------------------

// Encodes 8 pixels held as four bytes each (px0-3 in `p0123`, px4-7 in `p4567`,
// channels in memory order c0 c1 c2 x) into 16 YUY2 bytes, with the formulas of
// ycc_math.h: _mm_madd_epi16 forms the 32-bit products, two horizontal adds the
// per-pixel (luma) and per-pair (chroma) sums.
template <bool kRgb>
inline __m128i EncodeYUY2x8(__m128i p0123, __m128i p4567) {
  // Coefficients in memory order of the channels (blue first unless kRgb).
  const __m128i ky =
      kRgb ? _mm_setr_epi16(66, 129, 25, 0, 66, 129, 25, 0) : _mm_setr_epi16(25, 129, 66, 0, 25, 129, 66, 0);
  const __m128i ku =
      kRgb ? _mm_setr_epi16(-38, -74, 112, 0, -38, -74, 112, 0) : _mm_setr_epi16(112, -74, -38, 0, 112, -74, -38, 0);
  const __m128i kv =
      kRgb ? _mm_setr_epi16(112, -94, -18, 0, 112, -94, -18, 0) : _mm_setr_epi16(-18, -94, 112, 0, -18, -94, 112, 0);
  const __m128i zero = _mm_setzero_si128();
  const __m128i p01 = _mm_unpacklo_epi8(p0123, zero);  // one pixel pair per register
  const __m128i p23 = _mm_unpackhi_epi8(p0123, zero);
  const __m128i p45 = _mm_unpacklo_epi8(p4567, zero);
  const __m128i p67 = _mm_unpackhi_epi8(p4567, zero);

  __m128i y_lo = _mm_hadd_epi32(_mm_madd_epi16(p01, ky), _mm_madd_epi16(p23, ky));
  __m128i y_hi = _mm_hadd_epi32(_mm_madd_epi16(p45, ky), _mm_madd_epi16(p67, ky));
  // The sum over both pixels of a pair equals the formula on the channel sums.
  __m128i u = _mm_hadd_epi32(_mm_hadd_epi32(_mm_madd_epi16(p01, ku), _mm_madd_epi16(p23, ku)),
                             _mm_hadd_epi32(_mm_madd_epi16(p45, ku), _mm_madd_epi16(p67, ku)));
  __m128i v = _mm_hadd_epi32(_mm_hadd_epi32(_mm_madd_epi16(p01, kv), _mm_madd_epi16(p23, kv)),
                             _mm_hadd_epi32(_mm_madd_epi16(p45, kv), _mm_madd_epi16(p67, kv)));

  const __m128i y_round = _mm_set1_epi32(128), y_offset = _mm_set1_epi32(16);
  const __m128i c_round = _mm_set1_epi32(256), c_offset = _mm_set1_epi32(128);
  y_lo = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(y_lo, y_round), 8), y_offset);
  y_hi = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(y_hi, y_round), 8), y_offset);
  u = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(u, c_round), 9), c_offset);
  v = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(v, c_round), 9), c_offset);

  const __m128i y16 = _mm_packs_epi32(y_lo, y_hi);                                           // Y0 .. Y7
  const __m128i uv16 = _mm_packs_epi32(_mm_unpacklo_epi32(u, v), _mm_unpackhi_epi32(u, v));  // U0 V0 .. U3 V3
  return _mm_packus_epi16(_mm_unpacklo_epi16(y16, uv16), _mm_unpackhi_epi16(y16, uv16));
}

// 8 pixels per block (32 source bytes, 16 destination bytes).
template <bool kRgb>
void FourChannelToYUY2Row(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 8, src += 32, dst += 16) Store(dst, EncodeYUY2x8<kRgb>(Load(src), Load(src + 16)));
}

// 8 pixels per block (24 source bytes, 16 destination bytes). Pixels 0-3 are
// bytes 0-11 of a load at 0, pixels 4-7 bytes 4-15 of a load at 8; both loads
// stay inside the block.
template <bool kRgb>
void ThreeChannelToYUY2Row(const uint8_t* src, uint8_t* dst, int width) {
  const __m128i expand_lo = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const __m128i expand_hi = _mm_setr_epi8(4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1);
  for (int x = 0; x < width; x += 8, src += 24, dst += 16) {
    Store(dst, EncodeYUY2x8<kRgb>(_mm_shuffle_epi8(Load(src), expand_lo), _mm_shuffle_epi8(Load(src + 8), expand_hi)));
  }
}

void BGRAToYUY2Row_SSSE3(const uint8_t* src, uint8_t* dst, int width) { FourChannelToYUY2Row<false>(src, dst, width); }
void RGBAToYUY2Row_SSSE3(const uint8_t* src, uint8_t* dst, int width) { FourChannelToYUY2Row<true>(src, dst, width); }
void BGRToYUY2Row_SSSE3(const uint8_t* src, uint8_t* dst, int width) { ThreeChannelToYUY2Row<false>(src, dst, width); }
void RGBToYUY2Row_SSSE3(const uint8_t* src, uint8_t* dst, int width) { ThreeChannelToYUY2Row<true>(src, dst, width); }

// --- 4:2:2 <-> 4:2:0 -----------------------------------------------------------------

// 16 pixels per block: 32 bytes of each source row, 16 chroma bytes out.
// _mm_avg_epu8 is (a + b + 1) >> 1, the scalar row's rounding.
void YUY2ToUVRow_SSSE3(const uint8_t* src0, const uint8_t* src1, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 16, src0 += 32, src1 += 32, dst += 16) {
    const __m128i lo = _mm_srli_epi16(_mm_avg_epu8(Load(src0), Load(src1)), 8);
    const __m128i hi = _mm_srli_epi16(_mm_avg_epu8(Load(src0 + 16), Load(src1 + 16)), 8);
    Store(dst, _mm_packus_epi16(lo, hi));
  }
}

// 16 pixels per block: 16 luma bytes and 16 chroma bytes to 32 YUY2 bytes.
void NV12ToYUY2Row_SSSE3(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 16, src_y += 16, src_uv += 16, dst += 32) {
    const __m128i y = Load(src_y), uv = Load(src_uv);
    Store(dst, _mm_unpacklo_epi8(y, uv));
    Store(dst + 16, _mm_unpackhi_epi8(y, uv));
  }
}

// --- Grey and depth --------------------------------------------------------------------

// 16 pixels per block: v * 257 is the byte repeated.
void Y8ToY16Row_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 16, src += 16, dst += 32) {
    const __m128i v = Load(src);
    Store(dst, _mm_unpacklo_epi8(v, v));
    Store(dst + 16, _mm_unpackhi_epi8(v, v));
  }
}

// 16 pixels per block: the high bytes.
void Y16ToY8Row_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; x += 16, src += 32, dst += 16) {
    Store(dst, _mm_packus_epi16(_mm_srli_epi16(Load(src), 8), _mm_srli_epi16(Load(src + 16), 8)));
  }
}

// 8 pixels per block. Left shifts saturate: a value above 65535 >> shift
// becomes 65535 (all bits set, OR-ed over the shifted value). Shift counts of
// 16 or more give 0 from the shift instructions, as the scalar row does.
void DepthShiftRow_SSSE3(const uint8_t* src, uint8_t* dst, int width, int shift) {
  if (shift >= 0) {
    const __m128i count = _mm_cvtsi32_si128(shift);
    const __m128i limit = _mm_set1_epi16(static_cast<short>(shift >= 16 ? 0 : 0xFFFF >> shift));
    const __m128i zero = _mm_setzero_si128();
    for (int x = 0; x < width; x += 8, src += 16, dst += 16) {
      const __m128i v = Load(src);
      const __m128i in_range = _mm_cmpeq_epi16(_mm_subs_epu16(v, limit), zero);
      Store(dst, _mm_or_si128(_mm_sll_epi16(v, count), _mm_andnot_si128(in_range, _mm_set1_epi16(-1))));
    }
  } else {
    const __m128i count = _mm_cvtsi32_si128(shift <= -16 ? 16 : -shift);
    for (int x = 0; x < width; x += 8, src += 16, dst += 16) Store(dst, _mm_srl_epi16(Load(src), count));
  }
}

// 8 pixels per block: widened to 32 bits, converted, one multiply (the same
// single rounding as the scalar row).
void DepthToFloatRow_SSSE3(const uint8_t* src, uint8_t* dst, int width, float scale) {
  const __m128i zero = _mm_setzero_si128();
  const __m128 factor = _mm_set1_ps(scale);
  for (int x = 0; x < width; x += 8, src += 16, dst += 32) {
    const __m128i v = Load(src);
    _mm_storeu_ps(reinterpret_cast<float*>(dst), _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(v, zero)), factor));
    _mm_storeu_ps(reinterpret_cast<float*>(dst + 16), _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(v, zero)), factor));
  }
}

// v clamped to 0..65535 (max with 0 first: _mm_max_ps returns its second
// operand for NaN, so NaN gives 0), plus 0.5, truncated: the scalar row's
// "zero, negatives and NaN to 0; 65535 and above to 65535; else v + 0.5".
inline __m128i FloatToDepthx4(__m128 v) {
  const __m128 clamped = _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(65535.0f));
  return _mm_cvttps_epi32(_mm_add_ps(clamped, _mm_set1_ps(0.5f)));
}

// 8 pixels per block. 0..65535 packs to 16 bits through the signed pack after
// moving the range down by 32768.
void FloatToDepthRow_SSSE3(const uint8_t* src, uint8_t* dst, int width, float factor) {
  const __m128 f = _mm_set1_ps(factor);
  const __m128i bias = _mm_set1_epi32(32768);
  const __m128i sign = _mm_set1_epi16(static_cast<short>(0x8000));
  for (int x = 0; x < width; x += 8, src += 32, dst += 16) {
    const __m128i lo = FloatToDepthx4(_mm_mul_ps(_mm_loadu_ps(reinterpret_cast<const float*>(src)), f));
    const __m128i hi = FloatToDepthx4(_mm_mul_ps(_mm_loadu_ps(reinterpret_cast<const float*>(src + 16)), f));
    Store(dst, _mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(lo, bias), _mm_sub_epi32(hi, bias)), sign));
  }
}

// --- Grey from colour ----------------------------------------------------------------

// The scalar row's float arithmetic, operation for operation: each channel byte
// converted exactly, multiplied by its weight, the three products added left to
// right, then 0.5 added and the sum truncated. SSE arithmetic rounds each step
// to float as the scalar row does (no fused multiply-add here), so the results
// are identical, and the saturating packs give the clamp to 255.
inline __m128i GreyOf4(__m128i pixels, __m128i c0, __m128i c1, __m128i c2, const __m128 (&w)[3]) {
  const __m128 f0 = _mm_cvtepi32_ps(_mm_shuffle_epi8(pixels, c0));
  const __m128 f1 = _mm_cvtepi32_ps(_mm_shuffle_epi8(pixels, c1));
  const __m128 f2 = _mm_cvtepi32_ps(_mm_shuffle_epi8(pixels, c2));
  const __m128 sum = _mm_add_ps(_mm_add_ps(_mm_mul_ps(w[0], f0), _mm_mul_ps(w[1], f1)), _mm_mul_ps(w[2], f2));
  return _mm_cvttps_epi32(_mm_add_ps(sum, _mm_set1_ps(0.5f)));
}

// Byte mask putting channel kChannel of 4 pixels (kBpp bytes each, the first at
// byte kFirst) into the low byte of each 32-bit lane.
template <int kBpp, int kChannel, int kFirst>
inline __m128i ChannelMask() {
  constexpr char z = -128;
  return _mm_setr_epi8(kFirst + kChannel, z, z, z, kFirst + kBpp + kChannel, z, z, z, kFirst + 2 * kBpp + kChannel, z,
                       z, z, kFirst + 3 * kBpp + kChannel, z, z, z);
}

// 16 pixels per block. Weights in memory order of the channels (blue first
// unless kRgb). Three-byte pixels are loaded 4 at a time from byte offsets 0,
// 8, 24 and 32 of the block (pixels 0-3, 4-7 starting at byte 4 of the load,
// 8-11, 12-15 likewise), so no load leaves the block.
template <int kBpp, bool kRgb>
void GreyRow(const uint8_t* src, uint8_t* dst, int width) {
  const __m128 w[3] = {_mm_set1_ps(kRgb ? 0.299f : 0.114f), _mm_set1_ps(0.587f), _mm_set1_ps(kRgb ? 0.114f : 0.299f)};
  constexpr int kSecond = kBpp == 4 ? 0 : 4;  // first pixel's byte in the second load of a half
  const __m128i a0 = ChannelMask<kBpp, 0, 0>(), a1 = ChannelMask<kBpp, 1, 0>(), a2 = ChannelMask<kBpp, 2, 0>();
  const __m128i b0 = ChannelMask<kBpp, 0, kSecond>(), b1 = ChannelMask<kBpp, 1, kSecond>(),
                b2 = ChannelMask<kBpp, 2, kSecond>();
  constexpr int kOffsets[4] = {0, kBpp == 4 ? 16 : 8, kBpp == 4 ? 32 : 24, kBpp == 4 ? 48 : 32};
  for (int x = 0; x < width; x += 16, src += 16 * kBpp, dst += 16) {
    const __m128i g0 = GreyOf4(Load(src + kOffsets[0]), a0, a1, a2, w);
    const __m128i g1 = GreyOf4(Load(src + kOffsets[1]), b0, b1, b2, w);
    const __m128i g2 = GreyOf4(Load(src + kOffsets[2]), a0, a1, a2, w);
    const __m128i g3 = GreyOf4(Load(src + kOffsets[3]), b0, b1, b2, w);
    Store(dst, _mm_packus_epi16(_mm_packs_epi32(g0, g1), _mm_packs_epi32(g2, g3)));
  }
}

}  // namespace

// --- Any-width entry points --------------------------------------------------------------

void YUY2ToBGRARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToBGRARow_SSSE3, YUY2ToBGRARow_C, 8, 4>(src, dst, width, alpha);
}
void YUY2ToRGBARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  AnyYUY2Decode<YUY2ToRGBARow_SSSE3, YUY2ToRGBARow_C, 8, 4>(src, dst, width, alpha);
}
void YUY2ToBGRRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToBGRRow_SSSE3, YUY2ToBGRRow_C, 16, 3>(src, dst, width);
}
void YUY2ToRGBRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Decode<YUY2ToRGBRow_SSSE3, YUY2ToRGBRow_C, 16, 3>(src, dst, width);
}
void YUY2ToY8Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kYUY2Luma, 2, 1>, 16, 2, 1>(src, dst, width);
}
void YUY2ToUVRow_Any_SSSE3(const uint8_t* src0, const uint8_t* src1, uint8_t* dst, int width) {
  AnyTwoRows<YUY2ToUVRow_SSSE3, 16, 2, 2, 1>(src0, src1, dst, width);
}
void NV12ToYUY2Row_Any_SSSE3(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst, int width) {
  // The scalar row writes pairs only; an odd last column is left alone.
  AnyTwoRows<NV12ToYUY2Row_SSSE3, 16, 1, 1, 2>(src_y, src_uv, dst, width & ~1);
}
void BGRAToYUY2Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<BGRAToYUY2Row_SSSE3, BGRAToYUY2Row_C, 8, 4>(src, dst, width);
}
void RGBAToYUY2Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<RGBAToYUY2Row_SSSE3, RGBAToYUY2Row_C, 8, 4>(src, dst, width);
}
void BGRToYUY2Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<BGRToYUY2Row_SSSE3, BGRToYUY2Row_C, 8, 3>(src, dst, width);
}
void RGBToYUY2Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyYUY2Encode<RGBToYUY2Row_SSSE3, RGBToYUY2Row_C, 8, 3>(src, dst, width);
}
void BGRAToRGBARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kSwapRB4, 4, 4>, 16, 4, 4>(src, dst, width);
}
void BGRToRGBRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kSwapRB3, 3, 3>, 16, 3, 3>(src, dst, width);
}
void BGRAToBGRRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kDropAlpha, 4, 3>, 16, 4, 3>(src, dst, width);
}
void BGRAToRGBRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kDropAlphaSwap, 4, 3>, 16, 4, 3>(src, dst, width);
}
void BGRToBGRARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kAddAlpha, 3, 4>, 16, 3, 4>(src, dst, width);
}
void BGRToRGBARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kAddAlphaSwap, 3, 4>, 16, 3, 4>(src, dst, width);
}
void Y8ToBGRRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kGreyToBGR, 1, 3>, 16, 1, 3>(src, dst, width);
}
void Y8ToY16Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<Y8ToY16Row_SSSE3, 16, 1, 2>(src, dst, width);
}
void Y16ToY8Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<Y16ToY8Row_SSSE3, 16, 2, 1>(src, dst, width);
}
void Y16ToBGRARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<ShuffleRows<kY16ToBGRA, 2, 4>, 16, 2, 4>(src, dst, width);
}
void DepthShiftRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width, int shift) {
  AnyRow<DepthShiftRow_SSSE3, 8, 2, 2, int>(src, dst, width, shift);
}
void DepthToFloatRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width, float scale) {
  AnyRow<DepthToFloatRow_SSSE3, 8, 2, 4, float>(src, dst, width, scale);
}
void FloatToDepthRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width, float factor) {
  AnyRow<FloatToDepthRow_SSSE3, 8, 4, 2, float>(src, dst, width, factor);
}

void BGRAToY8Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<4, false>, 16, 4, 1>(src, dst, width);
}
void RGBAToY8Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<4, true>, 16, 4, 1>(src, dst, width);
}
void BGRToY8Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<3, false>, 16, 3, 1>(src, dst, width);
}
void RGBToY8Row_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyRow<GreyRow<3, true>, 16, 3, 1>(src, dst, width);
}

}  // namespace lmx
