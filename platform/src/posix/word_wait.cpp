// Waits on a word through private futexes (the POSIX back end is Linux's, as its
// eventfd events are).
#include "lmx/platform/word_wait.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace lmx::platform {

namespace {
long Futex(const std::atomic<uint32_t>& word, int operation, uint32_t value, const timespec* timeout = nullptr) {
  return syscall(SYS_futex, &word, operation, value, timeout, nullptr, 0);
}
}  // namespace

void WaitWhileEqual(const std::atomic<uint32_t>& word, uint32_t expected) {
  Futex(word, FUTEX_WAIT_PRIVATE, expected);  // EAGAIN and EINTR are spurious returns
}
void WaitWhileEqualFor(const std::atomic<uint32_t>& word, uint32_t expected, int64_t timeout_us) {
  const timespec timeout{static_cast<time_t>(timeout_us / 1000000), static_cast<long>(timeout_us % 1000000 * 1000)};
  Futex(word, FUTEX_WAIT_PRIVATE, expected, &timeout);  // a relative timeout; ETIMEDOUT is a return like any
}
void WakeOne(const std::atomic<uint32_t>& word) { Futex(word, FUTEX_WAKE_PRIVATE, 1); }

}  // namespace lmx::platform
