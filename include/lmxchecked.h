// lmxchecked.h: 64-bit arithmetic for sizes, pitches, offsets and counts computed
// from values a caller passed. A result that does not fit in int64_t is no result
// (an empty Checked) instead of undefined behaviour, and every later step of a
// chain stays empty; the site then asks for the range it needs.
//
//   CheckedAdd(a, b)                a + b
//   CheckedMul(a, b)                a * b
//   CheckedAlignUp(v, alignment)    v rounded up to a multiple of alignment; empty
//                                   for a negative v or an alignment below 1
//   IsSize32(v)                     v is a value in 0..INT32_MAX (a size the
//                                   descriptions' signed 32-bit fields can hold)
//
// Example (a plane of an image):
//   const Checked pitch = CheckedAlignUp(CheckedMul(width, bytesPerPixel), 64);
//   const Checked size = CheckedMul(pitch, height);
//   if (!IsSize32(pitch) || !IsSize32(size)) ...  // refuse, never allocate
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace Norvik::Lumetra {

using Checked = std::optional<int64_t>;

inline Checked CheckedAdd(Checked a, Checked b) {
  int64_t sum = 0;
  if (!a || !b || __builtin_add_overflow(*a, *b, &sum)) return std::nullopt;
  return sum;
}

inline Checked CheckedMul(Checked a, Checked b) {
  int64_t product = 0;
  if (!a || !b || __builtin_mul_overflow(*a, *b, &product)) return std::nullopt;
  return product;
}

inline Checked CheckedAlignUp(Checked value, int64_t alignment) {
  if (!value || *value < 0 || alignment < 1) return std::nullopt;
  const Checked padded = CheckedAdd(value, alignment - 1);
  if (!padded) return std::nullopt;
  return *padded / alignment * alignment;
}

inline bool IsSize32(Checked value) { return value && *value >= 0 && *value <= std::numeric_limits<int32_t>::max(); }

}  // namespace Norvik::Lumetra
