// Waits on a word through WaitOnAddress and WakeByAddressSingle.
#include "lmx/platform/word_wait.h"

#include <windows.h>

namespace lmx::platform {

namespace {
void* Address(const std::atomic<uint32_t>& word) { return const_cast<std::atomic<uint32_t>*>(&word); }
}  // namespace

void WaitWhileEqual(const std::atomic<uint32_t>& word, uint32_t expected) {
  WaitOnAddress(Address(word), &expected, sizeof expected, INFINITE);
}
void WaitWhileEqualFor(const std::atomic<uint32_t>& word, uint32_t expected, int64_t timeout_us) {
  // Whole milliseconds, rounded up: the wait is a timer's, never shorter than asked.
  WaitOnAddress(Address(word), &expected, sizeof expected, static_cast<DWORD>((timeout_us + 999) / 1000));
}
void WakeOne(const std::atomic<uint32_t>& word) { WakeByAddressSingle(Address(word)); }

}  // namespace lmx::platform
