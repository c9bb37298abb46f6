// pipeline.h: dependent tasks on the library's scheduler.
//
// Each task is handed to the scheduler with RequestInputs on the outputs of the
// tasks it depends on; it declares its own output pending (MarkOutputs with
// LMX_STATUS_EXEC_INPROGRESS) before anything is submitted, completes it with its
// result, and signals a sync point of its own. A task whose input failed is called
// with that error and does not run its work. Run waits until every submitted task
// has run, so nothing is still running when it returns.
//
// Example:
//   Pipeline pipeline(service);  // the scheduler's "SCH2" face
//   int load = pipeline.Add(L"load", [&](Status) { return Load(); });
//   pipeline.Add(L"save", [&](Status) { return Save(); }, {load});
//   Status sts = pipeline.Run(nullptr);
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lmxscheduler.h"
#include "lmxstatus.h"

namespace lmxtool {

using Norvik::Lumetra::Status;

class Pipeline {
 public:
  using Work = std::function<Status(Status inputs)>;
  using Progress = std::function<void(int done, int total)>;

  explicit Pipeline(LMXSchedulerService* service);
  ~Pipeline();
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // Adds a task run after the tasks `after` (ids returned by earlier Adds).
  int Add(std::wstring name, Work work, std::vector<int> after = {});
  // Submits every task and waits for all; progress (if set) is called on this
  // thread while waiting. Returns the first failure of the library's calls (a
  // failing task's own status is in TaskStatus).
  Status Run(const Progress& progress);

  Status TaskStatus(int id) const;
  double TaskMilliseconds(int id) const;
  bool TaskSkipped(int id) const;  // an input failed, its work did not run

 private:
  class Task;
  LMXSchedulerService* service_;
  std::vector<std::unique_ptr<Task>> tasks_;
  std::mutex mutex_;  // guards done_
  std::condition_variable finished_;
  int done_ = 0;  // tasks that have run
};

}  // namespace lmxtool
