// AVX2 rows that move pixels without changing them: left-right mirrors and the
// plane rotations (row_simd.h). This file alone, with row_avx2.cpp, is compiled
// with -mavx2. Loads and stores are unaligned throughout, and no 256-bit value
// is passed by value to a function that is not inlined: the Windows x64 ABI
// does not align the stack to 32 bytes.
#include <immintrin.h>

#include <cstring>

#include "kernels/row.h"
#include "kernels/row_any.h"
#include "kernels/row_simd.h"
#include "kernels/transpose_any.h"

namespace lmx {
namespace {

inline __m256i Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void Store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
inline __m128i Load128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void Store128(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// --- Mirror ----------------------------------------------------------------------------

// Left-right mirrors, 32 bytes per step: destination block i is source block
// (blocks - 1 - i) reversed. Bytes reverse within each lane, then the lanes swap.
void MirrorRow1_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i reverse = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0,  //
                                           15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  const int blocks = width / 32;
  for (int i = 0; i < blocks; ++i) {
    const __m256i v = _mm256_shuffle_epi8(Load(src + 32 * (blocks - 1 - i)), reverse);
    Store(dst + 32 * i, _mm256_permute4x64_epi64(v, 0x4E));
  }
}

// Two-byte pixels, 16 per step: words reverse within each lane, then the lanes swap.
void MirrorRow2_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i reverse = _mm256_setr_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1,  //
                                           14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1);
  const int blocks = width / 16;
  for (int i = 0; i < blocks; ++i) {
    const __m256i v = _mm256_shuffle_epi8(Load(src + 32 * (blocks - 1 - i)), reverse);
    Store(dst + 32 * i, _mm256_permute4x64_epi64(v, 0x4E));
  }
}

// Four-byte pixels, 32 per step in four registers: one dword permute each. The
// loads of a step all come before its stores, four independent chains.
void MirrorRow4_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const int blocks = width / 32;
  for (int i = 0; i < blocks; ++i) {
    const uint8_t* s = src + 128 * (blocks - 1 - i);
    const __m256i a = Load(s), b = Load(s + 32), c = Load(s + 64), d = Load(s + 96);
    uint8_t* o = dst + 128 * i;
    Store(o, _mm256_permutevar8x32_epi32(d, reverse));
    Store(o + 32, _mm256_permutevar8x32_epi32(c, reverse));
    Store(o + 64, _mm256_permutevar8x32_epi32(b, reverse));
    Store(o + 96, _mm256_permutevar8x32_epi32(a, reverse));
  }
}

// Eight-byte pixels, 4 per step: one quadword permute.
void MirrorRow8_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const int blocks = width / 4;
  for (int i = 0; i < blocks; ++i) {
    Store(dst + 32 * i, _mm256_permute4x64_epi64(Load(src + 32 * (blocks - 1 - i)), 0x1B));
  }
}

// YUY2 pairs (Y0 U Y1 V), 8 per step, of an even-width row: the pairs trade
// places and the two lumas of each pair swap.
void MirrorYUY2Pairs_AVX2(const uint8_t* src, uint8_t* dst, int pairs) {
  const __m256i swap_luma = _mm256_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15,  //
                                             2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15);
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const int blocks = pairs / 8;
  for (int i = 0; i < blocks; ++i) {
    const __m256i v = _mm256_shuffle_epi8(Load(src + 32 * (blocks - 1 - i)), swap_luma);
    Store(dst + 32 * i, _mm256_permutevar8x32_epi32(v, reverse));
  }
}

// YUY2 of an odd-width row, 8 pairs per step. There the destination pair
// landing on source pair k takes that pair's first luma, U and V, and the second
// luma of pair k - 1 (Y0_k U_k Y1_k-1 V_k): byte 2 of every dword comes from a
// second load 4 bytes earlier, then the dwords reverse. So the body reads the
// 4 bytes before `src` too; the caller starts it at pair 1 or later.
void MirrorYUY2OddPairs_AVX2(const uint8_t* src, uint8_t* dst, int pairs) {
  const __m256i from_previous = _mm256_set1_epi32(0x00800000);
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const int blocks = pairs / 8;
  for (int i = 0; i < blocks; ++i) {
    const uint8_t* s = src + 32 * (blocks - 1 - i);
    const __m256i v = _mm256_blendv_epi8(Load(s), Load(s - 4), from_previous);
    Store(dst + 32 * i, _mm256_permutevar8x32_epi32(v, reverse));
  }
}

// Destination pair j of an odd-width row of `pairs` whole pairs, one at a time
// (the pair of source pixel 2k, k = pairs - j); the first one (k = pairs, the
// lone source pixel, which has no V) takes the V of the pair before it.
inline void MirrorYUY2OddPair(const uint8_t* src, uint8_t* dst, int pairs, int j) {
  const int k = pairs - j;
  uint8_t* d = dst + 4 * static_cast<ptrdiff_t>(j);
  const uint8_t* s = src + 4 * static_cast<ptrdiff_t>(k);
  d[0] = s[0];
  d[1] = s[1];
  d[2] = s[-2];
  d[3] = j == 0 ? s[-1] : s[3];
}

// --- Rotation --------------------------------------------------------------------------

// Interleaves of kBpp-byte elements, within 128-bit lanes.
template <int kBpp>
inline __m256i InterleaveLow(__m256i a, __m256i b) {
  if constexpr (kBpp == 1) return _mm256_unpacklo_epi8(a, b);
  if constexpr (kBpp == 2) return _mm256_unpacklo_epi16(a, b);
  if constexpr (kBpp == 4) return _mm256_unpacklo_epi32(a, b);
  if constexpr (kBpp == 8) return _mm256_unpacklo_epi64(a, b);
}
template <int kBpp>
inline __m256i InterleaveHigh(__m256i a, __m256i b) {
  if constexpr (kBpp == 1) return _mm256_unpackhi_epi8(a, b);
  if constexpr (kBpp == 2) return _mm256_unpackhi_epi16(a, b);
  if constexpr (kBpp == 4) return _mm256_unpackhi_epi32(a, b);
  if constexpr (kBpp == 8) return _mm256_unpackhi_epi64(a, b);
}
template <int kBpp>
inline __m128i InterleaveLow(__m128i a, __m128i b) {
  if constexpr (kBpp == 1) return _mm_unpacklo_epi8(a, b);
  if constexpr (kBpp == 2) return _mm_unpacklo_epi16(a, b);
  if constexpr (kBpp == 4) return _mm_unpacklo_epi32(a, b);
  if constexpr (kBpp == 8) return _mm_unpacklo_epi64(a, b);
}
template <int kBpp>
inline __m128i InterleaveHigh(__m128i a, __m128i b) {
  if constexpr (kBpp == 1) return _mm_unpackhi_epi8(a, b);
  if constexpr (kBpp == 2) return _mm_unpackhi_epi16(a, b);
  if constexpr (kBpp == 4) return _mm_unpackhi_epi32(a, b);
  if constexpr (kBpp == 8) return _mm_unpackhi_epi64(a, b);
}

// log2 N perfect-shuffle rounds over N registers (see row_ssse3_geometry.cpp).
template <int kBpp, int kN, typename V>
inline void ShuffleRounds(V (&r)[kN]) {
  V t[kN];
  for (int round = 1; round < kN; round *= 2) {
    for (int i = 0; i < kN / 2; ++i) {
      t[2 * i] = InterleaveLow<kBpp>(r[i], r[i + kN / 2]);
      t[2 * i + 1] = InterleaveHigh<kBpp>(r[i], r[i + kN / 2]);
    }
    for (int i = 0; i < kN; ++i) r[i] = t[i];
  }
}

// The SSSE3 square tile (row_ssse3_geometry.cpp) on two tiles at once: rows
// [0, N) of the tile in the low 128-bit lanes, rows [N, 2N) in the high lanes,
// N = 16 / kBpp. The interleave rounds work within lanes, so each destination
// row gets the column's top N pixels and then its bottom N: 32 bytes, N columns
// by 2N rows per tile.
template <int kBpp>
void TransposeTallTile(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch) {
  constexpr int kN = 16 / kBpp;
  __m256i r[kN];
  for (int i = 0; i < kN; ++i) {
    r[i] = _mm256_inserti128_si256(_mm256_castsi128_si256(Load128(src + i * src_pitch)),
                                   Load128(src + (i + kN) * src_pitch), 1);
  }
  ShuffleRounds<kBpp>(r);
  for (int i = 0; i < kN; ++i) Store(dst + i * dst_pitch, r[i]);
}

// The square N x N tile in 128-bit registers, for a last strip of rows too
// short for the tall tile.
template <int kBpp>
void TransposeSquareTile(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch) {
  constexpr int kN = 16 / kBpp;
  __m128i r[kN];
  for (int i = 0; i < kN; ++i) r[i] = Load128(src + i * src_pitch);
  ShuffleRounds<kBpp>(r);
  for (int i = 0; i < kN; ++i) Store128(dst + i * dst_pitch, r[i]);
}

// Bands measured on 1920 x 1080 planes: the narrowest that keeps a whole source
// cache line per row for one-byte pixels, and two tiles (8 destination rows)
// for the wider pixels.
template <int kBpp>
constexpr int kTallBandBytes = kBpp == 1 ? 64 : 32;

template <int kBpp>
void TransposePlane(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height) {
  TransposeBlockedTall<TransposeTallTile<kBpp>, TransposeSquareTile<kBpp>, 16 / kBpp, kBpp, kTallBandBytes<kBpp>>(
      src, src_pitch, dst, dst_pitch, width, height);
}

// Three-byte pixels: an 8 x 8 tile whose rows (24 bytes, loaded as bytes 0-15
// and 8-23 so no load leaves them) are widened to one pixel per dword, pixels
// 0-3 in the low lane and 4-7 in the high one; transposed as dwords (two
// interleave rounds within lanes, then the lanes recombined); and narrowed back
// to 24 bytes, stored as 16 + 8.
void TransposeTile3(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch) {
  const __m256i widen = _mm256_setr_epi8(0, 1, 2, -128, 3, 4, 5, -128, 6, 7, 8, -128, 9, 10, 11, -128,  //
                                         4, 5, 6, -128, 7, 8, 9, -128, 10, 11, 12, -128, 13, 14, 15, -128);
  const __m256i narrow = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -128, -128, -128, -128,  //
                                          0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -128, -128, -128, -128);
  const __m256i pack = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  __m256i r[8], t[8];
  for (int i = 0; i < 8; ++i) {
    const uint8_t* s = src + i * src_pitch;
    r[i] = _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(Load128(s)), Load128(s + 8), 1), widen);
  }
  // Two rounds leave, for rows 0-3 and again for rows 4-7, column j in the low
  // lane and column j + 4 in the high lane; lane permutes join the two halves.
  for (int i = 0; i < 4; ++i) {
    t[2 * i] = _mm256_unpacklo_epi32(r[2 * i], r[2 * i + 1]);
    t[2 * i + 1] = _mm256_unpackhi_epi32(r[2 * i], r[2 * i + 1]);
  }
  for (int h = 0; h < 2; ++h) {
    r[4 * h + 0] = _mm256_unpacklo_epi64(t[4 * h], t[4 * h + 2]);
    r[4 * h + 1] = _mm256_unpackhi_epi64(t[4 * h], t[4 * h + 2]);
    r[4 * h + 2] = _mm256_unpacklo_epi64(t[4 * h + 1], t[4 * h + 3]);
    r[4 * h + 3] = _mm256_unpackhi_epi64(t[4 * h + 1], t[4 * h + 3]);
  }
  for (int j = 0; j < 4; ++j) {
    t[j] = _mm256_permute2x128_si256(r[j], r[4 + j], 0x20);
    t[j + 4] = _mm256_permute2x128_si256(r[j], r[4 + j], 0x31);
  }
  for (int j = 0; j < 8; ++j) {
    const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(t[j], narrow), pack);
    uint8_t* d = dst + j * dst_pitch;
    Store128(d, _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm256_extracti128_si256(packed, 1));
  }
}

void TransposePlane3(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                     int height) {
  TransposeBlocked<TransposeTile3, 8, 3, 24>(src, src_pitch, dst, dst_pitch, width, height);
}

}  // namespace

// --- Any-width entry points --------------------------------------------------------------

void MirrorRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRow1_AVX2, 32, 1>(src, dst, width);
}
void MirrorRow2_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRow2_AVX2, 16, 2>(src, dst, width);
}
void MirrorRow4_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRow4_AVX2, 32, 4>(src, dst, width);
}
void MirrorRow8_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRow8_AVX2, 4, 8>(src, dst, width);
}

void MirrorYUY2Row_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const int pairs = width / 2;
  if ((width & 1) == 0) {
    // Each pair is a four-byte pixel of its own.
    AnyMirror<MirrorYUY2Pairs_AVX2, 8, 4>(src, dst, pairs);
    return;
  }
  // Destination pairs 1 .. n from the last n source pairs before the lone
  // pixel; the pairs left over and destination pair 0 one at a time.
  const int n = pairs > 0 ? (pairs - 1) & ~7 : 0;
  if (n > 0) MirrorYUY2OddPairs_AVX2(src + 4 * static_cast<ptrdiff_t>(pairs - n), dst + 4, n);
  if (pairs > 0) MirrorYUY2OddPair(src, dst, pairs, 0);
  for (int j = n + 1; j < pairs; ++j) MirrorYUY2OddPair(src, dst, pairs, j);
  // The lone destination pixel: the first source pixel with its U.
  dst[4 * static_cast<ptrdiff_t>(pairs)] = src[0];
  dst[4 * static_cast<ptrdiff_t>(pairs) + 1] = src[1];
}

void RotatePlane90_AVX2(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                        int height, int bpp) {
  switch (bpp) {
    case 1:
      return Rotate90ByTranspose<TransposePlane<1>>(src, src_pitch, dst, dst_pitch, width, height);
    case 2:
      return Rotate90ByTranspose<TransposePlane<2>>(src, src_pitch, dst, dst_pitch, width, height);
    case 3:
      return Rotate90ByTranspose<TransposePlane3>(src, src_pitch, dst, dst_pitch, width, height);
    case 4:
      return Rotate90ByTranspose<TransposePlane<4>>(src, src_pitch, dst, dst_pitch, width, height);
    case 8:
      return Rotate90ByTranspose<TransposePlane<8>>(src, src_pitch, dst, dst_pitch, width, height);
    default:
      return RotatePlane90_C(src, src_pitch, dst, dst_pitch, width, height, bpp);
  }
}
void RotatePlane270_AVX2(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                         int height, int bpp) {
  switch (bpp) {
    case 1:
      return Rotate270ByTranspose<TransposePlane<1>>(src, src_pitch, dst, dst_pitch, width, height);
    case 2:
      return Rotate270ByTranspose<TransposePlane<2>>(src, src_pitch, dst, dst_pitch, width, height);
    case 3:
      return Rotate270ByTranspose<TransposePlane3>(src, src_pitch, dst, dst_pitch, width, height);
    case 4:
      return Rotate270ByTranspose<TransposePlane<4>>(src, src_pitch, dst, dst_pitch, width, height);
    case 8:
      return Rotate270ByTranspose<TransposePlane<8>>(src, src_pitch, dst, dst_pitch, width, height);
    default:
      return RotatePlane270_C(src, src_pitch, dst, dst_pitch, width, height, bpp);
  }
}

}  // namespace lmx
