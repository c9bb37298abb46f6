// Processor feature detection and the mask that tests use to restrict it.
#include "kernels/cpu_features.h"

#include <atomic>

#include "kernels/dispatch.h"

namespace lmx::kernels {
namespace {

uint32_t Detect() {
  uint32_t features = 0;
#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
  __builtin_cpu_init();
  if (__builtin_cpu_supports("sse2")) features |= kCpuHasSSE2;
  if (__builtin_cpu_supports("ssse3")) features |= kCpuHasSSSE3;
  if (__builtin_cpu_supports("avx2")) features |= kCpuHasAVX2;
#endif
  return features;
}

std::atomic<uint32_t> g_mask{kCpuAllFeatures};

}  // namespace

uint32_t DetectedCpuFeatures() {
  static const uint32_t features = Detect();
  return features;
}

uint32_t CpuFeatures() { return DetectedCpuFeatures() & g_mask.load(std::memory_order_relaxed); }

ScopedCpuFeatureMask::ScopedCpuFeatureMask(uint32_t allowed)
    : previous_(g_mask.exchange(allowed, std::memory_order_relaxed)) {
  RefreshRowKernels();
}

ScopedCpuFeatureMask::~ScopedCpuFeatureMask() {
  g_mask.store(previous_, std::memory_order_relaxed);
  RefreshRowKernels();
}

}  // namespace lmx::kernels
