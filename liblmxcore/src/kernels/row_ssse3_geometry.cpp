// SSSE3 rows that move pixels without changing them: left-right mirrors and the
// plane rotations (row_simd.h). This file alone, with row_ssse3.cpp, is
// compiled with -mssse3. Loads and stores are unaligned throughout: rows may
// start anywhere.
#include <tmmintrin.h>

#include <cstring>

#include "kernels/row.h"
#include "kernels/row_any.h"
#include "kernels/row_simd.h"
#include "kernels/transpose_any.h"

namespace lmx {
namespace {

inline __m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// --- Mirror ----------------------------------------------------------------------------

// Left-right mirror of 16 pixels of kBpp bytes per block: destination block i
// is source block (blocks - 1 - i) reversed. For 1, 2, 4 and 8 bytes a pixel
// never straddles registers: register o of the block is register kBpp - 1 - o
// with its pixels reversed.
template <int kBpp>
void MirrorRows(const uint8_t* src, uint8_t* dst, int width) {
  static_assert(kBpp == 1 || kBpp == 2 || kBpp == 4 || kBpp == 8, "three-byte pixels: MirrorRows3");
  int8_t bytes[16];
  for (int b = 0; b < 16; ++b) bytes[b] = static_cast<int8_t>(16 - kBpp * (b / kBpp + 1) + b % kBpp);
  const __m128i reverse = Load(bytes);
  const int blocks = width / 16;
  for (int i = 0; i < blocks; ++i) {
    const uint8_t* s = src + (blocks - 1 - i) * 16 * kBpp;
    uint8_t* d = dst + i * 16 * kBpp;
    for (int o = 0; o < kBpp; ++o) Store(d + 16 * o, _mm_shuffle_epi8(Load(s + 16 * (kBpp - 1 - o)), reverse));
  }
}

// Byte masks mirroring 16 three-byte pixels held in three registers: output
// register o takes from input register k the bytes of mask[o][k] (-128 writes
// 0, so the pieces combine with or).
struct Mirror3Masks {
  int8_t mask[3][3][16];
};

constexpr Mirror3Masks MakeMirror3Masks() {
  Mirror3Masks m{};
  for (auto& out : m.mask)
    for (auto& in : out)
      for (int8_t& b : in) b = -128;
  for (int out = 0; out < 48; ++out) {
    const int in = 3 * (15 - out / 3) + out % 3;
    m.mask[out / 16][in / 16][out % 16] = static_cast<int8_t>(in % 16);
  }
  return m;
}

constexpr Mirror3Masks kMirror3 = MakeMirror3Masks();

void MirrorRows3(const uint8_t* src, uint8_t* dst, int width) {
  __m128i mask[3][3];
  for (int o = 0; o < 3; ++o)
    for (int k = 0; k < 3; ++k) mask[o][k] = Load(kMirror3.mask[o][k]);
  const int blocks = width / 16;
  for (int i = 0; i < blocks; ++i) {
    const uint8_t* s = src + (blocks - 1 - i) * 48;
    uint8_t* d = dst + i * 48;
    const __m128i in[3] = {Load(s), Load(s + 16), Load(s + 32)};
    for (int o = 0; o < 3; ++o) {
      const __m128i a = _mm_or_si128(_mm_shuffle_epi8(in[0], mask[o][0]), _mm_shuffle_epi8(in[1], mask[o][1]));
      Store(d + 16 * o, _mm_or_si128(a, _mm_shuffle_epi8(in[2], mask[o][2])));
    }
  }
}

// --- Rotation --------------------------------------------------------------------------

// Transposes a square tile of 16 / kBpp rows of 16 bytes (kBpp-byte pixels) by
// the perfect shuffle: each round interleaves register i with register
// i + N/2 into registers 2i and 2i + 1. Viewing an element's (register,
// position) index as one bit string, a round rotates it by one bit, so log2 N
// rounds swap register and position: the transpose.
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

template <int kBpp>
void TransposeTile(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch) {
  constexpr int kN = 16 / kBpp;
  __m128i r[kN], t[kN];
  for (int i = 0; i < kN; ++i) r[i] = Load(src + i * src_pitch);
  for (int round = 1; round < kN; round *= 2) {
    for (int i = 0; i < kN / 2; ++i) {
      t[2 * i] = InterleaveLow<kBpp>(r[i], r[i + kN / 2]);
      t[2 * i + 1] = InterleaveHigh<kBpp>(r[i], r[i + kN / 2]);
    }
    for (int i = 0; i < kN; ++i) r[i] = t[i];
  }
  for (int i = 0; i < kN; ++i) Store(dst + i * dst_pitch, r[i]);
}

template <int kBpp>
void TransposePlane(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height) {
  TransposeBlocked<TransposeTile<kBpp>, 16 / kBpp, kBpp>(src, src_pitch, dst, dst_pitch, width, height);
}

}  // namespace

// --- Any-width entry points --------------------------------------------------------------

void MirrorRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<1>, 16, 1>(src, dst, width);
}
void MirrorRow2_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<2>, 16, 2>(src, dst, width);
}
void MirrorRow3_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows3, 16, 3>(src, dst, width);
}
void MirrorRow4_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<4>, 16, 4>(src, dst, width);
}
void MirrorRow8_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<8>, 16, 8>(src, dst, width);
}

void RotatePlane90_SSSE3(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                         int height, int bpp) {
  switch (bpp) {
    case 1:
      return Rotate90ByTranspose<TransposePlane<1>>(src, src_pitch, dst, dst_pitch, width, height);
    case 2:
      return Rotate90ByTranspose<TransposePlane<2>>(src, src_pitch, dst, dst_pitch, width, height);
    case 4:
      return Rotate90ByTranspose<TransposePlane<4>>(src, src_pitch, dst, dst_pitch, width, height);
    case 8:
      return Rotate90ByTranspose<TransposePlane<8>>(src, src_pitch, dst, dst_pitch, width, height);
    default:
      return RotatePlane90_C(src, src_pitch, dst, dst_pitch, width, height, bpp);
  }
}
void RotatePlane270_SSSE3(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                          int height, int bpp) {
  switch (bpp) {
    case 1:
      return Rotate270ByTranspose<TransposePlane<1>>(src, src_pitch, dst, dst_pitch, width, height);
    case 2:
      return Rotate270ByTranspose<TransposePlane<2>>(src, src_pitch, dst, dst_pitch, width, height);
    case 4:
      return Rotate270ByTranspose<TransposePlane<4>>(src, src_pitch, dst, dst_pitch, width, height);
    case 8:
      return Rotate270ByTranspose<TransposePlane<8>>(src, src_pitch, dst, dst_pitch, width, height);
    default:
      return RotatePlane270_C(src, src_pitch, dst, dst_pitch, width, height, bpp);
  }
}

}  // namespace lmx
