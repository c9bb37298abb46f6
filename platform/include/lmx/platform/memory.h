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

// The size of the large pages that AdviseHugePages can ask for; 0 where the system
// offers none to ordinary heap blocks.
size_t HugePageSize();

// Asks the system to back the whole large pages inside a block of AlignedAlloc
// with large pages: one page fault instead of 512 when a fresh frame-sized plane
// is first written. Only a hint; false where the system does not take it.
bool AdviseHugePages(void* block, size_t size);

}  // namespace lmx::platform
