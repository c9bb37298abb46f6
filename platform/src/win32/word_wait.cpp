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
void WakeOne(const std::atomic<uint32_t>& word) { WakeByAddressSingle(Address(word)); }

}  // namespace lmx::platform
