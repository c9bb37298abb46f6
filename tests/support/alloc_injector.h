// alloc_injector.h: fails the k-th allocation made while armed, on this thread.
//
// Linking alloc_injector.cpp into a program replaces the malloc family and every
// operator new (the replacements pass through to the C library, or to the
// sanitizer's allocator under AddressSanitizer). Allocations are counted only on
// a thread that armed the injector, so a test arms it around one library call;
// the library's worker threads are never failed. Live blocks are counted in every
// thread, which makes a leak visible without a leak checker.
//
// Example:
//   alloc_injector::FailAt(3);                     // 0: count only
//   { alloc_injector::Armed armed; status = image->AcquireAccess(...); }
//   bool failed = alloc_injector::Injected();
#pragma once

#include <cstdint>

namespace alloc_injector {

// Sets which armed allocation fails (1 = the first; 0 = none) and resets the count.
void FailAt(uint64_t k);
// Armed allocations since FailAt, and whether the k-th was failed.
uint64_t Count();
bool Injected();
// Blocks handed out and not yet freed, over the whole process.
int64_t LiveBlocks();

// Arms this thread for its lifetime.
class Armed {
 public:
  Armed();
  ~Armed();
  Armed(const Armed&) = delete;
  Armed& operator=(const Armed&) = delete;
};

}  // namespace alloc_injector
