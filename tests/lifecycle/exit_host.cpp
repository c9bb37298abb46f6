// A host's whole life in one process: loads a module, runs one task on its
// scheduler (then, built with LMX_EXIT_HOST_TBB, work on oneTBB, as vision
// applications do), releases everything and returns from main, unloading the
// module first with --dlclose. The caller times it: it must exit promptly.
//   exit_host MODULE [--dlclose]
#include <atomic>
#include <cstring>

#include "host_session.h"
#include "lmxscheduler.h"
#include "module_host.h"

#ifdef LMX_EXIT_HOST_TBB
#include <tbb/task_group.h>
#endif

using namespace Norvik::Lumetra;

struct Task final : LMXSchedulerService::Callback {
  void* QueryInstance(InterfaceId) override { return nullptr; }
  void Release() override {}
  Status Run(Status) override {
    done = true;
    done.notify_all();
    return LMX_STATUS_NO_ERROR;
  }
  const wchar_t* QueryName() override { return nullptr; }
  std::atomic<bool> done{false};
};

// Without --dlclose the module stays loaded until the process ends; held from a
// global so that the leak checker sees it as reachable.
lmxhost::Module* g_module = nullptr;

int main(int argc, char** argv) {
  g_module = new lmxhost::Module;
  lmxhost::Module* module = g_module;
  if (argc < 2 || !module->Load(argv[1])) return 2;
  Task task;
  {
    lmxhost::HostSession session;
    Base* object = nullptr;
    if (module->Table()->factory(&session, nullptr, nullptr, module->Table(), 0, &object) < 0) return 3;
    auto* scheduler = static_cast<LMXScheduler*>(object->QueryInstance(LMXScheduler::kIid));
    if (scheduler->SubmitTask(&task, LMX_STATUS_NO_ERROR) < 0) return 4;
    task.done.wait(false);
#ifdef LMX_EXIT_HOST_TBB
    tbb::task_group group;
    group.run([] {});
    group.wait();
#endif
    object->Release();
  }
  if (argc > 2 && std::strcmp(argv[2], "--dlclose") == 0) delete module;
  return 0;
}
