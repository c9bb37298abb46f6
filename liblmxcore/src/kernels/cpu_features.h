// cpu_features.h: which instruction sets the pixel kernels may use.
//
// DetectedCpuFeatures() asks the processor once; CpuFeatures() is that set
// restricted by the current mask. The dispatch table (dispatch.h) is filled from
// CpuFeatures(), so masking features and refilling the table forces the scalar
// kernels or one instruction set, which tests and benchmarks use to compare the
// variants with each other.
#pragma once

#include <cstdint>

namespace lmx::kernels {

// Each bit means the processor has the instruction set and, for the AVX
// families, that the operating system saves the wider registers on a context
// switch (XCR0 via XGETBV). A kernel variant is selected by its own bit only;
// detection never reports a set without the sets below it.
enum CpuFeature : uint32_t {
  kCpuHasSSE2 = 1u << 0,
  kCpuHasSSSE3 = 1u << 1,
  kCpuHasAVX2 = 1u << 2,
  kCpuHasSSE41 = 1u << 3,
  kCpuHasAVX512BW = 1u << 4,  // AVX-512 F, BW and VL together
  kCpuHasAVX512VNNI = 1u << 5,  // AVX-512 VNNI (16-bit dot products into 32-bit sums), with the above
  kCpuAllFeatures = ~0u,
};

// Features of the processor, detected once (thread safe, idempotent; also run
// at load through the dispatch table's set-up).
uint32_t DetectedCpuFeatures();

// Detected features AND the current mask.
uint32_t CpuFeatures();

// Restricts CpuFeatures() to `allowed` for the scope and refills the dispatch
// table on entry and exit. Requires: no conversion runs on another thread while
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

}  // namespace lmx::kernels
