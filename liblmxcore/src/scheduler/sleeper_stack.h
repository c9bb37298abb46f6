// sleeper_stack.h: the condition that a pool's idle workers sleep on.
//
// Each worker owns a wake word on its own cache line. A worker that finds no
// work pushes itself onto the stack under the pool's lock, releases the lock and
// sleeps until its word is set; whoever queues work pops the most recent sleeper
// under the lock and, once the lock is released, sets that sleeper's word and
// wakes it. So a waker wakes exactly the worker it chose (no wake is lost and
// none is spurious), never waits for other sleepers to leave (as the standard
// condition variable's wake may), and wakes the worker that ran last, whose
// processor and cache are the warmest. Any lock type may guard the stack.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "lmx/platform/thread_annotations.h"
#include "lmx/platform/word_wait.h"

namespace lmx {

class SleeperStack {
 public:
  struct alignas(64) Sleeper {
    std::atomic<uint32_t> woken{0};
    Sleeper* below = nullptr;  // guarded by the lock
  };

  explicit SleeperStack(size_t workers) : sleepers_(std::make_unique<Sleeper[]>(workers)) {}

  // Sleeps as worker `index` until a waker picks it. Requires: lock is held; it
  // is held again on return.
  template <class Lock>
  void Wait(size_t index, Lock& lock) LMX_REQUIRES(lock) {
    Sleeper& self = sleepers_[index];
    self.woken.store(0, std::memory_order_relaxed);
    self.below = top_;
    top_ = &self;
    lock.unlock();
    while (self.woken.load(std::memory_order_acquire) == 0) platform::WaitWhileEqual(self.woken, 0);
    lock.lock();
  }

  // Takes the most recent sleeper off the stack, or null. Requires: lock is held.
  Sleeper* Pop() {
    Sleeper* sleeper = top_;
    if (sleeper) top_ = sleeper->below;
    return sleeper;
  }
  // Takes every sleeper off the stack, as a list linked through `below`.
  // Requires: lock is held.
  Sleeper* PopAll() { return std::exchange(top_, nullptr); }

  // Wakes a sleeper taken off the stack (or every one of a list), after the lock
  // has been released. Null wakes nobody.
  static void Wake(Sleeper* sleeper) {
    if (!sleeper) return;
    sleeper->woken.store(1, std::memory_order_release);
    platform::WakeOne(sleeper->woken);
  }
  static void WakeAll(Sleeper* list) {
    while (list) {
      Sleeper* below = list->below;  // read first: the woken worker may sleep again
      Wake(list);
      list = below;
    }
  }

 private:
  Sleeper* top_ = nullptr;  // guarded by the lock
  std::unique_ptr<Sleeper[]> sleepers_;
};

}  // namespace lmx
