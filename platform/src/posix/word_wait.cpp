// Waits on a word through private futexes (the POSIX back end is Linux's, as its
// eventfd events are).
#include "lmx/platform/word_wait.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace lmx::platform {

namespace {
long Futex(const std::atomic<uint32_t>& word, int operation, uint32_t value) {
  return syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}
}  // namespace

void WaitWhileEqual(const std::atomic<uint32_t>& word, uint32_t expected) {
  Futex(word, FUTEX_WAIT_PRIVATE, expected);  // EAGAIN and EINTR are spurious returns
}
void WakeOne(const std::atomic<uint32_t>& word) { Futex(word, FUTEX_WAKE_PRIVATE, 1); }

}  // namespace lmx::platform
