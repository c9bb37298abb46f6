// A host's whole life in one process: loads a module, runs one task on its
// scheduler, releases everything and returns from main (optionally after
// unloading the module). Built twice, with and without oneTBB running work first,
// as vision applications do. The caller times the process: it must exit promptly.
//   exit_host MODULE [--dlclose]
#include <cstdio>
#include <cstring>
#include <atomic>

#include "host_session.h"
#include "module_host.h"
#include "lmxscheduler.h"

#ifdef LMX_EXIT_HOST_TBB
#include <tbb/task_group.h>
#endif

using namespace Norvik::Lumetra;

namespace {

struct Flag final : LMXSchedulerService::Callback {
  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  Status Run(Status) override {
    done.store(true);
    done.notify_all();
    return LMX_STATUS_NO_ERROR;
  }
  const wchar_t* QueryName() override { return L"exit host task"; }
  std::atomic<bool> done{false};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  auto* module = new lmxhost::Module;
  if (!module->Load(argv[1]) || !module->Table()) return 3;
  Flag task;
  {
    lmxhost::HostSession session;
    Base* object = nullptr;
    if (module->Table()->factory(&session, nullptr, nullptr, module->Table(), 0, &object) < 0 || !object) return 4;
    auto* scheduler = static_cast<LMXScheduler*>(object->QueryInstance(LMXScheduler::kIid));
    if (!scheduler || scheduler->SubmitTask(&task, LMX_STATUS_NO_ERROR) < 0) return 5;
    task.done.wait(false);
#ifdef LMX_EXIT_HOST_TBB
    tbb::task_group group;
    group.run([] {});
    group.wait();
#endif
    object->Release();
  }
  // Without --dlclose the module stays loaded until the process ends.
  if (argc > 2 && std::strcmp(argv[2], "--dlclose") == 0) delete module;
  return 0;
}
