// Buffers shared by the image benchmarks: page-aligned like the object's large
// planes, so both sides of a comparison meet the same alignment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace lmxbench {

struct FreeDeleter {
  void operator()(uint8_t* p) const { std::free(p); }
};
using Buffer = std::unique_ptr<uint8_t[], FreeDeleter>;

inline Buffer AlignedBuffer(size_t bytes) {
  return Buffer(static_cast<uint8_t*>(std::aligned_alloc(4096, (bytes + 4095) / 4096 * 4096)));
}

// Bytes that vary in every channel, so no shortcut for flat input applies.
inline void FillPattern(uint8_t* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + (i >> 11));
}

}  // namespace lmxbench
