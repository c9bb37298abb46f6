// AVX-512 (F, BW) left-right mirrors (row_simd.h). This file alone, with
// row_avx512.cpp, is compiled with -mavx512f -mavx512bw -mavx512vl. Loads and
// stores are unaligned, and no 512-bit value crosses a call that is not inlined
// (the Windows x64 ABI does not align the stack for it).
#include <immintrin.h>

#include <cstring>

#include "kernels/row_any.h"
#include "kernels/row_simd.h"

namespace lmx {
namespace {

inline __m512i Load(const void* p) { return _mm512_loadu_si512(p); }
inline void Store(void* p, __m512i v) { _mm512_storeu_si512(p, v); }

// Mirrors, 64 bytes per register: destination block i is source block
// (blocks - 1 - i) reversed. Pixels of 1 and 2 bytes reverse within each 128-bit
// lane, then the lanes reverse; pixels of 4 and 8 bytes take one permute.
// Two registers per step, both loaded before either is stored.
template <int kBpp>
inline __m512i Reverse(__m512i v) {
  if constexpr (kBpp == 4) {
    return _mm512_permutexvar_epi32(_mm512_setr_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0), v);
  }
  if constexpr (kBpp == 8) return _mm512_permutexvar_epi64(_mm512_setr_epi64(7, 6, 5, 4, 3, 2, 1, 0), v);
  if constexpr (kBpp == 1 || kBpp == 2) {
    const __m128i lane = kBpp == 1 ? _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
                                   : _mm_setr_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1);
    const __m512i in_lanes = _mm512_shuffle_epi8(v, _mm512_broadcast_i32x4(lane));
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(6, 7, 4, 5, 2, 3, 0, 1), in_lanes);
  }
}

template <int kBpp>
void MirrorRows(const uint8_t* src, uint8_t* dst, int width) {
  constexpr int kPixels = 128 / kBpp;  // per step
  const int blocks = width / kPixels;
  for (int i = 0; i < blocks; ++i) {
    const uint8_t* s = src + 128 * (blocks - 1 - i);
    const __m512i a = Load(s), b = Load(s + 64);
    Store(dst + 128 * i, Reverse<kBpp>(b));
    Store(dst + 128 * i + 64, Reverse<kBpp>(a));
  }
}

}  // namespace

// --- Any-width entry points --------------------------------------------------------------

void MirrorRow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<1>, 128, 1>(src, dst, width);
}
void MirrorRow2_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<2>, 64, 2>(src, dst, width);
}
void MirrorRow4_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<4>, 32, 4>(src, dst, width);
}
void MirrorRow8_Any_AVX512(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRows<8>, 16, 8>(src, dst, width);
}

}  // namespace lmx
