// polyphase_lanes.h: the resampler's outputs-in-lanes loop (audio_kernels.h,
// LanesPolyphaseBank), shared by polyphase_avx2.cpp and polyphase_avx512.cpp, which
// compile it for their instruction sets with their own `Lanes` (16 floats in one
// or two registers: Zero, Load, Fma with a broadcast sample, Store). Everything here
// has internal linkage and is inlined into those files.
//
// Sixteen consecutive outputs sit in the lanes of one accumulator, so no output
// needs a horizontal sum and each tap vector is one aligned load. The same group
// of successive super periods (up to kBlock of them) uses the same vectors at
// inputs `inputs` samples apart: each vector is loaded once for all of them. Every
// lane's sum is one chain of fused multiply-adds over input offsets in ascending
// order; the zeros outside an output's taps leave its chain unchanged (the samples
// are finite), so each output's arithmetic is that of its taps in order, whatever
// group, block or call computes it. A group is computed whole and only its wanted
// lanes stored.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "dsp/audio_kernels.h"

namespace lmx {
namespace {

#define LMX_LANES_INLINE inline __attribute__((always_inline))

constexpr int kBlock = 4;  // super periods sharing each vector load

template <class Lanes, int kPeriods>
LMX_LANES_INLINE void AccumulateGroup(const float* taps, int32_t vectors, const float* const* xs,
                                      typename Lanes::Acc* acc) {
  for (int r = 0; r < kPeriods; ++r) acc[r] = Lanes::Zero();
  for (int32_t i = 0; i < vectors; ++i) {
    const typename Lanes::Acc t = Lanes::Load(taps + static_cast<int64_t>(i) * kLanes);
#pragma GCC unroll 4
    for (int r = 0; r < kPeriods; ++r) acc[r] = Lanes::Fma(t, xs[r][i], acc[r]);
  }
}

template <class Lanes>
LMX_LANES_INLINE void RunLanes(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                               float gain, int16_t* out) {
  const int64_t phases = bank.phases;
  const int64_t period = bank.outputs;
  // The call's first output is output `first` of a super period whose first output
  // lies at sample `base` (phase 0): the outputs with its phase are those o with
  // o * step = phase (mod phases).
  const int64_t first = (position % phases) * bank.stepInverse % phases;
  const int64_t base = (position - first * bank.step) / phases;
  const int64_t end = first + count;
  const int64_t periods = (end + period - 1) / period;
  for (int64_t r0 = 0; r0 < periods; r0 += kBlock) {
    const int64_t rEnd = std::min<int64_t>(periods, r0 + kBlock);
    for (int32_t g = 0; g < bank.groups; ++g) {
      const int64_t lead = static_cast<int64_t>(g) * kLanes;  // the group's first output in a super period
      int64_t lo = r0, hi = rEnd;  // the super periods in which the group has wanted outputs
      while (lo < hi && lo * period + lead + kLanes <= first) ++lo;
      while (hi > lo && (hi - 1) * period + lead >= end) --hi;
      if (lo == hi) continue;
      const float* taps = bank.taps + static_cast<int64_t>(g) * bank.vectors * kLanes;
      const float* xs[kBlock];
      for (int64_t r = lo; r < hi; ++r) xs[r - lo] = x + (base + r * bank.inputs + bank.offsets[g]);
      typename Lanes::Acc acc[kBlock];
      switch (hi - lo) {
        case 1: AccumulateGroup<Lanes, 1>(taps, bank.vectors, xs, acc); break;
        case 2: AccumulateGroup<Lanes, 2>(taps, bank.vectors, xs, acc); break;
        case 3: AccumulateGroup<Lanes, 3>(taps, bank.vectors, xs, acc); break;
        default: AccumulateGroup<Lanes, 4>(taps, bank.vectors, xs, acc); break;
      }
      const int64_t valid = std::min<int64_t>(kLanes, period - lead);
      for (int64_t r = lo; r < hi; ++r) {
        const int64_t at = r * period + lead;  // lane 0's output
        const int from = static_cast<int>(std::max<int64_t>(0, first - at));
        const int to = static_cast<int>(std::min<int64_t>(valid, end - at));
        Lanes::Store(acc[r - lo], gain, out + (at + from - first), from, to);
      }
    }
  }
}

#undef LMX_LANES_INLINE

}  // namespace
}  // namespace lmx
