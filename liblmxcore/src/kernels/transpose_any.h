// transpose_any.h: the blocked plane transpose behind the SIMD rotations.
//
// A rotation by 90 or 270 degrees is a transpose with one side walked
// bottom-up: destination row x, pixel y is source row y, pixel x. The drivers
// here run a SIMD tile kernel over the whole tiles of the plane and move the
// pixels of the partial tiles at the right and bottom edges one at a time.
// Tiles go in vertical bands of kBandBytes source bytes: within a band, strip
// after strip of source rows, left to right. So the reads of a strip stay on a
// few rows, and the destination rows being filled (one per source column of
// the band) stay few enough to remain cached between strips; without bands, a
// wide plane of large pixels touches a page per destination row on every
// strip. How wide a band pays depends on the tile: narrow bands (a tile or
// two) keep the destination rows being written down to a handful of
// sequential streams, which is what the wider AVX2 tiles want.
//
// Included only by the SIMD files, like row_any.h and for the same reason:
// everything has internal linkage, so each file gets its own copies compiled
// with its instruction set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lmx {
namespace {

// Pixels of source rows [y0, y1) and columns [x0, x1), one at a time.
template <int kBpp>
void TransposePixels(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int x0, int x1, int y0,
                     int y1) {
  for (int x = x0; x < x1; ++x) {
    uint8_t* d = dst + x * dst_pitch;
    for (int y = y0; y < y1; ++y) {
      std::memcpy(d + static_cast<ptrdiff_t>(y) * kBpp, src + y * src_pitch + static_cast<ptrdiff_t>(x) * kBpp, kBpp);
    }
  }
}

// kTile(src, src_pitch, dst, dst_pitch) transposes one tile of kTileW columns
// and kTileH rows of kBpp-byte pixels, over the whole tiles of columns
// [0, width - width % kTileW) and rows [0, height - height % kTileH); returns
// the number of rows covered.
template <auto kTile, int kTileW, int kTileH, int kBpp, int kBandBytes>
int TransposeTiles(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height) {
  const int whole_w = width - width % kTileW;
  const int whole_h = height - height % kTileH;
  constexpr int kBand = kBandBytes / kBpp;
  static_assert(kBand % kTileW == 0, "a band holds whole tiles");
  for (int x0 = 0; x0 < whole_w; x0 += kBand) {
    const int x1 = whole_w - x0 < kBand ? whole_w : x0 + kBand;
    for (int y = 0; y < whole_h; y += kTileH) {
      const uint8_t* s = src + y * src_pitch;
      uint8_t* d = dst + static_cast<ptrdiff_t>(y) * kBpp;
      for (int x = x0; x < x1; x += kTileW) {
        kTile(s + static_cast<ptrdiff_t>(x) * kBpp, src_pitch, d + x * dst_pitch, dst_pitch);
      }
    }
  }
  return whole_h;
}

// Square tiles of kTileSize pixels, then the partial tiles at the right and
// bottom edges pixel by pixel.
template <auto kTile, int kTileSize, int kBpp, int kBandBytes = 1024>
void TransposeBlocked(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                      int height) {
  const int whole_w = width - width % kTileSize;
  const int whole_h =
      TransposeTiles<kTile, kTileSize, kTileSize, kBpp, kBandBytes>(src, src_pitch, dst, dst_pitch, width, height);
  TransposePixels<kBpp>(src, src_pitch, dst, dst_pitch, whole_w, width, 0, height);
  TransposePixels<kBpp>(src, src_pitch, dst, dst_pitch, 0, whole_w, whole_h, height);
}

// Tall tiles of kTileSize columns and 2 * kTileSize rows over most of the
// plane; the rows left below them by square tiles where a whole one fits, and
// the partial tiles at the edges pixel by pixel.
template <auto kTallTile, auto kSquareTile, int kTileSize, int kBpp, int kBandBytes>
void TransposeBlockedTall(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                          int height) {
  const int whole_w = width - width % kTileSize;
  int whole_h = TransposeTiles<kTallTile, kTileSize, 2 * kTileSize, kBpp, kBandBytes>(src, src_pitch, dst, dst_pitch,
                                                                                      width, height);
  if (height - whole_h >= kTileSize) {  // else the pointers below would leave the planes
    whole_h += TransposeTiles<kSquareTile, kTileSize, kTileSize, kBpp, kBandBytes>(
        src + whole_h * src_pitch, src_pitch, dst + static_cast<ptrdiff_t>(whole_h) * kBpp, dst_pitch, width,
        height - whole_h);
  }
  TransposePixels<kBpp>(src, src_pitch, dst, dst_pitch, whole_w, width, 0, height);
  TransposePixels<kBpp>(src, src_pitch, dst, dst_pitch, 0, whole_w, whole_h, height);
}

// The two rotations as transposes: 90 degrees clockwise reads the source
// bottom-up, 270 degrees writes the destination bottom-up.
template <auto kTranspose>
void Rotate90ByTranspose(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                         int height) {
  kTranspose(src + (height - 1) * src_pitch, -src_pitch, dst, dst_pitch, width, height);
}
template <auto kTranspose>
void Rotate270ByTranspose(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                          int height) {
  kTranspose(src, src_pitch, dst + (width - 1) * dst_pitch, -dst_pitch, width, height);
}

}  // namespace
}  // namespace lmx
