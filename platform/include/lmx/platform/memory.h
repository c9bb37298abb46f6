// memory.h: aligned blocks for image planes.
#pragma once

#include <cstddef>

namespace lmx::platform {

// A block of at least size bytes whose address is a multiple of alignment (a power
// of two). The memory is not cleared. Null when the memory cannot be had. A size
// of 0 still yields a distinct block, so callers can tell success from failure.
void* AlignedAlloc(size_t size, size_t alignment);

// Frees a block of AlignedAlloc; null does nothing. Never pass other memory.
void AlignedFree(void* block);

}  // namespace lmx::platform
