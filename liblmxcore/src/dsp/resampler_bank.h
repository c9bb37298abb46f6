// resampler_bank.h: the resampler's filter banks, designed once per filter in a
// process and shared.
//
// A bank holds one filter of `length` taps per phase (resampler.h has the design)
// in double precision, the same taps in float, and, where it pays, the float taps
// laid out with outputs in lanes (audio_kernels.h). Designing a bank of 160 phases
// takes most of a millisecond, so SharedBank keeps the banks it designed in a
// process-wide cache: a converter set up for a filter already used costs a lookup.
// The cache is thread-safe and bounded: it keeps the most recently used banks up
// to kCachedBanks and kCachedBytes; a bank leaves it when it is the least recently
// used one beyond those bounds, and lives on while a resampler state holds it. What
// the cache holds is freed when the library is unloaded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/audio_kernels.h"

namespace lmx::dsp {

// The filter: phases L and step M (in lowest terms), taps per phase, the cut-off as
// a fraction of the lower Nyquist frequency and the Kaiser parameter.
struct FilterKey {
  int32_t phases;
  int32_t step;
  int32_t length;
  float rolloff;
  float alpha;
  bool operator==(const FilterKey&) const = default;
};

inline constexpr size_t kCachedBanks = 16;
inline constexpr size_t kCachedBytes = size_t{16} << 20;

class ResamplerBank {
 public:
  // Designs the bank; null when memory runs out. The key must be valid (the
  // resampler's set-up checks it).
  static std::shared_ptr<const ResamplerBank> Design(const FilterKey& key);

  const FilterKey& Key() const { return key_; }
  const double* Taps() const { return taps_.data(); }
  FloatPolyphaseBank Floats() const { return {floats_.get(), key_.length, key_.phases, key_.step}; }
  // Null where the lanes layout would be too large or slower than the per-output path.
  const LanesPolyphaseBank* Lanes() const { return lanes_.taps ? &lanes_ : nullptr; }
  size_t Bytes() const { return bytes_; }

 private:
  struct FreeAligned {
    void operator()(float* p) const;
  };
  using Floats64 = std::unique_ptr<float[], FreeAligned>;
  static Floats64 AllocateFloats(size_t count);
  void LayOutLanes();

  FilterKey key_{};
  std::vector<double> taps_;
  Floats64 floats_;
  Floats64 laneTaps_;
  std::vector<int32_t> laneOffsets_;
  LanesPolyphaseBank lanes_{};
  size_t bytes_ = 0;
};

// The bank for `key` from the cache, designed into it on a miss; null when memory
// runs out. Thread-safe.
std::shared_ptr<const ResamplerBank> SharedBank(const FilterKey& key);

// Banks the cache holds now.
size_t CachedBankCount();

}  // namespace lmx::dsp
