// Events on POSIX: eventfd written once and never read, waited for with poll().
#include "lmx/platform/event.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace lmx::platform {

namespace {

int ToFd(EventHandle handle) { return static_cast<int>(reinterpret_cast<intptr_t>(handle)); }
EventHandle ToHandle(int fd) { return reinterpret_cast<EventHandle>(static_cast<intptr_t>(fd)); }

using Clock = std::chrono::steady_clock;

// Milliseconds left until the deadline for poll(): -1 forever, 0 when passed.
int RemainingMs(int32_t timeoutMs, Clock::time_point deadline) {
  if (timeoutMs < 0) return -1;
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// poll() that retries on EINTR; the time-out is recomputed from the deadline.
int PollUntil(pollfd* fds, nfds_t count, int32_t timeoutMs, Clock::time_point deadline) {
  for (;;) {
    const int ready = ::poll(fds, count, RemainingMs(timeoutMs, deadline));
    if (ready >= 0 || errno != EINTR) return ready;
  }
}

bool IsInvalid(const pollfd& fd) { return (fd.revents & POLLNVAL) != 0; }
// Readable counts as signalled; an error or hang-up makes a descriptor readable
// too (a read would not block), as for a closed pipe.
bool IsSignalled(const pollfd& fd) { return (fd.revents & (POLLIN | POLLERR | POLLHUP)) != 0; }

}  // namespace

EventHandle CreateManualResetEvent() {
  int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fd == 0) {
    // Descriptor 0 would read as a null handle; move it up.
    const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 1);
    ::close(fd);
    fd = moved;
  }
  return fd > 0 ? ToHandle(fd) : nullptr;
}

bool SetEvent(EventHandle event) {
  if (!event) return false;
  const uint64_t one = 1;
  // The counter only grows; EAGAIN (counter full) still leaves it readable.
  const ssize_t written = ::write(ToFd(event), &one, sizeof one);
  return written == static_cast<ssize_t>(sizeof one) || errno == EAGAIN;
}

void CloseEvent(EventHandle event) {
  if (event) ::close(ToFd(event));
}

uint32_t WaitForEvent(EventHandle event, int32_t timeoutMs) { return WaitForEvents(1, &event, true, timeoutMs); }

uint32_t WaitForEvents(uint32_t count, const EventHandle* handles, bool waitAll, int32_t timeoutMs) {
  if (count == 0 || count > kMaximumWaitObjects || !handles) return kWaitFailed;
  pollfd fds[kMaximumWaitObjects];
  uint32_t index[kMaximumWaitObjects];  // position in handles of each polled entry
  for (uint32_t i = 0; i < count; ++i) {
    if (!handles[i]) return kWaitFailed;
    fds[i] = {ToFd(handles[i]), POLLIN, 0};
    index[i] = i;
  }
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0);
  nfds_t waiting = count;  // entries not yet seen signalled, at the front of fds
  for (;;) {
    const int ready = PollUntil(fds, waiting, timeoutMs, deadline);
    if (ready < 0) return kWaitFailed;
    if (ready == 0) return kWaitTimeout;
    for (nfds_t i = 0; i < waiting; ++i)
      if (IsInvalid(fds[i])) return kWaitFailed;
    if (!waitAll) {
      // Like Windows, the lowest index among the signalled objects.
      for (nfds_t i = 0; i < waiting; ++i)
        if (IsSignalled(fds[i])) return kWaitObject0 + index[i];
      continue;
    }
    // Wait-all: drop the signalled descriptors (they stay signalled: nobody reads
    // them) and keep waiting for the rest.
    nfds_t kept = 0;
    for (nfds_t i = 0; i < waiting; ++i) {
      if (IsSignalled(fds[i])) continue;
      fds[kept] = fds[i];
      index[kept] = index[i];
      ++kept;
    }
    waiting = kept;
    if (waiting == 0) return kWaitObject0;
  }
}

}  // namespace lmx::platform
