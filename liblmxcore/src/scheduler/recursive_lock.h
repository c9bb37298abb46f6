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
#include <cstdint>
#include <mutex>
#include <thread>

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
    mutex_.lock();
    owner_.store(self, std::memory_order_relaxed);
    depth_ = 1;
  }

  void unlock() {
    if (--depth_ != 0) return;
    owner_.store(std::thread::id(), std::memory_order_relaxed);
    mutex_.unlock();
  }

 private:
  std::mutex mutex_;
  std::atomic<std::thread::id> owner_{};
  uint32_t depth_ = 0;  // entries by the owner; guarded by mutex_
};

}  // namespace lmx
