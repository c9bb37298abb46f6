// concurrent_map.h: a hash map keyed by pointer for concurrent readers and writers.
//
// The key space is split over a fixed number of stripes, each an open-addressing
// table behind its own reader/writer spin lock (the sections are short; no
// allocation per entry; a table only grows). An accessor holds its entry's stripe
// lock for as long as it lives: shared for a ConstAccessor (read), exclusive for
// an Accessor (insert, update, erase). Entries never move while an accessor
// points at them.
//
// Requires: keys are not null; a thread holds at most one accessor of one map at a
// time (a second one on the same stripe would wait for itself).
// Guarantees: operations on keys of different stripes never wait for each other;
// a value read through an accessor is the value current under its lock.
//
// Example:
//   ConcurrentPointerMap<Status> failed;
//   { ConcurrentPointerMap<Status>::Accessor a; failed.Insert(a, output); a.value() = sts; }
//   { ConcurrentPointerMap<Status>::ConstAccessor a; if (failed.Find(a, output)) use(a.value()); }
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "scheduler/spin_rw_lock.h"

namespace lmx {

// Whether a map keeps a count of all its entries for MayHoldEntries: one more
// atomic read-modify-write per insert and erase, shared by all stripes.
enum class MapCount { kNotKept, kKept };

template <class Value, MapCount kCount = MapCount::kNotKept>
class ConcurrentPointerMap {
  static constexpr size_t kInitialSlots = 16;

  struct Slot {
    const void* key = nullptr;  // null: free
    Value value{};
  };

  // One stripe: an open-addressing table (linear probing, erasure by shifting
  // the following entries back) on a cache line of its own, so that neighbouring
  // stripes' locks do not share one. The table grows by doubling and never
  // allocates per entry. Entries move only under the exclusive lock, which no
  // other accessor can hold meanwhile.
  struct alignas(64) Stripe {
    mutable SpinRwLock mutex;
    std::vector<Slot> slots LMX_GUARDED_BY(mutex) = std::vector<Slot>(kInitialSlots);  // power of two
    size_t count LMX_GUARDED_BY(mutex) = 0;

    size_t Mask() const LMX_REQUIRES_SHARED(mutex) { return slots.size() - 1; }
    // The slot holding key, or the free slot where it would go.
    size_t Probe(const void* key, uint64_t hash) const LMX_REQUIRES_SHARED(mutex) {
      size_t i = hash & Mask();
      while (slots[i].key && slots[i].key != key) i = (i + 1) & Mask();
      return i;
    }
    // Keeps at least half the slots free so that probes stay short; returns
    // whether the table grew (and its entries moved).
    bool GrowIfHalfFull() LMX_REQUIRES(mutex) {
      if (2 * (count + 1) <= slots.size()) return false;
      std::vector<Slot> old(slots.size() * 2);
      old.swap(slots);
      for (Slot& slot : old) {
        if (slot.key) slots[Probe(slot.key, Hash(slot.key))] = std::move(slot);
      }
      return true;
    }
    // Frees slot i and moves back the entries of its probe run that may not stay
    // behind the gap.
    void RemoveAt(size_t i) LMX_REQUIRES(mutex) {
      for (size_t j = (i + 1) & Mask(); slots[j].key; j = (j + 1) & Mask()) {
        const size_t home = Hash(slots[j].key) & Mask();
        // The entry at j may fill the gap at i unless its home lies in (i, j].
        const bool homeBetween = i <= j ? (i < home && home <= j) : (i < home || home <= j);
        if (homeBetween) continue;
        slots[i] = std::move(slots[j]);
        i = j;
      }
      slots[i] = Slot();
      --count;
    }
  };

 public:
  static constexpr size_t kStripes = 64;

  // Read access to one entry; holds the stripe lock shared until it ends.
  class ConstAccessor {
   public:
    ConstAccessor() = default;
    ConstAccessor(const ConstAccessor&) = delete;
    ConstAccessor& operator=(const ConstAccessor&) = delete;
    bool empty() const { return value_ == nullptr; }
    const Value& value() const { return *value_; }
    void release() {
      value_ = nullptr;
      if (lock_.owns_lock()) lock_.unlock();
    }

   private:
    friend class ConcurrentPointerMap;
    std::shared_lock<SpinRwLock> lock_;
    const Value* value_ = nullptr;
  };

  // Write access to one entry; holds the stripe lock exclusively until it ends.
  class Accessor {
   public:
    Accessor() = default;
    Accessor(const Accessor&) = delete;
    Accessor& operator=(const Accessor&) = delete;
    bool empty() const { return value_ == nullptr; }
    Value& value() const { return *value_; }
    void release() {
      value_ = nullptr;
      stripe_ = nullptr;
      if (lock_.owns_lock()) lock_.unlock();
    }

   private:
    friend class ConcurrentPointerMap;
    std::unique_lock<SpinRwLock> lock_;
    Stripe* stripe_ = nullptr;
    size_t index_ = 0;  // the entry's slot in the stripe
    Value* value_ = nullptr;
  };

  ConcurrentPointerMap() = default;
  ConcurrentPointerMap(const ConcurrentPointerMap&) = delete;
  ConcurrentPointerMap& operator=(const ConcurrentPointerMap&) = delete;

  // The accessors take the stripe lock in these lookups and keep it past them, which
  // the thread-safety analysis cannot follow; it checks the stripes' own functions.

  // Finds key for reading; on success the accessor holds the entry.
  bool Find(ConstAccessor& accessor, const void* key) const LMX_NO_THREAD_SAFETY_ANALYSIS {
    accessor.release();
    const uint64_t hash = Hash(key);
    const Stripe& stripe = StripeOf(hash);
    accessor.lock_ = std::shared_lock(stripe.mutex);
    const Slot& slot = stripe.slots[stripe.Probe(key, hash)];
    if (!slot.key) {
      accessor.release();
      return false;
    }
    accessor.value_ = &slot.value;
    return true;
  }

  // Finds key for writing; no entry is created.
  bool Find(Accessor& accessor, const void* key) LMX_NO_THREAD_SAFETY_ANALYSIS {
    accessor.release();
    const uint64_t hash = Hash(key);
    Stripe& stripe = StripeOf(hash);
    accessor.lock_ = std::unique_lock(stripe.mutex);
    Slot& slot = stripe.slots[stripe.Probe(key, hash)];
    if (!slot.key) {
      accessor.release();
      return false;
    }
    Hold(accessor, stripe, static_cast<size_t>(&slot - stripe.slots.data()));
    return true;
  }

  // Finds or creates (value-initialised) the entry for key and holds it for
  // writing. Returns true when the entry was created. May throw std::bad_alloc.
  bool Insert(Accessor& accessor, const void* key) LMX_NO_THREAD_SAFETY_ANALYSIS {
    accessor.release();
    const uint64_t hash = Hash(key);
    Stripe& stripe = StripeOf(hash);
    accessor.lock_ = std::unique_lock(stripe.mutex);
    size_t i = stripe.Probe(key, hash);
    const bool created = !stripe.slots[i].key;
    if (created) {
      if (stripe.GrowIfHalfFull()) i = stripe.Probe(key, hash);  // may throw, before anything changed
      stripe.slots[i].key = key;
      ++stripe.count;
      if constexpr (kCount == MapCount::kKept) entries_.fetch_add(1, std::memory_order_relaxed);
    }
    Hold(accessor, stripe, i);
    return created;
  }

  // Erases the entry the accessor holds and ends the accessor.
  void Erase(Accessor& accessor) LMX_NO_THREAD_SAFETY_ANALYSIS {
    if (accessor.stripe_) RemoveAt(*accessor.stripe_, accessor.index_);
    accessor.release();
  }

  // Erases key if present; returns whether it was.
  bool Erase(const void* key) {
    const uint64_t hash = Hash(key);
    Stripe& stripe = StripeOf(hash);
    LockGuard lock(stripe.mutex);
    return Unlink(stripe, key);
  }

  // Whether the map may hold entries: false only when it held none at some
  // moment during the call. A caller that has synchronised with every writer
  // (through a lock they released after writing) reads the exact answer.
  bool MayHoldEntries() const {
    static_assert(kCount == MapCount::kKept, "the map keeps no count");
    return entries_.load(std::memory_order_relaxed) != 0;
  }

  // Number of entries; only a snapshot while other threads write.
  size_t Size() const {
    size_t total = 0;
    for (const Stripe& stripe : stripes_) {
      SharedLockGuard lock(stripe.mutex);
      total += stripe.count;
    }
    return total;
  }

  // Removes every entry. Requires: no accessor is alive.
  void Clear() {
    for (Stripe& stripe : stripes_) {
      LockGuard lock(stripe.mutex);
      for (Slot& slot : stripe.slots) slot = Slot();
      entries_.fetch_sub(stripe.count, std::memory_order_relaxed);
      stripe.count = 0;
    }
  }

 private:
  // Pointers are aligned, so the low bits carry little; mix before picking. The
  // low bits of the mix pick the bucket, the high ones the stripe.
  static uint64_t Hash(const void* key) {
    uint64_t bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(key));
    bits ^= bits >> 33;
    bits *= 0xff51afd7ed558ccdULL;
    bits ^= bits >> 33;
    return bits;
  }
  static size_t StripeIndex(uint64_t hash) { return static_cast<size_t>((hash >> 40) % kStripes); }
  Stripe& StripeOf(uint64_t hash) { return stripes_[StripeIndex(hash)]; }
  const Stripe& StripeOf(uint64_t hash) const { return stripes_[StripeIndex(hash)]; }

  static void Hold(Accessor& accessor, Stripe& stripe, size_t index) LMX_REQUIRES(stripe.mutex) {
    accessor.stripe_ = &stripe;
    accessor.index_ = index;
    accessor.value_ = &stripe.slots[index].value;
  }

  // Removes key from the stripe, whose lock the caller holds exclusively.
  bool Unlink(Stripe& stripe, const void* key) LMX_REQUIRES(stripe.mutex) {
    const size_t i = stripe.Probe(key, Hash(key));
    if (!stripe.slots[i].key) return false;
    RemoveAt(stripe, i);
    return true;
  }
  void RemoveAt(Stripe& stripe, size_t index) LMX_REQUIRES(stripe.mutex) {
    stripe.RemoveAt(index);
    if constexpr (kCount == MapCount::kKept) entries_.fetch_sub(1, std::memory_order_relaxed);
  }

  std::array<Stripe, kStripes> stripes_;
  std::atomic<size_t> entries_{0};  // all stripes together, when kept
};

}  // namespace lmx
