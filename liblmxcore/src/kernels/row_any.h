// row_any.h: any-width wrappers around SIMD row bodies.
//
// A SIMD body converts whole blocks only: its width is a positive multiple of
// its block size, and it reads and writes exactly those blocks. A wrapper runs
// the body over the whole blocks of a row, then copies the remaining pixels into
// a zeroed stack block, runs the body once more on that block and copies the
// remaining pixels' results back. So no body has tail code, and no row function
// touches a byte outside the row it is given.
//
// Included only by the SIMD files (row_ssse3.cpp, row_avx2.cpp, ...). Everything
// here has internal linkage on purpose: each file instantiates its own copies,
// compiled with that file's instruction-set flags, and the linker can never pick
// an AVX2-compiled copy for code that runs on a processor without AVX2. For the
// same reason the SIMD files use no inline functions or templates of other
// headers beyond the intrinsics and memcpy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lmx {
namespace {

// One source, one destination; kSrcBpp and kDstBpp are bytes per pixel.
template <auto kBody, int kBlock, int kSrcBpp, int kDstBpp, typename... Extra>
void AnyRow(const uint8_t* src, uint8_t* dst, int width, Extra... extra) {
  static_assert((kBlock & (kBlock - 1)) == 0, "blocks are powers of two");
  const int whole = width & ~(kBlock - 1);
  if (whole > 0) kBody(src, dst, whole, extra...);
  const int rest = width - whole;
  if (rest == 0) return;
  uint8_t in[kBlock * kSrcBpp] = {};
  uint8_t out[kBlock * kDstBpp];
  std::memcpy(in, src + static_cast<ptrdiff_t>(whole) * kSrcBpp, static_cast<size_t>(rest) * kSrcBpp);
  kBody(in, out, kBlock, extra...);
  std::memcpy(dst + static_cast<ptrdiff_t>(whole) * kDstBpp, out, static_cast<size_t>(rest) * kDstBpp);
}

// Two sources of kSrc0Bpp and kSrc1Bpp bytes per pixel (two rows, or a luma row
// and a chroma row), one destination.
template <auto kBody, int kBlock, int kSrc0Bpp, int kSrc1Bpp, int kDstBpp>
void AnyTwoRows(const uint8_t* src0, const uint8_t* src1, uint8_t* dst, int width) {
  static_assert((kBlock & (kBlock - 1)) == 0, "blocks are powers of two");
  const int whole = width & ~(kBlock - 1);
  if (whole > 0) kBody(src0, src1, dst, whole);
  const int rest = width - whole;
  if (rest == 0) return;
  uint8_t in0[kBlock * kSrc0Bpp] = {};
  uint8_t in1[kBlock * kSrc1Bpp] = {};
  uint8_t out[kBlock * kDstBpp];
  std::memcpy(in0, src0 + static_cast<ptrdiff_t>(whole) * kSrc0Bpp, static_cast<size_t>(rest) * kSrc0Bpp);
  std::memcpy(in1, src1 + static_cast<ptrdiff_t>(whole) * kSrc1Bpp, static_cast<size_t>(rest) * kSrc1Bpp);
  kBody(in0, in1, out, kBlock);
  std::memcpy(dst + static_cast<ptrdiff_t>(whole) * kDstBpp, out, static_cast<size_t>(rest) * kDstBpp);
}

// Left-right mirror: the body mirrors the last `whole` pixels of the source into
// the first `whole` of the destination; the first `rest` source pixels are
// mirrored through the stack block into the end of the destination.
template <auto kBody, int kBlock, int kBpp>
void AnyMirror(const uint8_t* src, uint8_t* dst, int width) {
  static_assert((kBlock & (kBlock - 1)) == 0, "blocks are powers of two");
  const int whole = width & ~(kBlock - 1);
  const int rest = width - whole;
  if (whole > 0) kBody(src + static_cast<ptrdiff_t>(rest) * kBpp, dst, whole);
  if (rest == 0) return;
  uint8_t in[kBlock * kBpp] = {};
  uint8_t out[kBlock * kBpp];
  std::memcpy(in, src, static_cast<size_t>(rest) * kBpp);
  kBody(in, out, kBlock);
  std::memcpy(dst + static_cast<ptrdiff_t>(whole) * kBpp, out + (kBlock - rest) * kBpp,
              static_cast<size_t>(rest) * kBpp);
}

// YUY2 decoders: pixel pairs through AnyRow; a lone last pixel (which takes the
// V byte of the pair before it, outside any block) through the scalar row.
template <auto kBody, auto kScalar, int kBlock, int kDstBpp, typename... Extra>
void AnyYUY2Decode(const uint8_t* src, uint8_t* dst, int width, Extra... extra) {
  const int pairs_width = width & ~1;
  AnyRow<kBody, kBlock, 2, kDstBpp, Extra...>(src, dst, pairs_width, extra...);
  if (width & 1) {
    kScalar(src + 2 * static_cast<ptrdiff_t>(pairs_width), dst + static_cast<ptrdiff_t>(pairs_width) * kDstBpp, 1,
            extra...);
  }
}

// YUY2 encoders: pixel pairs through AnyRow; a lone last pixel (which writes its
// Y and its own U only) through the scalar row.
template <auto kBody, auto kScalar, int kBlock, int kSrcBpp>
void AnyYUY2Encode(const uint8_t* src, uint8_t* dst, int width) {
  const int pairs_width = width & ~1;
  AnyRow<kBody, kBlock, kSrcBpp, 2>(src, dst, pairs_width);
  if (width & 1)
    kScalar(src + kSrcBpp * static_cast<ptrdiff_t>(pairs_width), dst + 2 * static_cast<ptrdiff_t>(pairs_width), 1);
}

}  // namespace
}  // namespace lmx
