// plane_cache.h: large plane blocks recycled between images.
//
// A host makes a new image per frame. Large blocks come from the system as fresh
// mappings, so every frame would pay a page fault and the kernel's zeroing for each
// page of each plane. The cache keeps freed blocks by size class and hands them to
// the next allocation of that class instead.
//
// Blocks are ordinary platform::AlignedAlloc blocks (a holder of a detached plane
// frees one with AlignedFree), page aligned and at least the size asked for.
// Thread-safe; the lock covers a scan of a small table, never a system call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace lmx {

class PlaneCache {
 public:
  // Blocks of this size and more are cached and page aligned; smaller ones are
  // left to the heap, which recycles them cheaply already.
  static constexpr size_t kMinBlock = 153600;
  static constexpr size_t kAlignment = 4096;
  // The setting that lets the cache size itself from the recent working set.
  static constexpr int64_t kAutomatic = -1;
  // The largest bound a setting may give, in megabytes.
  static constexpr int64_t kMaxSettingMb = int64_t{1} << 20;
  // Cached blocks unused this long are released by a later call.
  static constexpr int64_t kIdleMs = 3000;

  // Where blocks come from and go to, and the clock in milliseconds (tests swap them).
  struct Upstream {
    void* (*allocate)(size_t size, size_t alignment);
    void (*free)(void* block);
    int64_t (*nowMs)();
  };
  static Upstream System();

  explicit PlaneCache(Upstream upstream) : upstream_(upstream) {}
  ~PlaneCache();  // releases every cached block and turns the cache off
  PlaneCache(const PlaneCache&) = delete;
  PlaneCache& operator=(const PlaneCache&) = delete;

  // The process's cache; its bound comes from LMX_PLANE_CACHE_MB when that is set.
  static PlaneCache& Process();

  // A block of at least size bytes aligned to alignment (at most kAlignment), or
  // null when memory cannot be had even after the cached blocks were released.
  void* Allocate(size_t size, size_t alignment);
  // Gives back a block of Allocate with the same size; null does nothing.
  void Free(void* block, size_t size);
  // A block of Allocate that its caller will free with platform::AlignedFree.
  void Disown(size_t size);

  // kAutomatic (about two frames of the recent working set), 0 (off: every block
  // goes back to the system at once) or a bound in bytes.
  void SetLimit(int64_t bytes);
  int64_t Setting() const;
  // The bound in force now and the bytes held.
  size_t Limit() const;
  size_t CachedBytes() const;
  // Releases every cached block.
  void Purge();

 private:
  struct Entry {
    void* block;
    size_t size;  // of its class
    int64_t lastUseMs;
  };
  static constexpr int kSlots = 128;
  // The automatic bound is twice the peak in use, at most this much.
  static constexpr size_t kAutomaticCap = size_t{512} << 20;

  static size_t ClassSize(size_t size);
  size_t LimitLocked() const;
  // Moves entries idle too long, or those beyond keep bytes, oldest first, to out.
  int EvictLocked(size_t keep, int64_t now, Entry* out, int capacity);
  void Remove(int index);
  void Release(const Entry* entries, int count);
  void Tick(int64_t now);

  Upstream upstream_;
  mutable std::mutex mutex_;
  Entry entries_[kSlots] = {};
  int count_ = 0;
  size_t cached_ = 0;
  size_t inUse_ = 0;         // class bytes handed out and not returned
  size_t peak_[2] = {0, 0};  // peak in use this window and the last one
  int64_t windowStartMs_ = 0;
  int64_t setting_ = kAutomatic;
  bool closed_ = false;
};

}  // namespace lmx
