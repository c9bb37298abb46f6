// thread_annotations.h: lock annotations that Clang's thread-safety analysis checks
// (-Wthread-safety; the clang-tsa preset builds the library with it as an error), and
// the annotated locks and guards the library's own state is declared with. Other
// compilers see plain declarations.
//
// A lock type is LMX_CAPABILITY; the state it protects is LMX_GUARDED_BY(lock); a
// function that expects the caller to hold a lock is LMX_REQUIRES(lock). Hold locks
// through LockGuard / SharedLockGuard (or a lock type's own annotated lock/unlock),
// since the standard library's guards carry no annotations.
#pragma once

#include <mutex>

#if defined(__clang__)
#define LMX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define LMX_THREAD_ANNOTATION(x)
#endif

#define LMX_CAPABILITY(name) LMX_THREAD_ANNOTATION(capability(name))
#define LMX_SCOPED_CAPABILITY LMX_THREAD_ANNOTATION(scoped_lockable)
#define LMX_GUARDED_BY(lock) LMX_THREAD_ANNOTATION(guarded_by(lock))
#define LMX_PT_GUARDED_BY(lock) LMX_THREAD_ANNOTATION(pt_guarded_by(lock))
#define LMX_REQUIRES(...) LMX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define LMX_REQUIRES_SHARED(...) LMX_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define LMX_EXCLUDES(...) LMX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define LMX_ACQUIRE(...) LMX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define LMX_ACQUIRE_SHARED(...) LMX_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define LMX_RELEASE(...) LMX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define LMX_RELEASE_SHARED(...) LMX_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define LMX_RELEASE_GENERIC(...) LMX_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define LMX_TRY_ACQUIRE(...) LMX_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define LMX_TRY_ACQUIRE_SHARED(...) LMX_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
#define LMX_ASSERT_CAPABILITY(lock) LMX_THREAD_ANNOTATION(assert_capability(lock))
#define LMX_RETURN_CAPABILITY(lock) LMX_THREAD_ANNOTATION(lock_returned(lock))
// For the few functions whose locking the analysis cannot follow (a lock handed
// between functions); each use says why.
#define LMX_NO_THREAD_SAFETY_ANALYSIS LMX_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace lmx {

// std::mutex, annotated.
class LMX_CAPABILITY("mutex") Mutex {
 public:
  void lock() LMX_ACQUIRE() { mutex_.lock(); }
  void unlock() LMX_RELEASE() { mutex_.unlock(); }
  bool try_lock() LMX_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

// std::lock_guard for an annotated lock.
template <class Lock>
class LMX_SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(Lock& lock) LMX_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~LockGuard() LMX_RELEASE() { lock_.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Lock& lock_;
};

// A shared (reader's) hold of an annotated reader/writer lock.
template <class Lock>
class LMX_SCOPED_CAPABILITY SharedLockGuard {
 public:
  explicit SharedLockGuard(Lock& lock) LMX_ACQUIRE_SHARED(lock) : lock_(lock) { lock_.lock_shared(); }
  ~SharedLockGuard() LMX_RELEASE() { lock_.unlock_shared(); }
  SharedLockGuard(const SharedLockGuard&) = delete;
  SharedLockGuard& operator=(const SharedLockGuard&) = delete;

 private:
  Lock& lock_;
};

}  // namespace lmx
