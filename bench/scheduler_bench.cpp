// The scheduler as a host drives it, beside oneTBB doing the same work in the same
// run. The library is loaded at run time and its export table's scheduler entry makes a
// scheduler for a session that offers a session service; tasks are the host's own
// callbacks. Each benchmark times both sides in every iteration, alternating, and
// reports their rates and the ratio ours / oneTBB as counters (above 1: we are
// faster), so one run gives the comparison:
//
//   Flat        1M trivial non-inline tasks submitted from one thread (task_group)
//   Spawning    a binary tree of tasks, each submitting its two children (task_group)
//   Latency     submit-to-run of one task with idle workers: medians as ns/item,
//               p99s in the label (task_arena)
//   Chain       100,000 stages, each requesting the previous stage's output and
//               completing its own; registration and run (flow::graph continue_nodes)
//   ChainWork   the scheduler's own work per chain stage, on one thread (CPU time)
//   FanIn       1,000 consumers each waiting on 8 of 64 outputs (flow::graph)
#include <benchmark/benchmark.h>
#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/task_arena.h>
#include <oneapi/tbb/task_group.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "lmxscheduler.h"
#include "module_host.h"
#include "host_session.h"

using namespace Norvik::Lumetra;
using Callback = LMXSchedulerService::Callback;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kFlatTasks = 1000000;
constexpr int kTreeDepth = 17;  // 2^18 - 1 tasks
constexpr int kTreeTasks = (1 << (kTreeDepth + 1)) - 1;
constexpr int kChainStages = 100000;
constexpr int kOutputs = 64;
constexpr int kConsumers = 1000;
constexpr int kInputsPerConsumer = 8;
constexpr int kLatencySamples = 400;

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// The library loaded as a host loads it, and one session's scheduler from its
// "CRSC" entry, with the two faces a host uses.
class Host {
 public:
  Host() {
    if (!module_.Load(lmxhost::DefaultCoreLibraryPath())) Fail("cannot load the library");
    if (module_.Create(LMXScheduler::kIid, &session_, &scheduler_) < 0) Fail("no scheduler");
    service_ = static_cast<LMXSchedulerService*>(scheduler_->QueryInstance(LMXSchedulerService::kIid));
    if (!service_) Fail("no scheduler service");
  }
  ~Host() { scheduler_->Release(); }
  LMXScheduler* Scheduler() const { return scheduler_; }
  LMXSchedulerService* Service() const { return service_; }

 private:
  [[noreturn]] static void Fail(const char* what) {
    std::fprintf(stderr, "scheduler_bench: %s\n", what);
    std::exit(1);
  }
  lmxhost::HostSession session_;
  lmxhost::Module module_;
  LMXScheduler* scheduler_ = nullptr;
  LMXSchedulerService* service_ = nullptr;
};

Host& TheHost() {
  static Host host;
  return host;
}

// Counts arrivals down to zero and wakes the waiting thread at the last one.
class Countdown {
 public:
  void Reset(int count) { remaining_.store(count, std::memory_order_relaxed); }
  void Arrive() {
    if (remaining_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    std::lock_guard lock(mutex_);
    done_ = true;
    condition_.notify_one();
  }
  void Wait() {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [&] { return done_; });
    done_ = false;
  }

 private:
  std::atomic<int> remaining_{0};
  std::mutex mutex_;
  std::condition_variable condition_;
  bool done_ = false;
};

// A host callback: not inline (no name), runs `body`.
template <class Body>
class Task final : public Callback {
 public:
  explicit Task(Body body = Body()) : body_(std::move(body)) {}
  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  Status Run(Status sts) override {
    body_(sts);
    return LMX_STATUS_NO_ERROR;
  }
  const wchar_t* QueryName() override { return L"Bench task"; }
  Body& body() { return body_; }

 private:
  Body body_;
};

// Seconds that one call of work takes.
template <class Work>
double TimeOf(Work&& work) {
  const Clock::time_point start = Clock::now();
  work();
  return Seconds(Clock::now() - start);
}

// Runs ours and oneTBB's version of one workload of `items` items in every
// iteration, alternating; the iteration time is ours. Counters give both rates,
// the time per item and the throughput ratio ours / oneTBB.
template <class Ours, class Theirs>
void SideBySide(benchmark::State& state, double items, Ours ours, Theirs theirs) {
  double oursTotal = 0, tbbTotal = 0;
  for (auto _ : state) {
    const double oursTime = TimeOf(ours);
    tbbTotal += TimeOf(theirs);
    oursTotal += oursTime;
    state.SetIterationTime(oursTime);
  }
  const double n = static_cast<double>(state.iterations()) * items;
  state.counters["ours_M/s"] = n / oursTotal / 1e6;
  state.counters["tbb_M/s"] = n / tbbTotal / 1e6;
  state.counters["ours/tbb"] = tbbTotal / oursTotal;
  state.counters["ours_ns/item"] = oursTotal / n * 1e9;
  state.counters["tbb_ns/item"] = tbbTotal / n * 1e9;
}

// --- Flat submission ----------------------------------------------------------

void Flat(benchmark::State& state) {
  Host& host = TheHost();
  Countdown done;
  struct Count {
    Countdown* done;
    void operator()(Status) const { done->Arrive(); }
  };
  Task<Count> task(Count{&done});
  std::atomic<int> tbbCount{0};
  SideBySide(
      state, kFlatTasks,
      [&] {
        done.Reset(kFlatTasks);
        for (int i = 0; i < kFlatTasks; ++i) host.Scheduler()->SubmitTask(&task, LMX_STATUS_NO_ERROR);
        done.Wait();
      },
      [&] {
        tbb::task_group group;
        for (int i = 0; i < kFlatTasks; ++i) group.run([&] { tbbCount.fetch_add(1, std::memory_order_relaxed); });
        group.wait();
      });
}
BENCHMARK(Flat)->UseManualTime()->Unit(benchmark::kMillisecond);

// --- Tasks spawning tasks -----------------------------------------------------

// Node i of the tree submits nodes 2i+1 and 2i+2.
struct TreeNode {
  LMXScheduler* scheduler;
  std::vector<Task<TreeNode>>* nodes;
  Countdown* done;
  int index;
  void operator()(Status) const {
    for (int child = 2 * index + 1; child <= 2 * index + 2 && child < kTreeTasks; ++child) {
      scheduler->SubmitTask(&(*nodes)[child], LMX_STATUS_NO_ERROR);
    }
    done->Arrive();
  }
};

void TbbTree(tbb::task_group& group, std::atomic<int>& count, int index) {
  for (int child = 2 * index + 1; child <= 2 * index + 2 && child < kTreeTasks; ++child) {
    group.run([&group, &count, child] { TbbTree(group, count, child); });
  }
  count.fetch_add(1, std::memory_order_relaxed);
}

void Spawning(benchmark::State& state) {
  Host& host = TheHost();
  Countdown done;
  std::vector<Task<TreeNode>> nodes;
  nodes.reserve(kTreeTasks);
  for (int i = 0; i < kTreeTasks; ++i) nodes.emplace_back(TreeNode{host.Scheduler(), &nodes, &done, i});
  std::atomic<int> tbbCount{0};
  SideBySide(
      state, kTreeTasks,
      [&] {
        done.Reset(kTreeTasks);
        host.Scheduler()->SubmitTask(&nodes[0], LMX_STATUS_NO_ERROR);
        done.Wait();
      },
      [&] {
        tbb::task_group group;
        group.run([&] { TbbTree(group, tbbCount, 0); });
        group.wait();
      });
}
BENCHMARK(Spawning)->UseManualTime()->Unit(benchmark::kMillisecond);

// --- Submit-to-run latency ----------------------------------------------------

// Median and 99th percentile in microseconds.
std::pair<double, double> Percentiles(std::vector<double>& samples) {
  std::sort(samples.begin(), samples.end());
  const auto at = [&](double q) { return samples[static_cast<size_t>(q * (samples.size() - 1))] * 1e6; };
  return {at(0.5), at(0.99)};
}

void Latency(benchmark::State& state) {
  Host& host = TheHost();
  struct Stamp {
    std::atomic<Clock::rep>* ran;
    void operator()(Status) const { ran->store(Clock::now().time_since_epoch().count(), std::memory_order_release); }
  };
  std::atomic<Clock::rep> ran{0};
  Task<Stamp> task(Stamp{&ran});
  tbb::task_arena arena;
  arena.initialize();
  std::vector<double> ours, theirs;
  // Submits one task after the workers have been idle for a while and measures
  // until it starts; the submitting thread spins meanwhile.
  const auto sample = [&](auto submit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ran.store(0, std::memory_order_relaxed);
    const Clock::time_point start = Clock::now();
    submit();
    Clock::rep stamp;
    while ((stamp = ran.load(std::memory_order_acquire)) == 0) {
    }
    return Seconds(Clock::duration(stamp) - start.time_since_epoch());
  };
  for (auto _ : state) {
    ours.push_back(sample([&] { host.Scheduler()->SubmitTask(&task, LMX_STATUS_NO_ERROR); }));
    theirs.push_back(sample([&] { arena.enqueue([&] { Stamp{&ran}(LMX_STATUS_NO_ERROR); }); }));
    state.SetIterationTime(ours.back());
  }
  // The same counter names as the other workloads (one item: one task), so that
  // every reporter takes them; the p99s go into the label.
  const auto [oursMedian, oursP99] = Percentiles(ours);
  const auto [tbbMedian, tbbP99] = Percentiles(theirs);
  state.counters["ours_ns/item"] = oursMedian * 1e3;
  state.counters["tbb_ns/item"] = tbbMedian * 1e3;
  state.counters["ours/tbb"] = tbbMedian / oursMedian;
  char label[96];
  std::snprintf(label, sizeof label, "median ours %.1f us oneTBB %.1f us; p99 ours %.1f us oneTBB %.1f us", oursMedian,
                tbbMedian, oursP99, tbbP99);
  state.SetLabel(label);
}
BENCHMARK(Latency)->UseManualTime()->Iterations(kLatencySamples)->Unit(benchmark::kMicrosecond);

// --- A dependency chain -------------------------------------------------------

// Stage i waits for output i - 1 and completes output i.
struct Stage {
  LMXSchedulerService* service;
  void** output;  // this stage's output; the previous one is output[-1]
  Countdown* done;
  void operator()(Status sts) const {
    // Once the output is complete the following stages may run and the host
    // may release every stage and output, this one's included: everything is
    // read first.
    const Stage self = *this;
    const bool last = !self.output[1];
    self.service->MarkOutputs(1, self.output, sts);
    if (last) self.done->Arrive();
  }
};

void Chain(benchmark::State& state) {
  Host& host = TheHost();
  LMXSchedulerService* service = host.Service();
  Countdown done;
  // Output keys: any distinct addresses; one more slot holds null after the last.
  std::vector<char> keys(kChainStages + 1);
  std::vector<void*> outputs(kChainStages + 2, nullptr);
  for (int i = 0; i <= kChainStages; ++i) outputs[i] = &keys[i];
  SideBySide(
      state, kChainStages,
      [&] {
        done.Reset(1);
        std::vector<Task<Stage>> stages;
        stages.reserve(kChainStages);
        for (int i = 0; i <= kChainStages; ++i) service->MarkOutputs(1, &outputs[i], LMX_STATUS_EXEC_INPROGRESS);
        for (int i = 1; i <= kChainStages; ++i) {
          stages.emplace_back(Stage{service, &outputs[i], &done});
          service->RequestInputs(1, &outputs[i - 1], &stages.back());
        }
        service->MarkOutputs(1, &outputs[0], LMX_STATUS_NO_ERROR);
        done.Wait();
      },
      [&] {
        using namespace tbb::flow;
        graph graph;
        broadcast_node<continue_msg> source(graph);
        std::deque<continue_node<continue_msg>> nodes;
        for (int i = 0; i < kChainStages; ++i) {
          nodes.emplace_back(graph, [](const continue_msg&) { return continue_msg(); });
          if (i == 0) {
            make_edge(source, nodes.back());
          } else {
            make_edge(nodes[i - 1], nodes.back());
          }
        }
        source.try_put(continue_msg());
        graph.wait_for_all();
      });
}
BENCHMARK(Chain)->UseManualTime()->Unit(benchmark::kMillisecond);

// The scheduler's own work per stage of the chain, on one thread: declaring the
// output, registering the request, completing the input and handing the callback
// over. The callbacks run inline and do nothing; the host completes each output
// in turn, so no worker takes part.
void ChainWork(benchmark::State& state) {
  LMXSchedulerService* service = TheHost().Service();
  class Inline final : public Callback {
   public:
    void* QueryInstance(InterfaceId) override { return nullptr; }
    void Release() override {}
    Status Run(Status) override { return LMX_STATUS_NO_ERROR; }
    const wchar_t* QueryName() override { return L"(inline) stage"; }
  } stage;
  std::vector<char> keys(kChainStages + 1);
  std::vector<void*> outputs(kChainStages + 1);
  for (int i = 0; i <= kChainStages; ++i) outputs[i] = &keys[i];
  // Process CPU time: the workers sleep throughout, so it is this thread's.
  const std::clock_t start = std::clock();
  for (auto _ : state) {
    for (int i = 0; i <= kChainStages; ++i) service->MarkOutputs(1, &outputs[i], LMX_STATUS_EXEC_INPROGRESS);
    for (int i = 1; i <= kChainStages; ++i) service->RequestInputs(1, &outputs[i - 1], &stage);
    for (int i = 0; i <= kChainStages; ++i) service->MarkOutputs(1, &outputs[i], LMX_STATUS_NO_ERROR);
  }
  const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  const double stages = static_cast<double>(state.iterations()) * kChainStages;
  state.counters["ours_M/s"] = stages / seconds / 1e6;
  state.counters["ours_ns/item"] = seconds / stages * 1e9;
}
BENCHMARK(ChainWork)->Unit(benchmark::kMillisecond);

// --- Fan-in -------------------------------------------------------------------

// The 8 distinct outputs of consumer c, spread over the 64.
std::vector<int> InputsOf(int c) {
  std::vector<int> inputs;
  uint32_t x = 2654435761u * static_cast<uint32_t>(c + 1);
  while (static_cast<int>(inputs.size()) < kInputsPerConsumer) {
    x = x * 1664525u + 1013904223u;
    const int pick = static_cast<int>(x >> 26);  // 0..63
    if (std::find(inputs.begin(), inputs.end(), pick) == inputs.end()) inputs.push_back(pick);
  }
  return inputs;
}

void FanIn(benchmark::State& state) {
  Host& host = TheHost();
  LMXSchedulerService* service = host.Service();
  Countdown done;
  struct Consume {
    Countdown* done;
    void operator()(Status) const { done->Arrive(); }
  };
  std::vector<Task<Consume>> consumers(kConsumers, Task<Consume>(Consume{&done}));
  std::vector<char> keys(kOutputs);
  std::vector<void*> outputs(kOutputs);
  for (int i = 0; i < kOutputs; ++i) outputs[i] = &keys[i];
  std::vector<std::vector<void*>> inputs(kConsumers);
  std::vector<std::vector<int>> picks(kConsumers);
  for (int c = 0; c < kConsumers; ++c) {
    picks[c] = InputsOf(c);
    for (int i : picks[c]) inputs[c].push_back(outputs[i]);
  }
  std::atomic<int> tbbCount{0};
  SideBySide(
      state, kConsumers,
      [&] {
        done.Reset(kConsumers);
        service->MarkOutputs(kOutputs, outputs.data(), LMX_STATUS_EXEC_INPROGRESS);
        for (int c = 0; c < kConsumers; ++c)
          service->RequestInputs(kInputsPerConsumer, inputs[c].data(), &consumers[c]);
        for (int i = 0; i < kOutputs; ++i) service->MarkOutputs(1, &outputs[i], LMX_STATUS_NO_ERROR);
        done.Wait();
      },
      [&] {
        using namespace tbb::flow;
        graph graph;
        std::deque<broadcast_node<continue_msg>> producers;
        std::deque<continue_node<continue_msg>> sinks;
        for (int i = 0; i < kOutputs; ++i) producers.emplace_back(graph);
        for (int c = 0; c < kConsumers; ++c) {
          sinks.emplace_back(graph, [&](const continue_msg&) {
            tbbCount.fetch_add(1, std::memory_order_relaxed);
            return continue_msg();
          });
          for (int i : picks[c]) make_edge(producers[i], sinks.back());
        }
        for (auto& producer : producers) producer.try_put(continue_msg());
        graph.wait_for_all();
      });
}
BENCHMARK(FanIn)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
