// cpu_relax.h: the hint a spin-wait loop gives the processor on each turn.
#pragma once

#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__)
#include <immintrin.h>
#endif

namespace lmx {

// Tells the processor that this is a spin-wait loop (a pause on x86, nothing
// elsewhere), which frees the core's resources for its sibling meanwhile.
inline void CpuRelax() {
#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__)
  _mm_pause();
#endif
}

}  // namespace lmx
