// The scheduler: Python callables as tasks, Python objects as data keys, sync
// points. The GIL is released around every call into the scheduler (which may
// wait or run callbacks under its own lock) and taken again inside each callback.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "errors.h"
#include "lmxscheduler.h"
#include "library.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

class PyTask;

// One library scheduler with its own session (so it is its session's master and
// owns its worker pool), the tasks it has not run yet and the keys it has seen.
struct SchedulerCore {
  HostSession session;
  Ref<LMXScheduler> scheduler;
  LMXSchedulerService* service = nullptr;
  std::mutex mutex;            // guards tasks
  std::set<PyTask*> tasks;     // handed to the library, not finished
  bool closed = false;         // read and written with the GIL held
  // Keys are compared by address; holding them keeps an address from being reused.
  std::unordered_map<void*, py::object> keys;

  void RequireOpen() const {
    if (closed) Raise(LMX_STATUS_HANDLE_INVALID, "the scheduler is closed");
  }
  std::vector<void*> Keys(const py::iterable& objects) {
    std::vector<void*> pointers;
    for (py::handle object : objects) {
      pointers.push_back(object.ptr());
      keys.emplace(object.ptr(), py::reinterpret_borrow<py::object>(object));
    }
    return pointers;
  }
  // Waits for the pool to run what it holds, then frees the tasks that never ran.
  void Close();
};

// The scheduler's view of a Python callable. Run calls it (with the inputs' status
// when it consumes inputs), then completes its outputs and signals its sync point
// with the callable's status: 0, the inputs' error, an int it returned, or
// LMX_STATUS_EXEC_ABORTED when it raised (the exception is logged).
class PyTask final : public LMXSchedulerService::Callback {
 public:
  PyTask(SchedulerCore* core, py::object function, bool takesStatus, std::vector<void*> outputs, LMXSyncPoint* done)
      : core_(core), function_(std::move(function)), takesStatus_(takesStatus), outputs_(std::move(outputs)),
        done_(done) {
    if (done_) static_cast<Reference*>(done_->QueryInstance(Reference::kIid))->AddRef();
    std::lock_guard lock(core_->mutex);
    core_->tasks.insert(this);
  }
  // Deleted with the GIL held (it owns Python objects).
  ~PyTask() {
    if (done_) done_->Release();
  }

  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  const wchar_t* QueryName() override { return L"lmxcore Python task"; }

  Status Run(Status sts) override {
    const Status result = Call(sts);
    if (!outputs_.empty())
      core_->service->MarkOutputs(static_cast<int32_t>(outputs_.size()), outputs_.data(), result);
    if (done_) static_cast<LMXSyncPointService*>(done_->QueryInstance(LMXSyncPointService::kIid))->SignalSyncPoint(result);
    {
      std::lock_guard lock(core_->mutex);
      core_->tasks.erase(this);
    }
    py::gil_scoped_acquire gil;
    delete this;
    return LMX_STATUS_NO_ERROR;
  }

 private:
  Status Call(Status sts) {
    py::gil_scoped_acquire gil;
    try {
      py::object answer = takesStatus_ ? function_(StatusObject(sts)) : function_();
      if (py::isinstance<py::int_>(answer)) return static_cast<Status>(answer.cast<int32_t>());
      return sts < 0 ? sts : LMX_STATUS_NO_ERROR;
    } catch (py::error_already_set& error) {
      py::module_::import("logging").attr("getLogger")("lmxcore").attr("error")(
          "task %r raised; its outputs fail with LMX_STATUS_EXEC_ABORTED", function_,
          py::arg("exc_info") = py::make_tuple(error.type(), error.value(), error.trace()));
      return LMX_STATUS_EXEC_ABORTED;
    }
  }

  SchedulerCore* core_;
  py::object function_;
  bool takesStatus_;
  std::vector<void*> outputs_;
  LMXSyncPoint* done_;
};

void SchedulerCore::Close() {
  if (closed) return;
  closed = true;
  {
    py::gil_scoped_release released;  // queued tasks take the GIL to run
    scheduler.Reset();
  }
  std::set<PyTask*> unrun;
  {
    std::lock_guard lock(mutex);
    unrun.swap(tasks);
  }
  for (PyTask* task : unrun) delete task;
}

// Every open scheduler, closed at interpreter exit while Python can still run tasks.
std::set<std::weak_ptr<SchedulerCore>, std::owner_less<>>& OpenSchedulers() {
  static auto* open = new std::set<std::weak_ptr<SchedulerCore>, std::owner_less<>>();
  return *open;
}

struct PySyncPoint {
  std::shared_ptr<SchedulerCore> core;
  LMXSyncPoint* syncPoint;

  PySyncPoint(std::shared_ptr<SchedulerCore> owner, LMXSyncPoint* created)
      : core(std::move(owner)), syncPoint(created) {}
  PySyncPoint(PySyncPoint&& other) noexcept
      : core(std::move(other.core)), syncPoint(std::exchange(other.syncPoint, nullptr)) {}
  PySyncPoint& operator=(PySyncPoint&&) = delete;
  ~PySyncPoint() {
    // A closed scheduler's state is gone; its sync points are left as they are.
    if (syncPoint && !core->closed) syncPoint->Release();
  }
  py::object Wait(py::object timeout) {
    core->RequireOpen();
    const int32_t ms = timeout.is_none() ? -1 : static_cast<int32_t>(timeout.cast<double>() * 1000.0);
    Status sts;
    {
      py::gil_scoped_release released;
      sts = syncPoint->Synchronize(ms);
    }
    return StatusObject(Check(sts, "wait"));
  }
};

struct PyScheduler {
  std::shared_ptr<SchedulerCore> core;

  PyScheduler() : core(std::make_shared<SchedulerCore>()) {
    void* face = nullptr;
    Check(Library::Get().Create(LMXScheduler::kIid, &core->session, &face), "scheduler factory");
    core->scheduler = Ref<LMXScheduler>(static_cast<LMXScheduler*>(face));
    core->service = static_cast<LMXSchedulerService*>(core->scheduler->QueryInstance(LMXSchedulerService::kIid));
    OpenSchedulers().insert(core);
  }
  ~PyScheduler() {
    core->Close();
    OpenSchedulers().erase(core);
  }
  PyScheduler(const PyScheduler&) = delete;
  PyScheduler& operator=(const PyScheduler&) = delete;

  // Marks outputs in progress and returns a sync point for them (or None without outputs).
  py::object Produce(const std::vector<void*>& outputs, LMXSyncPoint** done) {
    *done = nullptr;
    if (outputs.empty()) return py::none();
    std::vector<void*> keys = outputs;
    Status sts;
    {
      py::gil_scoped_release released;
      sts = core->service->MarkOutputs(static_cast<int32_t>(keys.size()), keys.data(), LMX_STATUS_EXEC_INPROGRESS);
      if (sts >= 0) sts = core->service->CreateSyncPoint(static_cast<int32_t>(keys.size()), keys.data(), done);
    }
    Check(sts, "CreateSyncPoint");
    return py::cast(PySyncPoint{core, *done});
  }

  // Hands function to the library as a task: submitted at once, or, given inputs,
  // requested to run once they are done (it then takes their status).
  py::object Hand(py::object function, const py::iterable* inputs, const py::iterable& outputs) {
    core->RequireOpen();
    std::vector<void*> keys = inputs ? core->Keys(*inputs) : std::vector<void*>();
    LMXSyncPoint* done = nullptr;
    std::vector<void*> produced = core->Keys(outputs);
    py::object syncPoint = Produce(produced, &done);
    auto* task = new PyTask(core.get(), std::move(function), inputs != nullptr, std::move(produced), done);
    Status sts;
    {
      py::gil_scoped_release released;
      sts = inputs ? core->service->RequestInputs(static_cast<int32_t>(keys.size()), keys.data(), task)
                   : core->scheduler->SubmitTask(task, LMX_STATUS_NO_ERROR);
    }
    Check(sts, inputs ? "RequestInputs" : "SubmitTask");
    return syncPoint;
  }

  void MarkOutputs(const py::iterable& outputs, int32_t status) {
    core->RequireOpen();
    std::vector<void*> keys = core->Keys(outputs);
    Status sts;
    {
      py::gil_scoped_release released;
      sts = core->service->MarkOutputs(static_cast<int32_t>(keys.size()), keys.data(), static_cast<Status>(status));
    }
    Check(sts, "MarkOutputs");
  }

  PySyncPoint SyncPoint(const py::iterable& outputs) {
    core->RequireOpen();
    std::vector<void*> keys = core->Keys(outputs);
    LMXSyncPoint* syncPoint = nullptr;
    Check(core->service->CreateSyncPoint(static_cast<int32_t>(keys.size()), keys.data(), &syncPoint),
          "CreateSyncPoint");
    return PySyncPoint{core, syncPoint};
  }
};

}  // namespace

void RegisterScheduler(py::module_& module) {
  py::class_<PySyncPoint>(module, "SyncPoint", "Stands for an operation's outputs; wait for it or signal it.")
      .def("wait", &PySyncPoint::Wait, py::arg("timeout") = py::none(),
           "Waits up to timeout seconds (None: forever) and returns the signalled status;\n"
           "raises LmxError for a failing one (EXEC_TIMEOUT when the time ran out).")
      .def("signal", [](PySyncPoint& self, int32_t status) {
            self.core->RequireOpen();
            static_cast<LMXSyncPointService*>(self.syncPoint->QueryInstance(LMXSyncPointService::kIid))
                ->SignalSyncPoint(static_cast<Status>(status));
          }, py::arg("status") = 0, "Records the status and wakes every waiter.")
      .def("output_status", [](PySyncPoint& self, py::object output) {
            self.core->RequireOpen();
            return StatusObject(self.syncPoint->QueryOutputStatus(output.ptr()));
          }, py::arg("output"), "The status of one output: its recorded error, else the signalled status.");

  py::class_<PyScheduler>(module, "Scheduler",
                          "The library's task scheduler with its worker pool. Data keys are Python objects\n"
                          "(compared by identity and kept alive by the scheduler).")
      .def(py::init<>())
      .def("submit", [](PyScheduler& self, py::object function, const py::iterable& outputs) {
            return self.Hand(std::move(function), nullptr, outputs);
          }, py::arg("function"), py::arg("outputs") = py::tuple(),
           "Runs function() on a worker. With outputs, they are pending until it returns and\n"
           "a SyncPoint for them is returned; they complete with 0 (or the int it returns),\n"
           "or fail with EXEC_ABORTED if it raises (the exception is logged).")
      .def("request_inputs", [](PyScheduler& self, const py::iterable& inputs, py::object function,
                                const py::iterable& outputs) {
            return self.Hand(std::move(function), &inputs, outputs);
          }, py::arg("inputs"), py::arg("function"),
           py::arg("outputs") = py::tuple(),
           "Calls function(status) on a worker once every input is done, at once with an\n"
           "input's error if one fails. Outputs work as in submit; an input's error is\n"
           "passed on to them unless function returns an int.")
      .def("mark_outputs", &PyScheduler::MarkOutputs, py::arg("outputs"), py::arg("status"),
           "Status.EXEC_INPROGRESS declares the outputs pending; any other status completes them.")
      .def("sync_point", &PyScheduler::SyncPoint, py::arg("outputs") = py::tuple(),
           "A new SyncPoint carrying the outputs, signalled by its signal().")
      .def("close", [](PyScheduler& self) { self.core->Close(); },
           "Runs the queued tasks, then ends the scheduler; requests never satisfied are dropped.");

  py::module_::import("atexit").attr("register")(py::cpp_function([] {
    for (const auto& open : OpenSchedulers())
      if (auto core = open.lock()) core->Close();
  }));
}

}  // namespace lmxpy
