// band_pool.h: large conversions split into row bands across threads.
//
// RunBands(units, grain, bytes, body) calls body(begin, end) over disjoint
// ranges that together cover [0, units) exactly once; every range but the last
// starts and ends on a multiple of `grain` (2 keeps 4:2:0 row pairs together).
// `bytes` is the work's size (bytes read plus written). The body runs once, over
// the whole range on the calling thread, when the work is below the band
// threshold (24 MiB by default: see kDefaultBandThresholdBytes), when the thread limit is 1, when the caller is itself
// running a band (a conversion inside a band), or when no band thread is idle. Otherwise the range is cut into bands of
// about half a MiB of work each (at least a few per thread), idle band threads are handed the job and the caller takes
// bands too (the caller from the front, band threads from the back); it returns once every band has run. A caller waits
// only for bands that a thread took from its own job: a busy thread is never waited for, so a conversion never stalls
// behind another frame's bands.
//
// Memory ordering: everything the bands wrote is visible to the caller when
// RunBands returns.
//
// The band threads start on the first job that wants them, sleep when idle,
// are named "lmx-band-N", and are stopped and joined when the library is
// unloaded. While banded jobs come at a steady rate (a camera's large frames), a
// band thread wakes 0.3 ms before the next is due and spins until it comes, or
// until 0.3 ms after it was due; then it sleeps with no time limit.
//
// Example:
//   RunBands(height, 1, int64_t(width) * 8 * height, [&](int32_t begin, int32_t end) {
//     for (int32_t r = begin; r < end; ++r) row(src + r * src_pitch, dst + r * dst_pitch, width);
//   });
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace lmx {

// The number of threads a conversion may run on, the caller included. 0 (or
// less) restores the default: the environment variable LMX_THREADS when it
// holds a positive number, else the number of logical processors. 1 runs every
// conversion on its caller alone. Values above 64 are taken as 64. Thread-safe;
// conversions already running keep the threads they have.
void SetConversionThreadLimit(int32_t threads);
inline constexpr int32_t kMaxConversionThreads = 64;
int32_t ConversionThreadLimit();

// Work below this many bytes (read plus written) runs on the caller alone.
// Tests lower it to band small images; returns the previous value.
int64_t SetBandThresholdBytes(int64_t bytes);

// How many jobs have been split across threads since load (tests, benchmarks).
uint64_t BandedJobCount();

// Where a banded job's time goes, summed over the banded jobs since load
// (benchmarks): the caller's time handing bands to idle threads (the wake-up
// calls), the time from the hand-off's start until a band thread picked the job
// up (over the jobs where one did), and how many bands the caller ran of all.
struct BandTimings {
  int64_t handoff_us, helper_start_us, helper_starts, caller_bands, bands;
};
BandTimings BandedJobTimings();

namespace detail {

// Work a frame must move before a second thread pays off. Waking an idle band
// thread costs the caller the wake-up call itself (17 us median, 44 us at the
// 90th percentile on a virtual machine, where it is a cross-processor
// interrupt), and the band thread starts 12 to 100 us later on cold caches,
// while a frame that fits the last-level cache converts at cache speed on one
// core. Banded, 1920x1080 frames (8 to 16.6 MB of work) ran at 0.59 to 0.96x
// of one thread and 3840x2160 ones (33 MB and more) at 1.4 to 1.7x, so the
// threshold sits between the two; 640x480 and 1280x720 never pay for threads.
inline constexpr int64_t kDefaultBandThresholdBytes = 24 << 20;
extern std::atomic<int64_t> g_band_threshold_bytes;

struct BandJob {
  void (*run)(void* body, int32_t begin, int32_t end);
  void* body;
  int32_t units;
  int32_t grain;
  int64_t bytes;
};

// Splits and runs a job that is large enough to be worth it.
void RunBandJob(const BandJob& job);

}  // namespace detail

template <class Body>
void RunBands(int32_t units, int32_t grain, int64_t bytes, Body&& body) {
  if (bytes < detail::g_band_threshold_bytes.load(std::memory_order_relaxed) || units < 2 * grain) {
    body(int32_t{0}, units);
    return;
  }
  using B = std::remove_reference_t<Body>;
  detail::RunBandJob({[](void* b, int32_t begin, int32_t end) { (*static_cast<B*>(b))(begin, end); },
                      const_cast<void*>(static_cast<const void*>(&body)), units, grain, bytes});
}

}  // namespace lmx
