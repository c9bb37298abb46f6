// recursive_lock.h: a recursive lock that re-enters without touching its mutex.
//
// The owner is recorded beside a plain mutex: re-entry by the owner only counts,
// and the first entry and the last exit take and release the mutex, which is
// cheaper than a recursive system mutex that checks its kind and owner on every
// call. Waiters block in the mutex as they would in a recursive one, so the lock
// may be held for long (callbacks run under it).
//
// Meets the standard BasicLockable requirements, for std::lock_guard.
#pragma once

#include <atomic>
#include <cassert>
#include <cstdint>
#include <mutex>
#include <thread>

#include "lmx/platform/thread_annotations.h"

namespace lmx {

class LMX_CAPABILITY("mutex") RecursiveLock {
 public:
  RecursiveLock() = default;
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  void lock() LMX_ACQUIRE() {
    const std::thread::id self = std::this_thread::get_id();
    // Only this thread can have stored its own id, so a relaxed read suffices.
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++depth_;
      return;
    }
    mutex_.lock();
    owner_.store(self, std::memory_order_relaxed);
    depth_ = 1;
  }

  // Tells the thread-safety analysis that the calling thread holds the lock, where
  // it cannot see it (in a callback run under the lock); checked in debug builds.
  void AssertHeld() const LMX_ASSERT_CAPABILITY(this) {
    assert(owner_.load(std::memory_order_relaxed) == std::this_thread::get_id());
  }

  void unlock() LMX_RELEASE() {
    if (--depth_ != 0) return;
    owner_.store(std::thread::id(), std::memory_order_relaxed);
    mutex_.unlock();
  }

 private:
  Mutex mutex_;
  std::atomic<std::thread::id> owner_{};
  uint32_t depth_ = 0;  // entries by the owner; only the owner touches it
};

}  // namespace lmx
