// recursive_lock.h: a recursive lock that costs one atomic operation to take and
// one to release.
//
// One atomic word is the lock: 0 free, 1 held, 2 held with sleepers. The owner is
// recorded beside it, so re-entry by the owner only counts. A thread that finds
// the lock held spins briefly (the sections it guards are usually short), then
// sleeps on the word until the holder releases it; the holder wakes a sleeper
// only when one may be there. Sleeping waiters make it fit for long sections too
// (callbacks run under it).
//
// Meets the standard BasicLockable requirements, for std::lock_guard.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "cpu_relax.h"

namespace lmx {

class RecursiveLock {
 public:
  RecursiveLock() = default;
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  void lock() {
    const std::thread::id self = std::this_thread::get_id();
    // Only this thread can have stored its own id, so a relaxed read suffices.
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++depth_;
      return;
    }
    uint32_t expected = kFree;
    if (!state_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed)) {
      LockSlow();
    }
    owner_.store(self, std::memory_order_relaxed);
    depth_ = 1;
  }

  void unlock() {
    if (--depth_ != 0) return;
    owner_.store(std::thread::id(), std::memory_order_relaxed);
    if (state_.exchange(kFree, std::memory_order_release) == kSleepers) state_.notify_one();
  }

 private:
  static constexpr uint32_t kFree = 0;
  static constexpr uint32_t kHeld = 1;
  static constexpr uint32_t kSleepers = 2;  // held, and a waiter may sleep
  static constexpr int kSpins = 64;

  void LockSlow() {
    for (int attempt = 0; attempt < kSpins; ++attempt) {
      CpuRelax();
      uint32_t expected = kFree;
      if (state_.load(std::memory_order_relaxed) == kFree &&
          state_.compare_exchange_weak(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed)) {
        return;
      }
    }
    // Taken as kSleepers: this thread cannot tell whether others still sleep, so
    // its own release wakes one to be safe.
    while (state_.exchange(kSleepers, std::memory_order_acquire) != kFree) state_.wait(kSleepers, std::memory_order_relaxed);
  }

  std::atomic<uint32_t> state_{kFree};
  std::atomic<std::thread::id> owner_{};
  uint32_t depth_ = 0;  // entries by the owner; written only by it
};

}  // namespace lmx
