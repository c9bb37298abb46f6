// spin_rw_lock.h: a reader/writer lock for sections a few dozen instructions long.
//
// One atomic word and no system call: taking and releasing it uncontended costs
// one atomic read-modify-write and, for a writer, one plain store, where a
// general-purpose reader/writer lock costs several and a call into the C library.
// A waiter spins briefly, then yields the processor on every further attempt, so a
// holder that lost its processor gets it back instead of being starved by
// spinners. A waiting writer holds new readers back, so a stream of readers cannot
// starve it. Not recursive; fit only for sections that never block.
//
// Meets the standard Lockable and SharedLockable requirements, so std::unique_lock
// and std::shared_lock work with it.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "lmx/platform/thread_annotations.h"
#include "scheduler/cpu_relax.h"

namespace lmx {

class LMX_CAPABILITY("mutex") SpinRwLock {
 public:
  SpinRwLock() = default;
  SpinRwLock(const SpinRwLock&) = delete;
  SpinRwLock& operator=(const SpinRwLock&) = delete;

  void lock() LMX_ACQUIRE() {
    uint32_t expected = 0;
    if (!state_.compare_exchange_weak(expected, kWriter, std::memory_order_acquire, std::memory_order_relaxed)) {
      LockSlow();
    }
  }
  bool try_lock() LMX_TRY_ACQUIRE(true) {
    uint32_t expected = 0;
    return state_.compare_exchange_strong(expected, kWriter, std::memory_order_acquire, std::memory_order_relaxed);
  }
  // Also drops a waiting writer's hold on readers; that writer sets it again.
  void unlock() LMX_RELEASE() { state_.store(0, std::memory_order_release); }

  void lock_shared() LMX_ACQUIRE_SHARED() {
    uint32_t state = state_.load(std::memory_order_relaxed);
    if ((state & kBlocksReaders) != 0 ||
        !state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
      LockSharedSlow();
    }
  }
  bool try_lock_shared() LMX_TRY_ACQUIRE_SHARED(true) {
    uint32_t state = state_.load(std::memory_order_relaxed);
    return (state & kBlocksReaders) == 0 &&
           state_.compare_exchange_strong(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed);
  }
  void unlock_shared() LMX_RELEASE_SHARED() { state_.fetch_sub(1, std::memory_order_release); }

 private:
  static constexpr uint32_t kWriter = 1u << 31;         // held exclusively
  static constexpr uint32_t kWriterWaiting = 1u << 30;  // keeps new readers out
  static constexpr uint32_t kBlocksReaders = kWriter | kWriterWaiting;
  static constexpr int kSpins = 64;  // attempts before yielding the processor

  static void Pause(int attempt) {
    if (attempt < kSpins) {
      CpuRelax();
    } else {
      std::this_thread::yield();
    }
  }

  void LockSlow() {
    for (int attempt = 0;; ++attempt) {
      uint32_t state = state_.load(std::memory_order_relaxed);
      if ((state & ~kWriterWaiting) == 0) {
        if (state_.compare_exchange_weak(state, kWriter, std::memory_order_acquire, std::memory_order_relaxed)) return;
      } else if ((state & kWriterWaiting) == 0) {
        state_.fetch_or(kWriterWaiting, std::memory_order_relaxed);
      }
      Pause(attempt);
    }
  }

  void LockSharedSlow() {
    for (int attempt = 0;; ++attempt) {
      uint32_t state = state_.load(std::memory_order_relaxed);
      if ((state & kBlocksReaders) == 0 &&
          state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
        return;
      }
      Pause(attempt);
    }
  }

  // kWriter, kWriterWaiting and the number of readers in the low bits.
  std::atomic<uint32_t> state_{0};
};

}  // namespace lmx
