// The allocation injector: replacements of the malloc family and operator new.
#include "alloc_injector.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

// The allocators under the replacements: the sanitizer's when one is linked in
// (it defines the __interceptor_ names), else the C library's.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
void* __interceptor_malloc(size_t) __attribute__((weak));
void* __interceptor_calloc(size_t, size_t) __attribute__((weak));
void* __interceptor_realloc(void*, size_t) __attribute__((weak));
void* __interceptor_memalign(size_t, size_t) __attribute__((weak));
void __interceptor_free(void*) __attribute__((weak));
}

namespace {

std::atomic<uint64_t> g_failAt{0};
std::atomic<uint64_t> g_count{0};
std::atomic<bool> g_injected{false};
std::atomic<int64_t> g_live{0};
thread_local int t_armed = 0;

// True when this allocation is the one to fail.
bool Fail() {
  if (t_armed == 0) return false;
  const uint64_t n = g_count.fetch_add(1) + 1;
  if (n != g_failAt.load()) return false;
  g_injected = true;
  return true;
}

void* Counted(void* p) {
  if (p) g_live.fetch_add(1, std::memory_order_relaxed);
  return p;
}

void* RawMalloc(size_t n) { return __interceptor_malloc ? __interceptor_malloc(n) : __libc_malloc(n); }
void* RawMemalign(size_t a, size_t n) {
  return __interceptor_memalign ? __interceptor_memalign(a, n) : __libc_memalign(a, n);
}
void RawFree(void* p) {
  if (!p) return;
  g_live.fetch_sub(1, std::memory_order_relaxed);
  __interceptor_free ? __interceptor_free(p) : __libc_free(p);
}

void* AlignedNew(size_t n, std::align_val_t a) {
  void* p = Fail() ? nullptr : Counted(RawMemalign(static_cast<size_t>(a), n ? n : 1));
  if (!p) throw std::bad_alloc();
  return p;
}

void* New(size_t n) {
  void* p = Fail() ? nullptr : Counted(RawMalloc(n ? n : 1));
  if (!p) throw std::bad_alloc();
  return p;
}

}  // namespace

extern "C" {
void* malloc(size_t n) { return Fail() ? nullptr : Counted(RawMalloc(n)); }
void* calloc(size_t m, size_t n) {
  if (Fail()) return nullptr;
  return Counted(__interceptor_calloc ? __interceptor_calloc(m, n) : __libc_calloc(m, n));
}
void* realloc(void* p, size_t n) {
  if (Fail()) return nullptr;
  void* q = __interceptor_realloc ? __interceptor_realloc(p, n) : __libc_realloc(p, n);
  // realloc(p, 0) may free p and return null; otherwise a moved block is still one block.
  if (p && !q && n == 0) g_live.fetch_sub(1, std::memory_order_relaxed);
  if (!p && q) g_live.fetch_add(1, std::memory_order_relaxed);
  return q;
}
void* memalign(size_t a, size_t n) { return Fail() ? nullptr : Counted(RawMemalign(a, n)); }
void* aligned_alloc(size_t a, size_t n) { return memalign(a, n); }
int posix_memalign(void** out, size_t a, size_t n) {
  void* p = memalign(a, n);
  if (!p) return ENOMEM;
  *out = p;
  return 0;
}
void free(void* p) { RawFree(p); }
}

void* operator new(size_t n) { return New(n); }
void* operator new[](size_t n) { return New(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept {
  return Fail() ? nullptr : Counted(RawMalloc(n ? n : 1));
}
void* operator new[](size_t n, const std::nothrow_t& t) noexcept { return operator new(n, t); }
void* operator new(size_t n, std::align_val_t a) { return AlignedNew(n, a); }
void* operator new[](size_t n, std::align_val_t a) { return AlignedNew(n, a); }
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return Fail() ? nullptr : Counted(RawMemalign(static_cast<size_t>(a), n ? n : 1));
}
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t& t) noexcept { return operator new(n, a, t); }
void operator delete(void* p) noexcept { RawFree(p); }
void operator delete[](void* p) noexcept { RawFree(p); }
void operator delete(void* p, size_t) noexcept { RawFree(p); }
void operator delete[](void* p, size_t) noexcept { RawFree(p); }
void operator delete(void* p, std::align_val_t) noexcept { RawFree(p); }
void operator delete[](void* p, std::align_val_t) noexcept { RawFree(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { RawFree(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { RawFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { RawFree(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { RawFree(p); }

namespace alloc_injector {

void FailAt(uint64_t k) {
  g_failAt = k;
  g_count = 0;
  g_injected = false;
}
uint64_t Count() { return g_count.load(); }
bool Injected() { return g_injected.load(); }
int64_t LiveBlocks() { return g_live.load(); }
Armed::Armed() { ++t_armed; }
Armed::~Armed() { --t_armed; }

}  // namespace alloc_injector
