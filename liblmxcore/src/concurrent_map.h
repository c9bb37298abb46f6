// concurrent_map.h: a hash map keyed by pointer for concurrent readers and writers.
//
// The key space is split over a fixed number of stripes, each a hash map behind
// its own std::shared_mutex. An accessor holds its entry's stripe lock for as long
// as it lives: shared for a ConstAccessor (read), exclusive for an Accessor
// (insert, update, erase). Entries never move while an accessor points at them.
//
// Requires: a thread holds at most one accessor of one map at a time (a second
// one on the same stripe would wait for itself).
// Guarantees: operations on keys of different stripes never wait for each other;
// a value read through an accessor is the value current under its lock.
//
// Example:
//   ConcurrentPointerMap<Status> failed;
//   { ConcurrentPointerMap<Status>::Accessor a; failed.Insert(a, output); a.value() = sts; }
//   { ConcurrentPointerMap<Status>::ConstAccessor a; if (failed.Find(a, output)) use(a.value()); }
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

namespace lmx {

template <class Value>
class ConcurrentPointerMap {
  struct Stripe {
    mutable std::shared_mutex mutex;
    std::unordered_map<const void*, Value> entries;
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
    std::shared_lock<std::shared_mutex> lock_;
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
    std::unique_lock<std::shared_mutex> lock_;
    Stripe* stripe_ = nullptr;
    const void* key_ = nullptr;
    Value* value_ = nullptr;
  };

  ConcurrentPointerMap() = default;
  ConcurrentPointerMap(const ConcurrentPointerMap&) = delete;
  ConcurrentPointerMap& operator=(const ConcurrentPointerMap&) = delete;

  // Finds key for reading; on success the accessor holds the entry.
  bool Find(ConstAccessor& accessor, const void* key) const {
    accessor.release();
    const Stripe& stripe = StripeOf(key);
    accessor.lock_ = std::shared_lock(stripe.mutex);
    auto it = stripe.entries.find(key);
    if (it == stripe.entries.end()) {
      accessor.release();
      return false;
    }
    accessor.value_ = &it->second;
    return true;
  }

  // Finds key for writing; no entry is created.
  bool Find(Accessor& accessor, const void* key) {
    accessor.release();
    Stripe& stripe = StripeOf(key);
    accessor.lock_ = std::unique_lock(stripe.mutex);
    auto it = stripe.entries.find(key);
    if (it == stripe.entries.end()) {
      accessor.release();
      return false;
    }
    Hold(accessor, stripe, key, it->second);
    return true;
  }

  // Finds or creates (value-initialised) the entry for key and holds it for
  // writing. Returns true when the entry was created. May throw std::bad_alloc.
  bool Insert(Accessor& accessor, const void* key) {
    accessor.release();
    Stripe& stripe = StripeOf(key);
    accessor.lock_ = std::unique_lock(stripe.mutex);
    auto [it, created] = stripe.entries.try_emplace(key);
    Hold(accessor, stripe, key, it->second);
    return created;
  }

  // Erases the entry the accessor holds and ends the accessor.
  void Erase(Accessor& accessor) {
    if (accessor.stripe_) accessor.stripe_->entries.erase(accessor.key_);
    accessor.release();
  }

  // Erases key if present; returns whether it was.
  bool Erase(const void* key) {
    Stripe& stripe = StripeOf(key);
    std::unique_lock lock(stripe.mutex);
    return stripe.entries.erase(key) != 0;
  }

  // Number of entries; only a snapshot while other threads write.
  size_t Size() const {
    size_t total = 0;
    for (const Stripe& stripe : stripes_) {
      std::shared_lock lock(stripe.mutex);
      total += stripe.entries.size();
    }
    return total;
  }

  // Removes every entry. Requires: no accessor is alive.
  void Clear() {
    for (Stripe& stripe : stripes_) {
      std::unique_lock lock(stripe.mutex);
      stripe.entries.clear();
    }
  }

 private:
  static size_t StripeIndex(const void* key) {
    // Pointers are aligned, so the low bits carry little; mix before picking.
    uint64_t bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(key));
    bits ^= bits >> 33;
    bits *= 0xff51afd7ed558ccdULL;
    bits ^= bits >> 33;
    return static_cast<size_t>(bits % kStripes);
  }
  Stripe& StripeOf(const void* key) { return stripes_[StripeIndex(key)]; }
  const Stripe& StripeOf(const void* key) const { return stripes_[StripeIndex(key)]; }

  static void Hold(Accessor& accessor, Stripe& stripe, const void* key, Value& value) {
    accessor.stripe_ = &stripe;
    accessor.key_ = key;
    accessor.value_ = &value;
  }

  std::array<Stripe, kStripes> stripes_;
};

}  // namespace lmx
