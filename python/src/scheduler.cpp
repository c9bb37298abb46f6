// The scheduler: Python callables as tasks, Python objects as data keys, sync
// points.
//
// Every call into the scheduler's bookkeeping (MarkOutputs, RequestInputs,
// SubmitTask, CreateSyncPoint, SignalSyncPoint) is made with the GIL held: none of
// them waits (the pool's queue never blocks, and no task of ours runs inline), and
// holding the GIL keeps the binding's record of each key in step with the
// library's. Waits release the GIL and wake at least every 50 ms to let signal
// handlers (Ctrl-C) run.
#include <pybind11/pybind11.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "errors.h"
#include "lmxscheduler.h"
#include "library.h"
#include "typed.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

class PyTask;

// What the library may still remember about a key. While any of it holds, the key
// object is kept alive, so its address (the library's key) cannot be reused.
struct KeyRecord {
  py::object object;
  int holds = 0;         // tasks and sync points that name it
  bool pending = false;  // marked in progress and not completed since
  bool failed = false;   // completed with an error, record not yet erased
};

// One library scheduler with its own session (so it is its session's master and
// owns its worker pool), its unfinished tasks, its keys and the sync points that
// Python dropped before they were signalled. Guarded by the GIL, except `signals`.
struct SchedulerCore {
  HostSession session;
  Ref<LMXScheduler> scheduler;
  LMXSchedulerService* service = nullptr;
  bool closed = false;
  bool ended = false;       // the library scheduler is gone: its bookkeeping with it
  std::set<PyTask*> tasks;  // handed to the library, not finished
  std::unordered_map<void*, KeyRecord> keys;
  // Destroying an unsignalled sync point is a contract violation the library
  // logs as fatal; such sync points wait here for the scheduler's end.
  std::vector<std::pair<LMXSyncPoint*, std::vector<void*>>> orphans;
  // Counts the signals the binding sent; waiters sleep on it between polls.
  std::mutex signalMutex;
  std::condition_variable signalled;
  uint64_t signals = 0;

  void RequireOpen() const {
    if (closed) Raise(LMX_STATUS_HANDLE_INVALID, "the scheduler is closed");
  }

  // The keys of an iterable, each held once more.
  std::vector<void*> Hold(const py::handle& objects, const char* what) {
    if (py::isinstance<py::str>(objects) || py::isinstance<py::bytes>(objects) ||
        !py::isinstance<py::iterable>(objects))
      RaiseType(std::string("expected ") + what + " as a list or tuple of key objects, got " + TypeName(objects));
    std::vector<void*> pointers;
    for (py::handle object : py::tuple(py::reinterpret_borrow<py::object>(objects))) {
      KeyRecord& record = keys[object.ptr()];
      if (!record.object) record.object = py::reinterpret_borrow<py::object>(object);
      pointers.push_back(object.ptr());
    }
    HoldAgain(pointers);
    return pointers;
  }
  void HoldAgain(const std::vector<void*>& pointers) {
    for (void* key : pointers) ++keys[key].holds;
  }
  void Unhold(const std::vector<void*>& pointers) {
    for (void* key : pointers) Settle(key, [](KeyRecord& record) { --record.holds; });
  }
  // Applies a change to a key's record and lets the key go once nothing refers to it.
  template <class Change>
  void Settle(void* key, Change change) {
    auto it = keys.find(key);
    if (it == keys.end()) return;  // forgotten when the scheduler closed
    change(it->second);
    if (it->second.holds <= 0 && !it->second.pending && !it->second.failed) keys.erase(it);
  }

  // MarkOutputs, with the keys' records following the library's own.
  Status Mark(const std::vector<void*>& pointers, Status sts) {
    std::vector<void*> list = pointers;
    const Status answer = service->MarkOutputs(static_cast<int32_t>(list.size()), list.data(), sts);
    if (answer < 0) return answer;
    for (void* key : pointers)
      Settle(key, [sts](KeyRecord& record) {
        record.pending = sts == LMX_STATUS_EXEC_INPROGRESS;
        if (sts == LMX_STATUS_EXEC_INPROGRESS) record.failed = false;  // in progress clears the failure
        if (sts < 0 && sts != LMX_STATUS_EXEC_INPROGRESS) record.failed = true;
      });
    return answer;
  }

  void Signal(LMXSyncPoint* syncPoint, Status sts) {
    static_cast<LMXSyncPointService*>(syncPoint->QueryInstance(LMXSyncPointService::kIid))->SignalSyncPoint(sts);
    {
      std::lock_guard lock(signalMutex);
      ++signals;
    }
    signalled.notify_all();
  }

  // The last Python reference to a sync point is gone. Destroying it erases the
  // failure records of its outputs.
  void Drop(LMXSyncPoint* syncPoint, std::vector<void*> outputs) {
    if (syncPoint->Synchronize(0) == LMX_STATUS_EXEC_INPROGRESS) {
      if (!closed) {
        orphans.emplace_back(syncPoint, std::move(outputs));
        return;
      }
      Signal(syncPoint, LMX_STATUS_EXEC_ABORTED);
    }
    syncPoint->Release();
    for (void* key : outputs)
      Settle(key, [](KeyRecord& record) {
        --record.holds;
        record.failed = false;
      });
  }

  // Waits for the pool to run what it holds, fails what can no longer run, and
  // forgets the keys.
  void Close();
};

// One library reference to a sync point and a hold on its outputs, shared by the
// Python SyncPoint and the task that signals it.
struct SyncHandle {
  std::shared_ptr<SchedulerCore> core;
  LMXSyncPoint* syncPoint;
  std::vector<void*> outputs;

  SyncHandle(std::shared_ptr<SchedulerCore> owner, LMXSyncPoint* created, std::vector<void*> held)
      : core(std::move(owner)), syncPoint(created), outputs(std::move(held)) {}
  ~SyncHandle() { core->Drop(syncPoint, std::move(outputs)); }  // with the GIL held
  SyncHandle(const SyncHandle&) = delete;
  SyncHandle& operator=(const SyncHandle&) = delete;
};

// The scheduler's view of a Python callable. Run calls it (with the inputs' status
// when it consumes inputs), then completes its outputs and signals its sync point
// with the callable's status: 0, the inputs' error, an int it returned, or
// LMX_STATUS_EXEC_ABORTED when it raised (the exception is logged).
class PyTask final : public LMXSchedulerService::Callback {
 public:
  PyTask(SchedulerCore* core, py::object function, bool takesStatus, std::vector<void*> inputs,
         std::vector<void*> outputs, std::shared_ptr<SyncHandle> done)
      : core_(core),
        function_(std::move(function)),
        takesStatus_(takesStatus),
        inputs_(std::move(inputs)),
        outputs_(std::move(outputs)),
        done_(std::move(done)) {
    core_->tasks.insert(this);
  }
  // Deleted with the GIL held (it owns Python objects); lets its keys go.
  ~PyTask() {
    core_->tasks.erase(this);
    core_->Unhold(inputs_);
    core_->Unhold(outputs_);
  }

  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  const wchar_t* QueryName() override { return L"lmxcore Python task"; }

  Status Run(Status sts) override {
    py::gil_scoped_acquire gil;
    Finish(Call(sts));
    return LMX_STATUS_NO_ERROR;
  }

  // Completes the outputs and the sync point with `result`, then deletes the task.
  void Finish(Status result) {
    if (!outputs_.empty() && !core_->ended) core_->Mark(outputs_, result);
    if (done_) core_->Signal(done_->syncPoint, result);
    delete this;
  }

 private:
  Status Call(Status sts) {
    try {
      py::object answer = takesStatus_ ? function_(StatusObject(sts)) : function_();
      if (py::isinstance<py::int_>(answer)) {
        const long long value = PyLong_AsLongLong(answer.ptr());
        if (PyErr_Occurred() || value < INT32_MIN || value > INT32_MAX) {
          PyErr_Clear();
          PyErr_SetString(PyExc_ValueError,
                          ("a task returns a status (an int32) or None, got " + std::string(py::str(answer))).c_str());
          throw py::error_already_set();
        }
        return static_cast<Status>(value);
      }
      return sts < 0 ? sts : LMX_STATUS_NO_ERROR;
    } catch (py::error_already_set& error) {
      Log(error.type(), error.value(), error.trace());
    } catch (const std::exception& error) {
      Log(PyExc_RuntimeError, py::str(error.what()));
    } catch (...) {
      Log(PyExc_RuntimeError, py::str("unknown C++ exception"));
    }
    return LMX_STATUS_EXEC_ABORTED;
  }
  // Logs the task's failure on the "lmxcore" logger; a failing logger is ignored.
  void Log(py::handle type, py::handle value = py::none(), py::handle trace = py::none()) {
    try {
      py::module_::import("logging").attr("getLogger")("lmxcore").attr("error")(
          "task %r raised; its outputs fail with LMX_STATUS_EXEC_ABORTED", function_,
          py::arg("exc_info") =
              py::make_tuple(type ? type : py::none(), value ? value : py::none(), trace ? trace : py::none()));
    } catch (...) {
      PyErr_Clear();
    }
  }

  SchedulerCore* core_;
  py::object function_;
  bool takesStatus_;
  std::vector<void*> inputs_;
  std::vector<void*> outputs_;
  std::shared_ptr<SyncHandle> done_;
};

void SchedulerCore::Close() {
  if (closed) return;
  closed = true;
  {
    py::gil_scoped_release released;  // queued tasks take the GIL to run
    scheduler.Reset();
  }
  ended = true;
  // Requests whose inputs never completed: their outputs and sync points fail.
  for (PyTask* task : std::set<PyTask*>(tasks)) task->Finish(LMX_STATUS_EXEC_ABORTED);
  for (auto& [syncPoint, outputs] : std::exchange(orphans, {})) Drop(syncPoint, std::move(outputs));
  keys.clear();
}

// Every open scheduler, closed at interpreter exit while Python can still run tasks.
std::set<std::weak_ptr<SchedulerCore>, std::owner_less<>>& OpenSchedulers() {
  static auto* open = new std::set<std::weak_ptr<SchedulerCore>, std::owner_less<>>();
  return *open;
}

struct PySyncPoint {
  std::shared_ptr<SyncHandle> handle;

  SchedulerCore& Core() const { return *handle->core; }

  // Polls the sync point, sleeping between polls until the binding signals one or
  // 50 ms pass, so that Ctrl-C is seen within that time; polls log nothing.
  py::object Wait(py::handle timeout) {
    const int64_t ms = TimeoutMs(timeout);
    SchedulerCore& core = Core();
    core.RequireOpen();
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(ms < 0 ? 0 : ms);
    for (;;) {
      uint64_t seen;
      {
        std::lock_guard lock(core.signalMutex);
        seen = core.signals;
      }
      const Status sts = handle->syncPoint->Synchronize(0);
      if (sts != LMX_STATUS_EXEC_INPROGRESS) return StatusObject(Check(sts, "wait"));
      const Clock::time_point now = Clock::now();
      if (ms >= 0 && now >= deadline) Raise(LMX_STATUS_EXEC_TIMEOUT, "wait");
      auto slice = std::chrono::duration_cast<Clock::duration>(std::chrono::milliseconds(50));
      if (ms >= 0 && deadline - now < slice) slice = deadline - now;
      {
        py::gil_scoped_release released;
        std::unique_lock lock(core.signalMutex);
        core.signalled.wait_for(lock, slice, [&] { return core.signals != seen; });
      }
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      core.RequireOpen();
    }
  }
};

// The task must be callable with the arguments the scheduler will pass.
void RequireCallable(const py::object& function, bool takesStatus) {
  if (!PyCallable_Check(function.ptr()))
    RaiseType(std::string("expected a callable task") + (takesStatus ? " taking the inputs' status" : "") + ", got " +
              TypeName(function));
  py::object signature;
  try {
    signature = py::module_::import("inspect").attr("signature")(function);
  } catch (py::error_already_set&) {
    return;  // no signature to check (some builtins): found out when it runs
  }
  try {
    if (takesStatus)
      signature.attr("bind")(py::none());
    else
      signature.attr("bind")();
  } catch (py::error_already_set& error) {
    if (!error.matches(PyExc_TypeError)) throw;
    RaiseType(std::string(takesStatus ? "a task for request_inputs is called with one argument, the inputs' status"
                                      : "a submitted task is called with no arguments") +
              "; " + std::string(py::str(error.value())));
  }
}

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

  // A new sync point carrying `outputs` (held by it).
  std::shared_ptr<SyncHandle> NewSyncPoint(std::vector<void*> outputs) {
    LMXSyncPoint* created = nullptr;
    const Status sts = core->service->CreateSyncPoint(static_cast<int32_t>(outputs.size()), outputs.data(), &created);
    if (sts < 0) {
      core->Unhold(outputs);
      Raise(sts, "CreateSyncPoint");
    }
    return std::make_shared<SyncHandle>(core, created, std::move(outputs));
  }

  // Hands function to the library as a task: submitted at once, or, given inputs,
  // requested to run once they are done (it then takes their status). With outputs,
  // they are marked in progress and a SyncPoint for them is returned.
  py::object Hand(py::object function, const py::handle* inputs, const py::handle& outputs) {
    core->RequireOpen();
    RequireCallable(function, inputs != nullptr);
    std::vector<void*> produced = core->Hold(outputs, "outputs");
    std::vector<void*> consumed;
    std::shared_ptr<SyncHandle> done;
    try {
      if (inputs) consumed = core->Hold(*inputs, "inputs");
      if (!produced.empty()) {
        Check(core->Mark(produced, LMX_STATUS_EXEC_INPROGRESS), "MarkOutputs");
        core->HoldAgain(produced);
        done = NewSyncPoint(produced);
      }
    } catch (...) {
      core->Unhold(produced);
      core->Unhold(consumed);
      throw;
    }
    py::object syncPoint = done ? py::cast(PySyncPoint{done}) : py::none();
    std::vector<void*> keys = consumed;
    auto* task = new PyTask(core.get(), std::move(function), inputs != nullptr, std::move(consumed),
                            std::move(produced), std::move(done));
    const Status sts = inputs ? core->service->RequestInputs(static_cast<int32_t>(keys.size()), keys.data(), task)
                              : core->scheduler->SubmitTask(task, LMX_STATUS_NO_ERROR);
    if (sts < 0) {
      task->Finish(sts);
      Raise(sts, inputs ? "RequestInputs" : "SubmitTask");
    }
    return syncPoint;
  }

  void MarkOutputs(const py::handle& outputs, int32_t status) {
    core->RequireOpen();
    std::vector<void*> keys = core->Hold(outputs, "outputs");
    const Status sts = core->Mark(keys, static_cast<Status>(status));
    core->Unhold(keys);
    Check(sts, "MarkOutputs");
  }

  PySyncPoint SyncPoint(const py::handle& outputs) {
    core->RequireOpen();
    return PySyncPoint{NewSyncPoint(core->Hold(outputs, "outputs"))};
  }
};

}  // namespace

void RegisterScheduler(py::module_& module) {
  py::class_<PySyncPoint>(module, "SyncPoint", "Stands for an operation's outputs; wait for it or signal it.")
      .def(
          "wait",
          [](PySyncPoint& self, Typed<TimeoutType> timeout) { return Typed<StatusType>{self.Wait(timeout.object)}; },
          py::arg("timeout") = py::none(),
          "Waits up to timeout seconds (None: until signalled) and returns the signalled status;\n"
          "raises LmxError for a failing one (EXEC_TIMEOUT when the time ran out). Ctrl-C\n"
          "interrupts the wait.")
      .def(
          "signal",
          [](PySyncPoint& self, int32_t status) {
            self.Core().RequireOpen();
            self.Core().Signal(self.handle->syncPoint, static_cast<Status>(status));
          },
          py::arg("status") = 0, "Records the status and wakes every waiter.")
      .def(
          "output_status",
          [](PySyncPoint& self, py::object output) {
            self.Core().RequireOpen();
            return Typed<StatusType>{StatusObject(self.handle->syncPoint->QueryOutputStatus(output.ptr()))};
          },
          py::arg("output"), "The status of one output: its recorded error, else the signalled status.")
      .def("__repr__", [](PySyncPoint& self) {
        const Status sts = self.Core().closed ? LMX_STATUS_HANDLE_INVALID : self.handle->syncPoint->Synchronize(0);
        return "<lmxcore.SyncPoint " +
               (sts == LMX_STATUS_EXEC_INPROGRESS ? std::string("pending") : std::string(py::repr(StatusObject(sts)))) +
               ", " + std::to_string(self.handle->outputs.size()) + " outputs>";
      });

  py::class_<PyScheduler>(module, "Scheduler",
                          "The library's task scheduler with its worker pool. Data keys are Python objects,\n"
                          "compared by identity and kept alive while the scheduler may still refer to them\n"
                          "(pending, failed, or named by a task or a SyncPoint).")
      .def(py::init<>())
      .def(
          "submit",
          [](PyScheduler& self, Typed<TaskType> function, Typed<KeysType> outputs) {
            return Typed<SyncPointOrNone>{self.Hand(std::move(function.object), nullptr, outputs.object)};
          },
          py::arg("function"), py::arg("outputs") = py::tuple(),
          "Runs function() on a worker. With outputs, they are pending until it returns and\n"
          "a SyncPoint for them is returned; they complete with 0 (or the int it returns),\n"
          "or fail with EXEC_ABORTED if it raises (the exception is logged).")
      .def(
          "request_inputs",
          [](PyScheduler& self, Typed<KeysType> inputs, Typed<StatusTaskType> function, Typed<KeysType> outputs) {
            const py::handle consumed = inputs.object;
            return Typed<SyncPointOrNone>{self.Hand(std::move(function.object), &consumed, outputs.object)};
          },
          py::arg("inputs"), py::arg("function"), py::arg("outputs") = py::tuple(),
          "Calls function(status) on a worker once every input is done, at once with an\n"
          "input's error if one fails. Outputs work as in submit; an input's error is\n"
          "passed on to them unless function returns an int.")
      .def(
          "mark_outputs",
          [](PyScheduler& self, Typed<KeysType> outputs, int32_t status) { self.MarkOutputs(outputs.object, status); },
          py::arg("outputs"), py::arg("status"),
          "Status.EXEC_INPROGRESS declares the outputs pending; any other status completes them.")
      .def(
          "sync_point", [](PyScheduler& self, Typed<KeysType> outputs) { return self.SyncPoint(outputs.object); },
          py::arg("outputs") = py::tuple(),
          "A new SyncPoint carrying the outputs, signalled by its signal(). One dropped before\n"
          "it was signalled is kept until the scheduler closes, then fails with EXEC_ABORTED.")
      .def(
          "close", [](PyScheduler& self) { self.core->Close(); },
          "Runs the queued tasks, then ends the scheduler; tasks whose inputs never completed\n"
          "and unsignalled sync points fail with EXEC_ABORTED.")
      .def("__repr__", [](PyScheduler& self) {
        return "<lmxcore.Scheduler " + std::string(self.core->closed ? "closed" : "open") + ", " +
               std::to_string(self.core->tasks.size()) + " tasks waiting, " + std::to_string(self.core->keys.size()) +
               " keys held>";
      });

  py::module_::import("atexit").attr("register")(py::cpp_function([] {
    for (const auto& open : OpenSchedulers())
      if (auto core = open.lock()) core->Close();
  }));
}

}  // namespace lmxpy
