// Processor feature detection and the mask that tests and benchmarks use to restrict it.
#include "cpu/cpu_features.h"

#include <atomic>
#include <cstdlib>

#include "lmx/platform/thread_annotations.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace lmx {
namespace {

#if defined(__x86_64__) || defined(__i386__)

struct CpuidRegs {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
};

CpuidRegs Cpuid(unsigned leaf, unsigned subleaf) {
  CpuidRegs r;
  if (!__get_cpuid_count(leaf, subleaf, &r.eax, &r.ebx, &r.ecx, &r.edx)) return {};
  return r;
}

// XCR0: which register states the operating system saves. Only valid when
// CPUID reports OSXSAVE; the instruction is encoded directly so this file needs
// no -mxsave.
uint64_t ReadXcr0() {
  unsigned lo = 0, hi = 0;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  return (static_cast<uint64_t>(hi) << 32) | lo;
}

uint32_t Detect() {
  const CpuidRegs leaf0 = Cpuid(0, 0);
  if (leaf0.eax < 1) return 0;
  const CpuidRegs leaf1 = Cpuid(1, 0);
  const CpuidRegs leaf7 = leaf0.eax >= 7 ? Cpuid(7, 0) : CpuidRegs{};

  uint32_t features = 0;
  if (leaf1.edx & (1u << 26)) features |= kCpuHasSSE2;
  if ((features & kCpuHasSSE2) && (leaf1.ecx & (1u << 9))) features |= kCpuHasSSSE3;
  if ((features & kCpuHasSSSE3) && (leaf1.ecx & (1u << 19))) features |= kCpuHasSSE41;

  const bool osxsave = (leaf1.ecx & (1u << 27)) != 0;
  const uint64_t xcr0 = osxsave ? ReadXcr0() : 0;
  const bool os_saves_ymm = (xcr0 & 0x6) == 0x6;                    // SSE and AVX state
  const bool os_saves_zmm = os_saves_ymm && (xcr0 & 0xE0) == 0xE0;  // opmask, ZMM0-15 upper, ZMM16-31
  const bool avx = (leaf1.ecx & (1u << 28)) != 0;
  const bool avx2 = (leaf7.ebx & (1u << 5)) != 0;
  if ((features & kCpuHasSSE41) && avx && avx2 && os_saves_ymm) features |= kCpuHasAVX2;
  const bool avx512f = (leaf7.ebx & (1u << 16)) != 0;
  const bool avx512bw = (leaf7.ebx & (1u << 30)) != 0;
  const bool avx512vl = (leaf7.ebx & (1u << 31)) != 0;
  if ((features & kCpuHasAVX2) && (leaf1.ecx & (1u << 12))) features |= kCpuHasFMA;
  if ((features & kCpuHasAVX2) && avx512f && avx512bw && avx512vl && os_saves_zmm) features |= kCpuHasAVX512BW;
  if ((features & kCpuHasAVX512BW) && (leaf7.ecx & (1u << 11))) features |= kCpuHasAVX512VNNI;
  return features;
}

#else

uint32_t Detect() { return 0; }  // no x86 SIMD variants exist for other processors

#endif

std::atomic<uint32_t> g_mask{kCpuAllFeatures};

// The tables to refill when the mask changes; constant-initialised, so tables
// filled during the library's static set-up may register.
struct MaskListener {
  void* table;
  void (*refresh)(void*);
};
constexpr int kMaxMaskListeners = 8;
Mutex g_listeners_lock;
MaskListener g_listeners[kMaxMaskListeners] LMX_GUARDED_BY(g_listeners_lock);
int g_listener_count LMX_GUARDED_BY(g_listeners_lock) = 0;

void RefreshListeners() {
  LockGuard hold(g_listeners_lock);
  for (int i = 0; i < g_listener_count; ++i) g_listeners[i].refresh(g_listeners[i].table);
}

}  // namespace

uint32_t DetectedCpuFeatures() {
  static const uint32_t features = Detect();
  return features;
}

void RegisterMaskListener(void* table, void (*refresh)(void*)) {
  LockGuard hold(g_listeners_lock);
  if (g_listener_count == kMaxMaskListeners) std::abort();  // a new kernel family: raise the bound
  g_listeners[g_listener_count++] = {table, refresh};
}

uint32_t CpuFeatures() { return DetectedCpuFeatures() & g_mask.load(std::memory_order_relaxed); }

ScopedCpuFeatureMask::ScopedCpuFeatureMask(uint32_t allowed)
    : previous_(g_mask.exchange(allowed, std::memory_order_relaxed)) {
  RefreshListeners();
}

ScopedCpuFeatureMask::~ScopedCpuFeatureMask() {
  g_mask.store(previous_, std::memory_order_relaxed);
  RefreshListeners();
}

}  // namespace lmx
