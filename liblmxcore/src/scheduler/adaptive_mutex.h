// adaptive_mutex.h: a mutex for sections a few instructions long, shared by
// several threads at a high rate.
//
// One atomic word: free, locked, or locked with sleepers. A thread that finds it
// busy spins on reads (not on read-modify-writes, which would take the cache line
// from the holder in the middle of its section), waiting twice as long after each
// read, up to a few microseconds: under contention the holder then keeps the line
// for several sections in a row instead of handing it over at every one, which
// is what makes a contended lock slow. After a bounded spin (some tens of
// microseconds) it marks the word as having sleepers and sleeps on it, so a
// holder that lost its processor is not starved by spinners. Unlocking wakes one
// sleeper only when the word says there may be one.
//
// Meets the standard Lockable requirements, for std::unique_lock.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "scheduler/cpu_relax.h"
#include "lmx/platform/thread_annotations.h"
#include "lmx/platform/word_wait.h"

namespace lmx {

class LMX_CAPABILITY("mutex") AdaptiveMutex {
 public:
  AdaptiveMutex() = default;
  AdaptiveMutex(const AdaptiveMutex&) = delete;
  AdaptiveMutex& operator=(const AdaptiveMutex&) = delete;

  void lock() LMX_ACQUIRE() {
    if (!try_lock()) LockSlow();
  }
  bool try_lock() LMX_TRY_ACQUIRE(true) {
    uint32_t expected = kFree;
    return state_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire, std::memory_order_relaxed);
  }
  void unlock() LMX_RELEASE() {
    if (state_.exchange(kFree, std::memory_order_release) == kSleepers) platform::WakeOne(state_);
  }

 private:
  static constexpr uint32_t kFree = 0;
  static constexpr uint32_t kLocked = 1;
  static constexpr uint32_t kSleepers = 2;  // locked, and a thread may sleep on it
  static constexpr int kMaxPauses = 128;    // the longest wait between two reads
  static constexpr int kSpinPauses = 1024;  // the whole spin before sleeping

  void LockSlow() LMX_NO_THREAD_SAFETY_ANALYSIS {  // acquires, by its try_lock or its exchange
    for (int pauses = 1, spent = 0; spent < kSpinPauses; pauses = std::min(pauses * 2, kMaxPauses)) {
      for (int i = 0; i < pauses; ++i) CpuRelax();
      spent += pauses;
      if (state_.load(std::memory_order_relaxed) == kFree && try_lock()) return;
    }
    // Taken with the sleeper mark, since other sleepers may remain behind this
    // thread: the next unlock must wake one of them.
    while (state_.exchange(kSleepers, std::memory_order_acquire) != kFree) {
      platform::WaitWhileEqual(state_, kSleepers);
    }
  }

  std::atomic<uint32_t> state_{kFree};
};

}  // namespace lmx
