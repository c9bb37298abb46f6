// polyphase_lanes.h: the resampler's outputs-in-lanes loop (audio_kernels.h,
// LanesPolyphaseBank), shared by polyphase_avx2.cpp and polyphase_avx512.cpp, which
// compile it for their instruction sets with their own `Lanes` (16 floats in one
// or two registers: Zero, Load, Fma with a broadcast sample, Store). Everything here
// has internal linkage and is inlined into those files. Lanes::kChains: the
// accumulators (of 16 lanes) the registers hold.
//
// Sixteen consecutive outputs sit in the lanes of one accumulator, so no output
// needs a horizontal sum and each tap vector is one aligned load. The same group
// of successive super periods (up to kBlock of them) uses the same vectors at
// inputs `inputs` samples apart: each vector is loaded once for all of them (and
// up to four consecutive groups go together where the registers allow). Every
// lane's sum is one chain of fused multiply-adds over input offsets in ascending
// order; the zeros outside an output's taps leave its chain unchanged (the samples
// are finite), so each output's arithmetic is that of its taps in order, whatever
// group, block or call computes it. A group is computed whole and only its wanted
// lanes stored.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "dsp/audio_kernels.h"

namespace lmx {
namespace {

#define LMX_LANES_INLINE inline __attribute__((always_inline))

// kGroups groups (consecutive, sharing their super periods) times kPeriods super
// periods: one chain each, all fed by the groups' vector loads.
template <class Lanes, int kGroups, int kPeriods>
LMX_LANES_INLINE void AccumulateGroups(const float* taps, int32_t vectors, const float* const* xs,
                                       typename Lanes::Acc* acc) {
  constexpr int kChains = kGroups * kPeriods;
  const int64_t groupStride = static_cast<int64_t>(vectors) * kLanes;
  for (int c = 0; c < kChains; ++c) acc[c] = Lanes::Zero();
  for (int32_t i = 0; i < vectors; ++i) {
#pragma GCC unroll 4
    for (int g = 0; g < kGroups; ++g) {
      const typename Lanes::Acc t = Lanes::Load(taps + g * groupStride + static_cast<int64_t>(i) * kLanes);
#pragma GCC unroll 8
      for (int r = 0; r < kPeriods; ++r)
        acc[g * kPeriods + r] = Lanes::Fma(t, xs[g * kPeriods + r][i], acc[g * kPeriods + r]);
    }
  }
}

// AccumulateGroups for `periods` super periods (1 .. Lanes::kChains / kGroups, the
// accumulators the registers hold).
template <class Lanes, int kGroups, int kPeriods = 1>
LMX_LANES_INLINE void Accumulate(int periods, const float* taps, int32_t vectors, const float* const* xs,
                                 typename Lanes::Acc* acc) {
  if constexpr (kGroups * (kPeriods + 1) > Lanes::kChains) {
    AccumulateGroups<Lanes, kGroups, kPeriods>(taps, vectors, xs, acc);
  } else if (periods == kPeriods) {
    AccumulateGroups<Lanes, kGroups, kPeriods>(taps, vectors, xs, acc);
  } else {
    Accumulate<Lanes, kGroups, kPeriods + 1>(periods, taps, vectors, xs, acc);
  }
}

template <class Lanes>
LMX_LANES_INLINE void RunLanes(const LanesPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                               float gain, int16_t* out) {
  constexpr int kBlock = Lanes::kChains;  // super periods at a time
  constexpr int kMaxGroups = 4;
  const int64_t phases = bank.phases;
  const int64_t period = bank.outputs;
  // The call's first output is output `first` of a super period whose first output
  // lies at sample `base` (phase 0): the outputs with its phase are those o with
  // o * step = phase (mod phases).
  const int64_t first = (position % phases) * bank.stepInverse % phases;
  const int64_t base = (position - first * bank.step) / phases;
  const int64_t end = first + count;
  const int64_t periods = (end + period - 1) / period;
  // The super periods of [r0, rEnd) in which group g has wanted outputs.
  auto wanted = [&](int64_t g, int64_t r0, int64_t rEnd) {
    const int64_t lead = g * kLanes;
    int64_t lo = r0, hi = rEnd;
    while (lo < hi && lo * period + lead + kLanes <= first) ++lo;
    while (hi > lo && (hi - 1) * period + lead >= end) --hi;
    return std::pair{lo, hi};
  };
  for (int64_t r0 = 0; r0 < periods; r0 += kBlock) {
    const int64_t rEnd = std::min<int64_t>(periods, r0 + kBlock);
    for (int64_t g = 0; g < bank.groups;) {
      const auto [lo, hi] = wanted(g, r0, rEnd);
      if (lo == hi) {
        ++g;
        continue;
      }
      const int n = static_cast<int>(hi - lo);
      // Up to kMaxGroups consecutive groups at once where they all want the same
      // super periods and their chains fit: a call of a few super periods (a
      // chunk) has too few chains in one group to hide the latency of the
      // multiply-adds.
      int groups = 1;
      while (groups < kMaxGroups && (groups + 1) * n <= Lanes::kChains && g + groups < bank.groups &&
             wanted(g + groups, r0, rEnd) == std::pair{lo, hi})
        ++groups;
      const float* taps = bank.taps + g * bank.vectors * kLanes;
      const float* xs[kBlock];
      for (int k = 0; k < groups; ++k)
        for (int64_t r = lo; r < hi; ++r) xs[k * n + (r - lo)] = x + (base + r * bank.inputs + bank.offsets[g + k]);
      typename Lanes::Acc acc[kBlock];
      switch (groups) {
        case 4:
          Accumulate<Lanes, 4>(n, taps, bank.vectors, xs, acc);
          break;
        case 3:
          Accumulate<Lanes, 3>(n, taps, bank.vectors, xs, acc);
          break;
        case 2:
          Accumulate<Lanes, 2>(n, taps, bank.vectors, xs, acc);
          break;
        default:
          Accumulate<Lanes, 1>(n, taps, bank.vectors, xs, acc);
      }
      for (int k = 0; k < groups; ++k, ++g) {
        const int64_t lead = g * kLanes;
        const int64_t valid = std::min<int64_t>(kLanes, period - lead);
        for (int64_t r = lo; r < hi; ++r) {
          const int64_t at = r * period + lead;  // lane 0's output
          const int from = static_cast<int>(std::max<int64_t>(0, first - at));
          const int to = static_cast<int>(std::min<int64_t>(valid, end - at));
          Lanes::Store(acc[k * n + (r - lo)], gain, out + (at + from - first), from, to);
        }
      }
    }
  }
}

#undef LMX_LANES_INLINE

}  // namespace
}  // namespace lmx
