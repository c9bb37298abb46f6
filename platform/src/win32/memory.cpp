// Aligned memory on Windows: blocks of _aligned_malloc must be freed with
// _aligned_free, never with free.
#include "lmx/platform/memory.h"

#include <malloc.h>

namespace lmx::platform {

void* AlignedAlloc(size_t size, size_t alignment) {
  if (alignment == 0 || (alignment & (alignment - 1))) return nullptr;
  return _aligned_malloc(size ? size : 1, alignment);
}

void AlignedFree(void* block) {
  if (block) _aligned_free(block);
}

// Large pages on Windows need a privilege and VirtualAlloc'd memory; heap blocks
// stay on small pages.
size_t HugePageSize() { return 0; }

bool AdviseHugePages(void*, size_t) { return false; }

}  // namespace lmx::platform
