// word_wait.h: sleeping until a 32-bit word changes, and waking its sleepers.
//
// The kernel's address-keyed wait: a thread goes to sleep only if the word still
// holds the value it expects when the kernel looks, so a change and wake that
// fall between the caller's last read and the sleep are not lost. Nothing spins
// or yields before sleeping (callers that want to spin do it themselves), which
// keeps a sleeper from losing its claim on the processor it is woken on.
//
// Linux: private futexes. Windows: WaitOnAddress and WakeByAddress.
#pragma once

#include <atomic>
#include <cstdint>

namespace lmx::platform {

// Sleeps while `word` holds `expected`. May return spuriously: callers loop.
void WaitWhileEqual(const std::atomic<uint32_t>& word, uint32_t expected);
// The same, for at most `timeout_us` microseconds.
void WaitWhileEqualFor(const std::atomic<uint32_t>& word, uint32_t expected, int64_t timeout_us);
// Wakes one thread sleeping on `word`.
void WakeOne(const std::atomic<uint32_t>& word);

}  // namespace lmx::platform
