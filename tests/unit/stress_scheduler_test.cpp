// Stress: a three-stage pipeline on one scheduler, driven from many threads with
// failures from a fixed seed: deterministic outcomes, interleavings for ThreadSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "scheduler_test_support.h"

using namespace Norvik::Lumetra;
using namespace lmxtest;

namespace {

// One node: its output (the address is the handle), its sync point, the indexes of
// its inputs in the previous stage, its consumer callback and what it completed with.
struct Node {
  int output = 0;
  LMXSyncPoint* sp = nullptr;
  std::vector<int> inputs;
  std::unique_ptr<RecordingTask> task;
  std::atomic<Status> result{LMX_STATUS_EXEC_INPROGRESS};
};
using Stage = std::vector<std::unique_ptr<Node>>;

}  // namespace

TEST(StressScheduler, PipelineRunsEveryCallbackOnceWithTheRightStatus) {
  constexpr int kSources = 600, kMiddle = 300, kSinks = 300;
  constexpr Status kErrors[] = {LMX_STATUS_DEVICE_FAILED, LMX_STATUS_PARAM_UNSUPPORTED, LMX_STATUS_EXEC_ABORTED};
  HostSession session;
  SchedulerRef scheduler(&session);
  LMXSchedulerService* service = scheduler.service();

  std::mt19937 random(20240531);
  auto makeStage = [&](int count, int inputsFrom) {
    Stage stage;
    for (int i = 0; i < count; ++i) {
      auto node = std::make_unique<Node>();
      for (int k = 0, n = inputsFrom ? 1 + static_cast<int>(random() % 3) : 0; k < n; ++k)
        node->inputs.push_back(static_cast<int>(random() % inputsFrom));  // repeats allowed
      void* out = &node->output;
      EXPECT_EQ(service->MarkOutputs(1, &out, LMX_STATUS_EXEC_INPROGRESS), LMX_STATUS_NO_ERROR);
      EXPECT_EQ(service->CreateSyncPoint(1, &out, &node->sp), LMX_STATUS_NO_ERROR);
      stage.push_back(std::move(node));
    }
    return stage;
  };
  auto sources = makeStage(kSources, 0);
  auto middle = makeStage(kMiddle, kSources);
  auto sinks = makeStage(kSinks, kMiddle);
  std::vector<Status> sourceStatus(kSources);
  for (auto& sts : sourceStatus) sts = random() % 6 == 0 ? kErrors[random() % 3] : LMX_STATUS_NO_ERROR;

  // Completing a node: its output, then its sync point (as a producer does).
  auto complete = [&](Node& node, Status sts) {
    node.result.store(sts);
    void* out = &node.output;
    service->MarkOutputs(1, &out, sts);
    SignalFace(node.sp)->SignalSyncPoint(sts);
  };
  // Middle nodes complete their own output from their callback (inline ones under
  // the completing producer's lock); sinks only record. Every other callback is inline.
  for (size_t j = 0; j < middle.size(); ++j) {
    Node* node = middle[j].get();
    node->task = std::make_unique<RecordingTask>(j % 2 ? L"(inline) middle" : L"middle",
                                                 [&complete, node](Status sts) { complete(*node, sts); });
  }
  for (size_t j = 0; j < sinks.size(); ++j)
    sinks[j]->task = std::make_unique<RecordingTask>(j % 2 ? L"(inline) sink" : L"sink");

  auto request = [&](Stage& stage, Stage& from, int first, int step) {
    for (size_t j = first; j < stage.size(); j += step) {
      std::vector<void*> inputs;
      for (int i : stage[j]->inputs) inputs.push_back(&from[i]->output);
      EXPECT_EQ(service->RequestInputs(static_cast<int32_t>(inputs.size()), inputs.data(), stage[j]->task.get()),
                LMX_STATUS_NO_ERROR);
    }
  };
  std::vector<int> order(kSources);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), random);

  std::vector<std::thread> threads;
  for (int p = 0; p < 3; ++p)  // producers
    threads.emplace_back([&, p] {
      for (int k = p; k < kSources; k += 3) complete(*sources[order[k]], sourceStatus[order[k]]);
    });
  for (int c = 0; c < 2; ++c) {  // consumers registering while the producers complete
    threads.emplace_back([&, c] { request(middle, sources, c, 2); });
    threads.emplace_back([&, c] { request(sinks, middle, c, 2); });
  }
  threads.emplace_back([&] {  // a waiter on every seventh source's sync point
    for (int i = 0; i < kSources; i += 7) EXPECT_EQ(sources[i]->sp->Synchronize(10000), sourceStatus[i]);
  });
  for (auto& thread : threads) thread.join();

  for (auto& node : middle) ASSERT_TRUE(node->task->WaitForRuns(1, 10000ms));
  for (auto& node : sinks) ASSERT_TRUE(node->task->WaitForRuns(1, 10000ms));
  RecordingTask drain(L"drain");  // queued behind every pooled callback
  ASSERT_EQ(scheduler->SubmitTask(&drain, LMX_STATUS_NO_ERROR), LMX_STATUS_NO_ERROR);
  ASSERT_TRUE(drain.WaitForRuns(1, 10000ms));

  // Once each: success when every input succeeded, else one of the inputs' errors.
  for (auto [consumers, producers] : {std::pair{&middle, &sources}, {&sinks, &middle}})
    for (auto& node : *consumers) {
      ASSERT_EQ(node->task->Runs(), 1);
      std::set<Status> expected;
      for (int i : node->inputs) expected.insert(std::min((*producers)[i]->result.load(), LMX_STATUS_NO_ERROR));
      if (expected.size() > 1) expected.erase(LMX_STATUS_NO_ERROR);
      EXPECT_TRUE(expected.count(node->task->Last())) << node->task->Last();
    }
  // Every sync point holds its node's status.
  for (auto* stage : {&sources, &middle})
    for (auto& node : *stage) {
      EXPECT_EQ(node->sp->Synchronize(0), node->result.load());
      EXPECT_EQ(node->sp->QueryOutputStatus(&node->output), node->result.load());
      node->sp->Release();
    }
  for (auto& node : sinks) {
    SignalFace(node->sp)->SignalSyncPoint(LMX_STATUS_NO_ERROR);
    node->sp->Release();
  }
}
