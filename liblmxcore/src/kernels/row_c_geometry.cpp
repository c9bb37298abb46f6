// Scalar rows that move pixels without changing them: copy, fill, mirror, and
// the plane rotations.
#include <cstring>

#include "kernels/row.h"

namespace lmx {
namespace {

template <int kBpp>
void MirrorPixels(const uint8_t* src, uint8_t* dst, int width) {
  const uint8_t* s = src + static_cast<ptrdiff_t>(width - 1) * kBpp;
  for (int x = 0; x < width; ++x, s -= kBpp, dst += kBpp) std::memcpy(dst, s, kBpp);
}

template <int kBpp>
void RotatePixels(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height,
                  bool clockwise) {
  // Destination row r is source column r (read bottom-up for 90 degrees) or
  // source column width-1-r (read top-down for 270 degrees).
  for (int r = 0; r < width; ++r) {
    uint8_t* d = dst + r * dst_pitch;
    const int column = clockwise ? r : width - 1 - r;
    for (int c = 0; c < height; ++c) {
      const int row = clockwise ? height - 1 - c : c;
      std::memcpy(d + static_cast<ptrdiff_t>(c) * kBpp, src + row * src_pitch + static_cast<ptrdiff_t>(column) * kBpp,
                  kBpp);
    }
  }
}

void RotatePlane(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height,
                 int bpp, bool clockwise) {
  switch (bpp) {
    case 1:
      return RotatePixels<1>(src, src_pitch, dst, dst_pitch, width, height, clockwise);
    case 2:
      return RotatePixels<2>(src, src_pitch, dst, dst_pitch, width, height, clockwise);
    case 3:
      return RotatePixels<3>(src, src_pitch, dst, dst_pitch, width, height, clockwise);
    case 4:
      return RotatePixels<4>(src, src_pitch, dst, dst_pitch, width, height, clockwise);
    case 8:
      return RotatePixels<8>(src, src_pitch, dst, dst_pitch, width, height, clockwise);
    default:
      return;  // the driver admits only the sizes above
  }
}

}  // namespace

void CopyRow_C(const uint8_t* src, uint8_t* dst, int count) {
  if (src != dst) std::memmove(dst, src, static_cast<size_t>(count));
}

void SetRow_C(uint8_t* dst, uint8_t value, int count) { std::memset(dst, value, static_cast<size_t>(count)); }

void MirrorRow_C(const uint8_t* src, uint8_t* dst, int width) { MirrorPixels<1>(src, dst, width); }
void MirrorRow2_C(const uint8_t* src, uint8_t* dst, int width) { MirrorPixels<2>(src, dst, width); }
void MirrorRow3_C(const uint8_t* src, uint8_t* dst, int width) { MirrorPixels<3>(src, dst, width); }
void MirrorRow4_C(const uint8_t* src, uint8_t* dst, int width) { MirrorPixels<4>(src, dst, width); }
void MirrorRow8_C(const uint8_t* src, uint8_t* dst, int width) { MirrorPixels<8>(src, dst, width); }

void MirrorYUY2Row_C(const uint8_t* src, uint8_t* dst, int width) {
  const int pairs = width / 2;
  const bool lone = (width & 1) != 0;
  for (int j = 0; j < pairs; ++j) {
    // Source pair holding pixel width-1-2j, and the pixel landing on position 2j+1.
    const int p = (width - 1 - 2 * j) / 2;
    const uint8_t* s = src + 4 * p;
    uint8_t* d = dst + 4 * j;
    const int second = width - 2 - 2 * j;  // source pixel for the pair's second position
    d[0] = src[2 * (width - 1 - 2 * j)];
    d[2] = src[2 * second];
    d[1] = s[1];
    // The lone last pixel has no V byte: borrow the V of the pair before it.
    d[3] = (lone && p == pairs) ? src[4 * (p - 1) + 3] : s[3];
  }
  if (lone) {
    dst[4 * pairs] = src[0];
    dst[4 * pairs + 1] = src[1];
  }
}

void RotatePlane90_C(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height,
                     int bpp) {
  RotatePlane(src, src_pitch, dst, dst_pitch, width, height, bpp, true);
}

void RotatePlane270_C(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height,
                      int bpp) {
  RotatePlane(src, src_pitch, dst, dst_pitch, width, height, bpp, false);
}

}  // namespace lmx
