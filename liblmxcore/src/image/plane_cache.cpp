// Plane blocks recycled by size class, bounded, released when idle or at unload.
#include "image/plane_cache.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cwchar>

#include "lmx/platform/environment.h"
#include "lmx/platform/memory.h"
#include "lmxutils.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
// A cached block is no one's memory: a use after its image released it is reported.
#define LMX_POISON(block, size) ASAN_POISON_MEMORY_REGION(block, size)
#define LMX_UNPOISON(block, size) ASAN_UNPOISON_MEMORY_REGION(block, size)
#else
#define LMX_POISON(block, size) ((void)(block), (void)(size))
#define LMX_UNPOISON(block, size) ((void)(block), (void)(size))
#endif

namespace lmx {

namespace {

int64_t SteadyMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// LMX_PLANE_CACHE_MB: a bound in megabytes (0 turns the cache off); anything else
// leaves the automatic bound.
int64_t SettingFromEnvironment() {
  const auto text = platform::ReadEnvironmentVariable(L"LMX_PLANE_CACHE_MB");
  if (!text) return PlaneCache::kAutomatic;
  wchar_t* end = nullptr;
  const long long mb = std::wcstoll(text->c_str(), &end, 10);
  if (LMX_FAILED_ON(!text->empty() && *end == L'\0' && mb >= 0 && mb <= PlaneCache::kMaxSettingMb))
    return PlaneCache::kAutomatic;
  return static_cast<int64_t>(mb) << 20;
}

}  // namespace

PlaneCache::Upstream PlaneCache::System() { return {platform::AlignedAlloc, platform::AlignedFree, SteadyMs}; }

PlaneCache& PlaneCache::Process() {
  // Destroyed when the library unloads, which releases every cached block. Images
  // freed after that find it closed and free their blocks directly.
  static PlaneCache cache(System());
  static const bool configured = (cache.SetLimit(SettingFromEnvironment()), true);
  (void)configured;
  return cache;
}

PlaneCache::~PlaneCache() {
  std::unique_lock lock(mutex_);
  closed_ = true;
  Entry all[kSlots];
  const int n = EvictLocked(0, 0, all, kSlots);
  lock.unlock();
  Release(all, n);
}

size_t PlaneCache::ClassSize(size_t size) {
  // Eight classes per doubling: a block is at most an eighth larger than asked.
  const size_t granule = std::max(std::bit_floor(size) / 8, kAlignment);
  return (size + granule - 1) & ~(granule - 1);
}

size_t PlaneCache::LimitLocked() const {
  if (closed_) return 0;
  if (setting_ >= 0) return static_cast<size_t>(setting_);
  // Twice the most plane memory in use at once lately: a frame being released
  // while the next is made, with room for one of another size.
  return std::min(2 * std::max({peak_[0], peak_[1], inUse_}), kAutomaticCap);
}

void PlaneCache::Remove(int index) {
  cached_ -= entries_[index].size;
  entries_[index] = entries_[--count_];
}

int PlaneCache::EvictLocked(size_t keep, int64_t now, Entry* out, int capacity) {
  int n = 0;
  for (int i = count_ - 1; i >= 0 && n < capacity; --i) {
    if (now - entries_[i].lastUseMs < kIdleMs) continue;
    out[n++] = entries_[i];
    Remove(i);
  }
  while (cached_ > keep && count_ > 0 && n < capacity) {
    int oldest = 0;
    for (int i = 1; i < count_; ++i)
      if (entries_[i].lastUseMs < entries_[oldest].lastUseMs) oldest = i;
    out[n++] = entries_[oldest];
    Remove(oldest);
  }
  return n;
}

void PlaneCache::Release(const Entry* entries, int count) {
  for (int i = 0; i < count; ++i) {
    LMX_UNPOISON(entries[i].block, entries[i].size);
    upstream_.free(entries[i].block);
  }
}

void PlaneCache::Tick(int64_t now) {
  if (now - windowStartMs_ < kIdleMs) return;
  peak_[1] = peak_[0];
  peak_[0] = inUse_;
  windowStartMs_ = now;
}

void* PlaneCache::Allocate(size_t size, size_t alignment) {
  if (size < kMinBlock || alignment > kAlignment) return upstream_.allocate(size, alignment);
  const size_t cls = ClassSize(size);
  Entry idle[kSlots];
  int n = 0;
  void* block = nullptr;
  {
    std::lock_guard lock(mutex_);
    const int64_t now = upstream_.nowMs();
    Tick(now);
    n = EvictLocked(SIZE_MAX, now, idle, kSlots);
    for (int i = count_ - 1; i >= 0 && !block; --i) {
      if (entries_[i].size != cls) continue;
      block = entries_[i].block;
      Remove(i);
    }
    inUse_ += cls;
    peak_[0] = std::max(peak_[0], inUse_);
  }
  Release(idle, n);
  if (block) {
    LMX_UNPOISON(block, cls);
    return block;
  }
  // Fresh memory costs a page fault per page on first write: tens of milliseconds
  // per frame-sized plane in a virtual machine. Blocks of whole large pages are
  // aligned to them and backed by them where the system can, which takes that to
  // about a millisecond.
  const size_t huge = platform::HugePageSize();
  const size_t align = huge && cls >= huge ? huge : kAlignment;
  block = upstream_.allocate(cls, align);
  if (!block) {
    Purge();  // what the cache held may be what the system lacks
    block = upstream_.allocate(cls, align);
  }
  if (!block) {
    Disown(size);
  } else if (align == huge) {
    platform::AdviseHugePages(block, cls);
  }
  return block;
}

void PlaneCache::Free(void* block, size_t size) {
  if (!block) return;
  if (size < kMinBlock) return upstream_.free(block);
  const size_t cls = ClassSize(size);
  Entry evicted[kSlots + 1];
  int n = 0;
  {
    std::lock_guard lock(mutex_);
    const int64_t now = upstream_.nowMs();
    inUse_ -= std::min(inUse_, cls);
    Tick(now);
    const size_t limit = LimitLocked();
    if (cls > limit) {
      evicted[n++] = {block, cls, now};
      n += EvictLocked(limit, now, evicted + n, kSlots);
    } else {
      n = EvictLocked(limit - cls, now, evicted, kSlots);
      if (count_ == kSlots) n += EvictLocked(cached_ - 1, now, evicted + n, 1);  // the oldest
      LMX_POISON(block, cls);                                                    // before another thread can take it
      entries_[count_++] = {block, cls, now};
      cached_ += cls;
    }
  }
  Release(evicted, n);
}

void PlaneCache::Disown(size_t size) {
  if (size < kMinBlock) return;
  const size_t cls = ClassSize(size);
  std::lock_guard lock(mutex_);
  inUse_ -= std::min(inUse_, cls);
}

void PlaneCache::SetLimit(int64_t bytes) {
  Entry evicted[kSlots];
  int n = 0;
  {
    std::lock_guard lock(mutex_);
    setting_ = bytes < 0 ? kAutomatic : bytes;
    n = EvictLocked(LimitLocked(), upstream_.nowMs(), evicted, kSlots);
  }
  Release(evicted, n);
}

int64_t PlaneCache::Setting() const {
  std::lock_guard lock(mutex_);
  return setting_;
}

size_t PlaneCache::Limit() const {
  std::lock_guard lock(mutex_);
  return LimitLocked();
}

size_t PlaneCache::CachedBytes() const {
  std::lock_guard lock(mutex_);
  return cached_;
}

void PlaneCache::Purge() {
  Entry all[kSlots];
  int n = 0;
  {
    std::lock_guard lock(mutex_);
    n = EvictLocked(0, upstream_.nowMs(), all, kSlots);
  }
  Release(all, n);
}

}  // namespace lmx
