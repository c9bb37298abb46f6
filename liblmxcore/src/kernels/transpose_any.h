// transpose_any.h: the blocked plane transpose behind the SIMD rotations.
//
// A rotation by 90 or 270 degrees is a transpose with one side walked
// bottom-up: destination row x, pixel y is source row y, pixel x. The driver
// here runs a SIMD tile kernel over the whole square tiles of the plane and
// moves the pixels of the partial tiles at the right and bottom edges one at a
// time. Tiles go in vertical bands of kBandBytes source bytes: within a band,
// strip after strip of source rows, left to right. So the reads of a strip
// stay on a few rows, and the destination rows being filled (one per source
// column of the band) stay few enough to remain cached between strips; without
// bands, a wide plane of large pixels touches a page per destination row on
// every strip.
//
// Included only by the SIMD files, like row_any.h and for the same reason:
// everything has internal linkage, so each file gets its own copies compiled
// with its instruction set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lmx::kernels {
namespace {

// Pixels of source rows [y0, y1) and columns [x0, x1), one at a time.
template <int kBpp>
void TransposePixels(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int x0, int x1,
                     int y0, int y1) {
  for (int x = x0; x < x1; ++x) {
    uint8_t* d = dst + x * dst_pitch;
    for (int y = y0; y < y1; ++y) {
      std::memcpy(d + static_cast<ptrdiff_t>(y) * kBpp, src + y * src_pitch + static_cast<ptrdiff_t>(x) * kBpp, kBpp);
    }
  }
}

// kTile(src, src_pitch, dst, dst_pitch) transposes one kTileSize x kTileSize
// tile of kBpp-byte pixels.
template <auto kTile, int kTileSize, int kBpp, int kBandBytes = 1024>
void TransposeBlocked(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                      int height) {
  const int whole_w = width - width % kTileSize;
  const int whole_h = height - height % kTileSize;
  constexpr int kBand = kBandBytes / kBpp;  // a multiple of kTileSize
  for (int x0 = 0; x0 < whole_w; x0 += kBand) {
    const int x1 = whole_w - x0 < kBand ? whole_w : x0 + kBand;
    for (int y = 0; y < whole_h; y += kTileSize) {
      const uint8_t* s = src + y * src_pitch;
      uint8_t* d = dst + static_cast<ptrdiff_t>(y) * kBpp;
      for (int x = x0; x < x1; x += kTileSize) {
        kTile(s + static_cast<ptrdiff_t>(x) * kBpp, src_pitch, d + x * dst_pitch, dst_pitch);
      }
    }
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
}  // namespace lmx::kernels
