// node_pool.h: fixed-size records recycled through a free list.
//
// Records are carved from chunks of kChunk and handed back to the free list when
// released, so a steady flow of short-lived records allocates nothing once the
// pool has grown to its peak. Chunks are freed with the pool. Not thread safe: the
// owner guards it with the lock that guards the records' users.
//
// Example:
//   NodePool<Waiter> pool;
//   Waiter* w = pool.Acquire(request);   // constructs in place
//   pool.Release(w);                     // destroys and recycles
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace lmx {

template <class T>
class NodePool {
  static constexpr size_t kChunk = 64;
  union Slot {
    Slot() {}
    ~Slot() {}
    Slot* nextFree;
    T value;
  };

 public:
  NodePool() = default;
  NodePool(const NodePool&) = delete;
  NodePool& operator=(const NodePool&) = delete;

  // A new record built from args. May throw std::bad_alloc (the pool is unchanged).
  template <class... Args>
  T* Acquire(Args&&... args) {
    if (!free_) Grow();
    Slot* slot = free_;
    free_ = slot->nextFree;
    return ::new (static_cast<void*>(&slot->value)) T(std::forward<Args>(args)...);
  }

  // Destroys the record and keeps its memory for the next Acquire.
  void Release(T* record) {
    record->~T();
    Slot* slot = reinterpret_cast<Slot*>(record);
    slot->nextFree = free_;
    free_ = slot;
  }

 private:
  void Grow() {
    chunks_.reserve(chunks_.size() + 1);
    auto chunk = std::make_unique<Slot[]>(kChunk);
    for (size_t i = 0; i < kChunk; ++i) {
      chunk[i].nextFree = free_;
      free_ = &chunk[i];
    }
    chunks_.push_back(std::move(chunk));
  }

  Slot* free_ = nullptr;
  std::vector<std::unique_ptr<Slot[]>> chunks_;
};

}  // namespace lmx
