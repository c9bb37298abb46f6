// Aligned memory on POSIX: aligned_alloc needs a size that is a multiple of the
// alignment, so the size is rounded up (and at least one alignment unit).
#include "lmx/platform/memory.h"

#include <cstdint>
#include <cstdlib>

#include <sys/mman.h>

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

size_t HugePageSize() { return size_t{2} << 20; }

bool AdviseHugePages(void* block, size_t size) {
  // madvise wants page-aligned ranges; only whole large pages inside the block count.
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(block) + HugePageSize() - 1) & ~(HugePageSize() - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(HugePageSize() - 1);
  if (!block || end <= begin) return false;
  return madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE) == 0;
}

}  // namespace lmx::platform
