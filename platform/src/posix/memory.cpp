// Aligned memory on POSIX: aligned_alloc needs a size that is a multiple of the
// alignment, so the size is rounded up (and at least one alignment unit).
#include "lmx/platform/memory.h"

#include <cstdint>
#include <cstdlib>

namespace lmx::platform {

void* AlignedAlloc(size_t size, size_t alignment) {
  if (alignment < sizeof(void*)) alignment = sizeof(void*);
  if (alignment & (alignment - 1)) return nullptr;
  if (size > SIZE_MAX - alignment) return nullptr;
  size_t rounded = (size + alignment - 1) & ~(alignment - 1);
  if (rounded == 0) rounded = alignment;
  return std::aligned_alloc(alignment, rounded);
}

void AlignedFree(void* block) { std::free(block); }

}  // namespace lmx::platform
