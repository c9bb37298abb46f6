// Scalar rows over 16-bit samples: grey widening and narrowing, 16-bit grey to
// colour, depth shifts and depth to float and back. Samples are native-endian
// and loaded through memcpy, so rows may start at any address.
#include <cmath>
#include <cstring>

#include "kernels/row.h"

namespace lmx {
namespace {

inline uint16_t Load16(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void Store16(uint8_t* p, uint16_t v) { std::memcpy(p, &v, sizeof v); }
inline float LoadF(const uint8_t* p) {
  float v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void StoreF(uint8_t* p, float v) { std::memcpy(p, &v, sizeof v); }

}  // namespace

void Y8ToY16Row_C(const uint8_t* src_y8, uint8_t* dst_y16, int width) {
  for (int x = 0; x < width; ++x) Store16(dst_y16 + 2 * x, static_cast<uint16_t>(src_y8[x] * 257));
}

void Y16ToY8Row_C(const uint8_t* src_y16, uint8_t* dst_y8, int width) {
  for (int x = 0; x < width; ++x) dst_y8[x] = static_cast<uint8_t>(Load16(src_y16 + 2 * x) >> 8);
}

void Y16ToBGRARow_C(const uint8_t* src_y16, uint8_t* dst_bgra, int width) {
  for (int x = 0; x < width; ++x, dst_bgra += 4) {
    const uint8_t grey = static_cast<uint8_t>(Load16(src_y16 + 2 * x) >> 8);
    dst_bgra[0] = dst_bgra[1] = dst_bgra[2] = grey;
    dst_bgra[3] = 255;
  }
}

void DepthShiftRow_C(const uint8_t* src_u16, uint8_t* dst_u16, int width, int shift) {
  for (int x = 0; x < width; ++x) {
    const uint32_t v = Load16(src_u16 + 2 * x);
    uint32_t out;
    if (shift >= 0) {
      // Any non-zero value shifted by 16 or more saturates.
      out = shift >= 16 ? (v ? 65535u : 0u) : v << shift;
      if (out > 65535u) out = 65535u;
    } else {
      out = shift <= -16 ? 0u : v >> -shift;
    }
    Store16(dst_u16 + 2 * x, static_cast<uint16_t>(out));
  }
}

void DepthToFloatRow_C(const uint8_t* src_u16, uint8_t* dst_f32, int width, float scale) {
  for (int x = 0; x < width; ++x) StoreF(dst_f32 + 4 * x, static_cast<float>(Load16(src_u16 + 2 * x)) * scale);
}

void FloatToDepthRow_C(const uint8_t* src_f32, uint8_t* dst_u16, int width, float factor) {
  for (int x = 0; x < width; ++x) {
    const float v = LoadF(src_f32 + 4 * x) * factor;
    uint16_t out;
    if (!(v > 0.0f)) {
      out = 0;  // zero, negatives and NaN
    } else if (v >= 65535.0f) {
      out = 65535;
    } else {
      out = static_cast<uint16_t>(v + 0.5f);
    }
    Store16(dst_u16 + 2 * x, out);
  }
}

}  // namespace lmx
