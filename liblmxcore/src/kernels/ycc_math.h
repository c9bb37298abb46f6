// ycc_math.h: the per-pixel luma-chroma <-> colour formulas shared by the rows.
//
// Decoding (luma-chroma to colour) is the studio-range BT.601 formula in 16.16
// fixed point that the four-channel YUY2 kernels are defined by, bit exact:
//   L = 76284 * Y - 1187776            (1.164 * 65536; 16 * 76284 - 32768, the
//                                       offset with the rounding half folded in)
//   R = (L + 104595 * v) >> 16         (1.596)
//   G = (L - (25690 * u + 53281 * v)) >> 16   (0.392, 0.813)
//   B = (L + 132186 * u) >> 16         (2.017)
// with u = U - 128, v = V - 128, signed 32-bit arithmetic and an arithmetic shift
// (rounds towards minus infinity, so with the folded half: round to nearest);
// each result is clamped to 0..255.
//
// Encoding (colour to luma-chroma) uses the matching studio-range BT.601 matrix
// in 8.8 fixed point (0.257, 0.504, 0.098 / -0.148, -0.291, 0.439 / 0.439,
// -0.368, -0.071 times 256, rounded):
//   Y = ((66 R + 129 G + 25 B + 128) >> 8) + 16              -> 16..235
//   U = ((-38 R - 74 G + 112 B + 128) >> 8) + 128            -> 16..240
//   V = ((112 R - 94 G - 18 B + 128) >> 8) + 128             -> 16..240
// Chroma of a pixel pair is taken from the sums of both pixels' channels with one
// more bit of shift (>> 9, rounding constant 256), which is the rounded average
// of the two chroma values without an intermediate rounding. A decode followed by
// an encode returns each sample within two levels for colours inside the gamut.
#pragma once

#include <cstdint>

namespace lmx::ycc {

inline constexpr int32_t kLumaGain = 76284;
inline constexpr int32_t kVToRed = 104595;
inline constexpr int32_t kVToGreen = 53281;
inline constexpr int32_t kUToBlue = 132186;
inline constexpr int32_t kUToGreen = 25690;
inline constexpr int32_t kLumaOffset = 1187776;

inline uint8_t Clamp255(int32_t value) { return static_cast<uint8_t>(value < 0 ? 0 : (value > 255 ? 255 : value)); }

struct Rgb {
  uint8_t r, g, b;
};

inline Rgb Decode(uint8_t y, int32_t u, int32_t v) {
  const int32_t luma = kLumaGain * y - kLumaOffset;
  return {Clamp255((luma + kVToRed * v) >> 16), Clamp255((luma - (kUToGreen * u + kVToGreen * v)) >> 16),
          Clamp255((luma + kUToBlue * u) >> 16)};
}

inline uint8_t EncodeY(int32_t r, int32_t g, int32_t b) {
  return static_cast<uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16);
}

// Chroma of one pixel (shift 8) or of the channel sums of two pixels (shift 9).
template <int kShift>
inline uint8_t EncodeU(int32_t r, int32_t g, int32_t b) {
  return static_cast<uint8_t>(((-38 * r - 74 * g + 112 * b + (1 << (kShift - 1))) >> kShift) + 128);
}
template <int kShift>
inline uint8_t EncodeV(int32_t r, int32_t g, int32_t b) {
  return static_cast<uint8_t>(((112 * r - 94 * g - 18 * b + (1 << (kShift - 1))) >> kShift) + 128);
}

}  // namespace lmx::ycc
