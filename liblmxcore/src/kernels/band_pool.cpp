// The band threads. Each thread owns a slot with one state word; a caller hands
// a job to an idle thread by claiming its slot directly (there is no shared
// queue, so a caller never waits for a thread that is busy elsewhere), and
// takes back, before it started, any hand-off the thread has not picked up by
// the time the caller ran out of bands: a thread slow to wake costs nothing.
#include "kernels/band_pool.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstdlib>
#include <chrono>
#include <cstdio>
#include <cwchar>
#include <mutex>

#include "lmx/platform/environment.h"
#include "lmx/platform/thread.h"
#include "lmx/platform/word_wait.h"
#include "lmxutils.h"

namespace lmx {

namespace detail {
std::atomic<int64_t> g_band_threshold_bytes{kDefaultBandThresholdBytes};
}  // namespace detail

namespace {

using detail::BandJob;

constexpr int32_t kMaxThreads = kMaxConversionThreads;
// Bands per participating thread at least: a few, so that a thread that starts
// late or is preempted leaves its share to the others.
constexpr int32_t kBandsPerThread = 4;
// Work per band at most (bytes read plus written): half of a core's 1 MiB
// second-level cache, so a band's rows stay cached while it runs and a band
// thread that starts late keeps the caller waiting for one short band only
// (tens of microseconds) rather than an eighth of the frame.
constexpr int64_t kBandBytes = 512 << 10;
// How long a caller spins for a band thread's last band before sleeping: the
// longest band, with margin. Sleeping costs more (the band thread's wake-up
// call, then the caller's vCPU waking) than spinning for a band that has run.
constexpr int64_t kFinishSpinNs = 200'000;
// A steady stream of banded jobs (a camera's large frames) finds a band thread
// awake: between jobs it sleeps until kEarlyNs before the next is due, then
// spins until the job comes or kLateNs after it was due, and sleeps again
// without a time limit when none came. The caller then hands the job over
// without a wake-up call. (Waking a halted virtual processor cost the caller 40
// to 60 us and started the band thread 100 to 130 us late, the difference
// between 1.5x and 1.8x at 4K.) Intervals longer than kMaxPeriodNs are no stream.
constexpr int64_t kEarlyNs = 300'000, kLateNs = 300'000, kMaxPeriodNs = 100'000'000;

// A slot's state word: generation | spinning bit | waiter bit | stop bit | phase. The
// generation grows by one each time a hand-off ends, so a caller waiting for
// "its" run never mistakes a later run of the same thread for it. The stop bit
// is set at unload and kept by every later change. The spinning bit marks an
// idle thread that is awake, waiting for a job due now.
constexpr uint32_t kIdle = 0, kClaimed = 1, kAssigned = 2, kRunning = 3;
constexpr uint32_t kPhaseMask = 3, kStop = 4, kWaiter = 8, kSpinning = 16, kGenerationStep = 32;
constexpr uint32_t Phase(uint32_t word) { return word & kPhaseMask; }
constexpr uint32_t Generation(uint32_t word) { return word & ~(kGenerationStep - 1); }
// The word without its flags: what a caller waiting for a run compares.
constexpr uint32_t Live(uint32_t word) { return word & ~(kStop | kWaiter); }

int64_t NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// One job's bands, taken one at a time by whoever runs them: the caller from
// the front, band threads from the back. Each thread then streams through a
// region of its own instead of every other band (two threads at 4K took 5 to
// 35% less time so), and the caller starts where the frame begins.
struct Bands {
  const BandJob& job;
  int32_t band_units;
  int32_t count;
  // The bands not yet taken, [front, back): back in the high half, front in the low.
  std::atomic<uint64_t> left{static_cast<uint64_t>(count) << 32};
  int64_t handed_ns = NowNs();              // when the hand-off began
  std::atomic<int64_t> first_helper_ns{0};  // when a band thread first picked the job up

  // Runs bands until none is left; returns how many this thread ran.
  int32_t RunAll(bool from_back) {
    int32_t ran = 0;
    uint64_t word = left.load(std::memory_order_relaxed);
    for (;;) {
      const auto front = static_cast<uint32_t>(word), back = static_cast<uint32_t>(word >> 32);
      if (front >= back) return ran;
      const uint64_t taken = from_back ? word - (uint64_t{1} << 32) : word + 1;
      if (!left.compare_exchange_weak(word, taken, std::memory_order_relaxed)) continue;
      const int32_t begin = static_cast<int32_t>(from_back ? back - 1 : front) * band_units;
      job.run(job.body, begin, std::min(begin + band_units, job.units));
      ++ran;
      word = left.load(std::memory_order_relaxed);
    }
  }
};

// The rhythm of banded jobs: when the next is due (steady clock, ns; 0 while
// the last intervals disagree). Callers update it without a lock: it only
// decides when band threads are awake.
class JobRhythm {
 public:
  void Job(int64_t now) {
    const int64_t last = last_ns_.exchange(now, std::memory_order_relaxed);
    const int64_t interval = now - last;
    int64_t period = period_ns_.load(std::memory_order_relaxed);
    // Two intervals within a quarter of each other make a rhythm.
    const bool steady = period > 0 && 4 * std::abs(interval - period) <= period;
    period = steady ? period + (interval - period) / 4 : (last > 0 && interval < kMaxPeriodNs ? interval : 0);
    period_ns_.store(period, std::memory_order_relaxed);
    next_ns_.store(steady ? now + period : 0, std::memory_order_relaxed);
  }
  int64_t NextNs() const { return next_ns_.load(std::memory_order_relaxed); }

 private:
  std::atomic<int64_t> last_ns_{0}, period_ns_{0}, next_ns_{0};
};
JobRhythm g_rhythm;

// Sums over the banded jobs since load, for BandedJobTimings.
struct {
  std::atomic<int64_t> handoff_ns{0}, helper_start_ns{0}, helper_starts{0}, caller_bands{0}, bands{0};
} g_timings;

// Set on band threads and on a caller while it runs bands: a conversion started
// from inside a band runs on its own thread.
thread_local bool t_in_band = false;

struct alignas(64) Slot {
  std::atomic<uint32_t> word{kIdle};
  Bands* bands = nullptr;  // written by the claimer before kAssigned (release)
  platform::ThreadHandle thread = nullptr;
  int32_t number = 0;
};

// Spins while `same(word)` holds for the word last read and the steady clock
// is before `until_ns`; returns the word last read. The clock is read once
// every 64 pauses (about 1.5 us).
template <class Same>
uint32_t SpinWhile(const std::atomic<uint32_t>& word, Same same, int64_t until_ns) {
  uint32_t seen = word.load(std::memory_order_acquire);
  for (int spin = 1; same(seen); ++spin) {
    if (spin % 64 == 0 && NowNs() > until_ns) break;
    _mm_pause();
    seen = word.load(std::memory_order_acquire);
  }
  return seen;
}

// Waits, idle, until the slot's word changes (or spuriously): asleep, except
// around the moment the job rhythm says the next job is due.
void AwaitJob(Slot& slot, uint32_t word) {
  const int64_t next = g_rhythm.NextNs(), now = NowNs();
  if (next == 0 || now > next + kLateNs) return platform::WaitWhileEqual(slot.word, word);
  if (now < next - kEarlyNs) return platform::WaitWhileEqualFor(slot.word, word, (next - kEarlyNs - now) / 1000 + 1);
  const uint32_t spinning = word | kSpinning;
  if (!slot.word.compare_exchange_strong(word, spinning, std::memory_order_relaxed)) return;
  uint32_t seen = SpinWhile(
      slot.word, [&](uint32_t w) { return w == spinning; }, next + kLateNs);
  // No job came: back to plain idle, unless a claim comes first.
  if (seen == spinning) slot.word.compare_exchange_strong(seen, word, std::memory_order_relaxed);
}

uint32_t BandThread(void* argument) {
  Slot& slot = *static_cast<Slot*>(argument);
  char name[16];
  std::snprintf(name, sizeof name, "lmx-band-%d", static_cast<int>(slot.number));
  platform::NameCurrentThread(name);
  // Woken while the other processors are busy, a band thread must not take the
  // caller's processor from it: it waits for a time slice, and the caller, out
  // of bands, takes back a hand-off not yet started. (Preempting its waker, a
  // band thread held the caller off its processor for 0.4 to 1.5 ms per frame
  // on a busy machine.)
  platform::NeverPreemptOnWake();
  t_in_band = true;
  for (;;) {
    uint32_t word = slot.word.load(std::memory_order_acquire);
    if (word & kStop) return 0;     // a hand-off not yet taken was run by its caller
    if (Phase(word) == kClaimed) {  // the claimer assigns it a few instructions later
      _mm_pause();
      continue;
    }
    if (Phase(word) != kAssigned) {
      AwaitJob(slot, word);
      continue;
    }
    // The caller may take the hand-off back until this exchange succeeds.
    if (!slot.word.compare_exchange_strong(word, Generation(word) | kRunning, std::memory_order_acquire)) continue;
    int64_t unset = 0;
    slot.bands->first_helper_ns.compare_exchange_strong(unset, NowNs(), std::memory_order_relaxed);
    slot.bands->RunAll(true);
    uint32_t before = slot.word.load(std::memory_order_relaxed);
    while (!slot.word.compare_exchange_weak(before, (Generation(word) + kGenerationStep) | kIdle | (before & kStop),
                                            std::memory_order_release, std::memory_order_relaxed)) {
    }
    if (before & kWaiter) platform::WakeOne(slot.word);
  }
}

class BandPool {
 public:
  ~BandPool() { Stop(); }

  // Starts threads until `count` run (or one cannot be created); returns how many run.
  int32_t EnsureThreads(int32_t count) {
    int32_t started = started_.load(std::memory_order_acquire);
    if (started >= count) return started;
    std::lock_guard lock(start_mutex_);
    started = started_.load(std::memory_order_relaxed);
    for (; started < count; started_.store(++started, std::memory_order_release)) {
      Slot& slot = slots_[started];
      slot.number = started + 1;
      slot.thread = platform::StartThread(&BandThread, &slot);
      if (!slot.thread) break;
    }
    return started;
  }

  Slot& At(int32_t index) { return slots_[index]; }

  int32_t Running() const { return started_.load(std::memory_order_acquire); }

 private:
  // At unload: a thread still running bands (a conversion on another thread
  // at process exit) finishes them first.
  void Stop() {
    const int32_t started = started_.exchange(0, std::memory_order_acq_rel);
    for (int32_t i = 0; i < started; ++i) {
      slots_[i].word.fetch_or(kStop, std::memory_order_acq_rel);
      platform::WakeOne(slots_[i].word);
    }
    for (int32_t i = 0; i < started; ++i) platform::JoinLeavingThread(slots_[i].thread);
  }

  std::mutex start_mutex_;
  std::atomic<int32_t> started_{0};
  Slot slots_[kMaxThreads - 1];
};

BandPool g_pool;
std::atomic<int32_t> g_limit{0};  // 0: the default
std::atomic<uint64_t> g_banded{0};

int32_t Clamp(long threads) { return static_cast<int32_t>(std::clamp<long>(threads, 1, kMaxThreads)); }

int32_t DefaultLimit() {
  static const int32_t limit = [] {
    if (const auto text = platform::ReadEnvironmentVariable(L"LMX_THREADS")) {
      wchar_t* end = nullptr;
      const long threads = std::wcstol(text->c_str(), &end, 10);
      if (!text->empty() && *end == L'\0' && threads > 0) return Clamp(threads);
      LMX_LOG(Norvik::Lumetra::LOG_LEVEL_WARN, L"LMX_THREADS=\"" << *text << L"\" is not a positive number; ignored");
    }
    return Clamp(std::max<long>(platform::LogicalProcessorCount(), 1));
  }();
  return limit;
}

// Waits until the thread in `slot` has finished its run of generation
// `generation`, or takes the hand-off back if the thread has not started it.
void Finish(Slot& slot, uint32_t generation) {
  uint32_t word = generation | kAssigned;
  if (slot.word.compare_exchange_strong(word, (generation + kGenerationStep) | kIdle, std::memory_order_acq_rel,
                                        std::memory_order_acquire))
    return;
  // Not running (a stop bit came before the thread took it): every band was
  // the caller's. Running: its bands end with the run.
  const uint32_t running = generation | kRunning;
  word = SpinWhile(
      slot.word, [&](uint32_t w) { return Live(w) == running; }, NowNs() + kFinishSpinNs);
  while (Live(word) == running) {
    if (!(word & kWaiter)) {
      if (!slot.word.compare_exchange_weak(word, word | kWaiter, std::memory_order_acquire, std::memory_order_acquire))
        continue;
      word |= kWaiter;
    }
    platform::WaitWhileEqual(slot.word, word);
    word = slot.word.load(std::memory_order_acquire);
  }
}

}  // namespace

void SetConversionThreadLimit(int32_t threads) { g_limit.store(threads <= 0 ? 0 : Clamp(threads)); }

int32_t ConversionThreadLimit() {
  const int32_t limit = g_limit.load(std::memory_order_relaxed);
  return limit > 0 ? limit : DefaultLimit();
}

int64_t SetBandThresholdBytes(int64_t bytes) { return detail::g_band_threshold_bytes.exchange(bytes); }

uint64_t BandedJobCount() { return g_banded.load(std::memory_order_relaxed); }

BandTimings BandedJobTimings() {
  return {g_timings.handoff_ns.load(std::memory_order_relaxed) / 1000,
          g_timings.helper_start_ns.load(std::memory_order_relaxed) / 1000,
          g_timings.helper_starts.load(std::memory_order_relaxed),
          g_timings.caller_bands.load(std::memory_order_relaxed), g_timings.bands.load(std::memory_order_relaxed)};
}

namespace detail {

void RunBandJob(const BandJob& job) {
  const int32_t limit = ConversionThreadLimit();
  const int32_t max_bands = job.units / job.grain;
  if (limit <= 1 || t_in_band || max_bands < 2) {
    job.run(job.body, 0, job.units);
    return;
  }
  g_rhythm.Job(NowNs());
  const int32_t helpers = std::min(limit - 1, max_bands - 1);
  const int32_t running = g_pool.EnsureThreads(helpers);

  // Whole grains per band, the last band taking the remainder.
  const int64_t by_size = job.bytes / kBandBytes;
  const int32_t wanted =
      static_cast<int32_t>(std::min<int64_t>(max_bands, std::max<int64_t>((helpers + 1) * kBandsPerThread, by_size)));
  const int32_t band_units = (max_bands + wanted - 1) / wanted * job.grain;
  Bands bands{job, band_units, (job.units + band_units - 1) / band_units};

  Slot* handed[kMaxThreads];
  uint32_t generations[kMaxThreads];
  int32_t count = 0;
  for (int32_t i = 0; i < running && count < helpers; ++i) {
    Slot& slot = g_pool.At(i);
    uint32_t word = slot.word.load(std::memory_order_relaxed);
    bool claimed = false;  // retried while the thread only starts or stops spinning
    while (Phase(word) == kIdle && !(word & kStop) &&
           !(claimed = slot.word.compare_exchange_weak(word, Generation(word) | kClaimed, std::memory_order_acquire))) {
    }
    if (!claimed) continue;
    slot.bands = &bands;
    // Claimed to assigned, keeping a stop bit that unloading may have set meanwhile.
    slot.word.fetch_add(kAssigned - kClaimed, std::memory_order_release);
    if (!(word & kSpinning)) platform::WakeOne(slot.word);
    handed[count] = &slot;
    generations[count++] = Generation(word);
  }
  if (count == 0) {  // every band thread is busy: the caller converts alone
    job.run(job.body, 0, job.units);
    return;
  }
  g_banded.fetch_add(1, std::memory_order_relaxed);
  g_timings.handoff_ns.fetch_add(NowNs() - bands.handed_ns, std::memory_order_relaxed);
  t_in_band = true;
  const int32_t ran = bands.RunAll(false);
  t_in_band = false;
  for (int32_t i = 0; i < count; ++i) Finish(*handed[i], generations[i]);
  // Finish ordered the band threads' stores before these reads.
  if (const int64_t first = bands.first_helper_ns.load(std::memory_order_relaxed)) {
    g_timings.helper_start_ns.fetch_add(first - bands.handed_ns, std::memory_order_relaxed);
    g_timings.helper_starts.fetch_add(1, std::memory_order_relaxed);
  }
  g_timings.caller_bands.fetch_add(ran, std::memory_order_relaxed);
  g_timings.bands.fetch_add(bands.count, std::memory_order_relaxed);
}

}  // namespace detail

}  // namespace lmx
