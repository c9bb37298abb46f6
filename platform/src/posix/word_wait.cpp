// Waits on a word: futexes on Linux, the standard atomic wait elsewhere.
#include "lmx/platform/word_wait.h"

#if defined(__linux__)
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace lmx::platform {

#if defined(__linux__)

namespace {
long Futex(const std::atomic<uint32_t>& word, int operation, uint32_t value) {
  return syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}
}  // namespace

void WaitWhileEqual(const std::atomic<uint32_t>& word, uint32_t expected) {
  Futex(word, FUTEX_WAIT_PRIVATE, expected);  // EAGAIN and EINTR are spurious returns
}
void WakeOne(const std::atomic<uint32_t>& word) { Futex(word, FUTEX_WAKE_PRIVATE, 1); }

#else

void WaitWhileEqual(const std::atomic<uint32_t>& word, uint32_t expected) {
  word.wait(expected, std::memory_order_relaxed);
}
void WakeOne(const std::atomic<uint32_t>& word) { const_cast<std::atomic<uint32_t>&>(word).notify_one(); }

#endif

}  // namespace lmx::platform
