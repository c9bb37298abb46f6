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

// The size of the processor's large pages where the system offers them.
inline constexpr size_t kHugePageSize = size_t{2} << 20;

// Asks the system to back the whole large pages inside a block of AlignedAlloc
// with large pages: fewer page faults and translation misses on frame-sized
// planes. Only a hint; false where the system does not take it.
bool AdviseHugePages(void* block, size_t size);

}  // namespace lmx::platform
