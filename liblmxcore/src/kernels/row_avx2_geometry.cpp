// AVX2 rows that move pixels without changing them: left-right mirrors (row_simd.h).
// This file alone, with row_avx2.cpp, is compiled with -mavx2. Loads and stores
// are unaligned throughout, and no 256-bit value is passed by value to a function
// that is not inlined: the Windows x64 ABI does not align the stack to 32 bytes.
#include <immintrin.h>

#include <cstring>

#include "kernels/row.h"
#include "kernels/row_any.h"
#include "kernels/row_simd.h"

namespace lmx::kernels {
namespace {

inline __m256i Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void Store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

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

// Four-byte pixels, 8 per step: one dword permute.
void MirrorRow4_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const int blocks = width / 8;
  for (int i = 0; i < blocks; ++i) {
    Store(dst + 32 * i, _mm256_permutevar8x32_epi32(Load(src + 32 * (blocks - 1 - i)), reverse));
  }
}

}  // namespace

// --- Any-width entry points --------------------------------------------------------------

void MirrorRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRow1_AVX2, 32, 1>(src, dst, width);
}
void MirrorRow4_Any_AVX2(const uint8_t* src, uint8_t* dst, int width) {
  AnyMirror<MirrorRow4_AVX2, 8, 4>(src, dst, width);
}

}  // namespace lmx::kernels
