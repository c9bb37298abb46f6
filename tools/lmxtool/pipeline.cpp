// Dependent tasks on the scheduler: outputs, requests and sync points.
#include "pipeline.h"

#include <chrono>

namespace lmxtool {

using namespace Norvik::Lumetra;

class Pipeline::Task final : public LMXSchedulerService::Callback {
 public:
  Task(Pipeline* owner, std::wstring name, Work work, std::vector<int> after)
      : owner(owner), name(std::move(name)), work(std::move(work)), after(std::move(after)) {}

  void* QueryInstance(InterfaceId iid) override { return iid == 0 ? this : nullptr; }
  void Release() override {}  // owned by the pipeline
  const wchar_t* QueryName() override { return name.c_str(); }

  Status Run(Status inputs) override {
    const auto start = std::chrono::steady_clock::now();
    if (inputs < 0) {
      skipped = true;
      result = inputs;
    } else {
      result = work(inputs);
    }
    milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    void* output = Output();
    owner->service_->MarkOutputs(1, &output, result < 0 ? result : LMX_STATUS_NO_ERROR);
    if (auto* signal = static_cast<LMXSyncPointService*>(syncPoint->QueryInstance(LMXSyncPointService::kIid)))
      signal->SignalSyncPoint(result);
    // Last, and notified under the lock: once counted, the waiting thread may end
    // the pipeline.
    std::lock_guard lock(owner->mutex_);
    ++owner->done_;
    owner->finished_.notify_one();
    return LMX_STATUS_NO_ERROR;
  }

  // The address that stands for this task's output in the scheduler.
  void* Output() { return this; }

  Pipeline* owner;
  std::wstring name;
  Work work;
  std::vector<int> after;
  LMXSyncPoint* syncPoint = nullptr;
  Status result = LMX_STATUS_NO_ERROR;
  double milliseconds = 0;
  bool skipped = false;
};

Pipeline::Pipeline(LMXSchedulerService* service) : service_(service) {}

Pipeline::~Pipeline() {
  for (auto& task : tasks_)
    if (task->syncPoint) task->syncPoint->Release();
}

int Pipeline::Add(std::wstring name, Work work, std::vector<int> after) {
  tasks_.push_back(std::make_unique<Task>(this, std::move(name), std::move(work), std::move(after)));
  return static_cast<int>(tasks_.size()) - 1;
}

Status Pipeline::Run(const Progress& progress) {
  // Every output is pending before the first task can run, so that each request
  // waits for its inputs.
  for (auto& task : tasks_) {
    void* output = task->Output();
    Status sts = service_->MarkOutputs(1, &output, LMX_STATUS_EXEC_INPROGRESS);
    if (sts >= 0) sts = service_->CreateSyncPoint(1, &output, &task->syncPoint);
    if (sts < 0) return sts;
  }
  int submitted = 0;
  Status failure = LMX_STATUS_NO_ERROR;
  for (auto& task : tasks_) {
    std::vector<void*> inputs;
    for (int id : task->after) inputs.push_back(tasks_.at(static_cast<size_t>(id))->Output());
    const Status sts = service_->RequestInputs(static_cast<int32_t>(inputs.size()), inputs.data(), task.get());
    if (sts < 0) {
      failure = sts;
      break;
    }
    ++submitted;
  }
  // Tasks depend on earlier ones only, so none of the submitted ones waits for
  // these; their outputs are completed with the failure.
  for (size_t i = static_cast<size_t>(submitted); i < tasks_.size(); ++i) {
    void* output = tasks_[i]->Output();
    service_->MarkOutputs(1, &output, failure);
  }
  // Wait for what was handed over (all of it, unless a request failed) on the
  // tasks' own count, not on their sync points: a timed sync-point wait that gives
  // up (to draw the progress) is logged by the library as an error. A task counts
  // itself after signalling its sync point, so none is pending when it is released.
  const int total = static_cast<int>(tasks_.size());
  for (int done = 0;;) {
    {
      std::unique_lock lock(mutex_);
      finished_.wait_for(lock, std::chrono::milliseconds(100), [&] { return done_ != done; });
      done = done_;
    }
    if (progress) progress(done, total);
    if (done >= submitted) break;
  }
  return failure;
}

Status Pipeline::TaskStatus(int id) const { return tasks_.at(static_cast<size_t>(id))->result; }
double Pipeline::TaskMilliseconds(int id) const { return tasks_.at(static_cast<size_t>(id))->milliseconds; }
bool Pipeline::TaskSkipped(int id) const { return tasks_.at(static_cast<size_t>(id))->skipped; }

}  // namespace lmxtool
