// cpu_features.h: which instruction sets the pixel and audio kernels may use, and
// the one way their tables of variants are chosen.
//
// DetectedCpuFeatures() asks the processor once; CpuFeatures() is that set
// restricted by the current mask. Each family of kernels (pixel rows, dispatch.h;
// audio primitives, dsp/audio_kernels.h) has a pure Select function from a feature
// set to a table, and an ActiveKernelTable filled from CpuFeatures(). A table
// registers itself with the mask when it is first filled, and masking features
// refills every registered table, which forces the scalar kernels or one
// instruction set: tests and benchmarks use it to compare the variants. This
// file knows no kernel family; the families depend on it, never the reverse.
#pragma once

#include <cstdint>
#include <mutex>

namespace lmx {

// Each bit means the processor has the instruction set and, for the AVX
// families, that the operating system saves the wider registers on a context
// switch (XCR0 via XGETBV). A kernel variant is selected by its own bit only;
// detection never reports a set without the sets below it.
enum CpuFeature : uint32_t {
  kCpuHasSSE2 = 1u << 0,
  kCpuHasSSSE3 = 1u << 1,
  kCpuHasAVX2 = 1u << 2,
  kCpuHasSSE41 = 1u << 3,
  kCpuHasAVX512BW = 1u << 4,    // AVX-512 F, BW and VL together
  kCpuHasAVX512VNNI = 1u << 5,  // AVX-512 VNNI (16-bit dot products into 32-bit sums), with the above
  kCpuHasFMA = 1u << 6,         // fused multiply-add, with AVX2
  kCpuAllFeatures = ~0u,
};

// Features of the processor, detected once (thread safe, idempotent; also run
// at load through the dispatch table's set-up).
uint32_t DetectedCpuFeatures();

// Detected features AND the current mask.
uint32_t CpuFeatures();

// Restricts CpuFeatures() to `allowed` for the scope and refills every active
// kernel table on entry and exit. Requires: no conversion runs on another thread while
// a mask is installed or removed (tests and benchmarks only). Scopes nest.
// Example: { ScopedCpuFeatureMask scalar(0); RunConversion(); }  // _C kernels only
class ScopedCpuFeatureMask {
 public:
  explicit ScopedCpuFeatureMask(uint32_t allowed);
  ~ScopedCpuFeatureMask();
  ScopedCpuFeatureMask(const ScopedCpuFeatureMask&) = delete;
  ScopedCpuFeatureMask& operator=(const ScopedCpuFeatureMask&) = delete;

 private:
  uint32_t previous_;
};

// Called with `table` each time the mask changes. Registration takes no memory
// from the heap; the number of tables is fixed by the code (a handful).
void RegisterMaskListener(void* table, void (*refresh)(void* table));

// The active table of one family of kernels: chosen by Select from CpuFeatures()
// on first use (thread safe), chosen again by Refresh() when the mask changes.
// Constant-initialised, so it may be used during the library's static set-up.
template <class Table, Table (*Select)(uint32_t)>
class ActiveKernelTable {
 public:
  const Table& Get() {
    std::call_once(once_, [this] {
      table_ = Select(CpuFeatures());
      RegisterMaskListener(this, [](void* self) { static_cast<ActiveKernelTable*>(self)->Refresh(); });
    });
    return table_;
  }
  void Refresh() {
    Get();
    table_ = Select(CpuFeatures());
  }

 private:
  std::once_flag once_;
  Table table_{};
};

}  // namespace lmx
