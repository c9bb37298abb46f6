// library.h: liblmxcore as lmxtool hosts it.
//
// The module is loaded at run time and reached only through its export table and
// public interfaces, as any host would. Library owns the module, a host session
// (answering the allocator interface so that the audio converter can create its
// output objects) and the objects the table's factories
// create; everything is released before the module is unloaded.
//
// Example:
//   lmxtool::Library library;
//   if (!library.Open({}, &error)) ...
//   Ref<Image> image;
//   Status sts = library.Allocator()->CreateImage(&info, 0, nullptr, image.Out());
#pragma once

#include <filesystem>
#include <string>

#include "lmxallocator.h"
#include "lmxaudio.h"
#include "lmxscheduler.h"
#include "lmxsession.h"
#include "host_ref.h"
#include "host_session.h"
#include "module_host.h"

namespace lmxtool {

using Norvik::Lumetra::Status;

using lmxhost::Ref;

// The text of a status as the library spells it ("LMX_STATUS_... (...)").
std::string StatusText(Status sts);

class Library {
 public:
  Library() = default;
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // Loads the module (empty path: the installed or built library, see
  // DefaultModulePath) and creates the allocator. On failure *error says why.
  bool Open(const std::filesystem::path& path, std::string* error);

  const std::filesystem::path& Path() const { return path_; }
  LMXAllocator* Allocator() const { return allocator_.Get(); }
  // The scheduler is created on first use and shared by the callers.
  Status Scheduler(LMXScheduler** scheduler, LMXSchedulerService** service);
  // A new audio converter (one Release ends it).
  Status CreateAudioConverter(LMXAudioConversion** converter);

 private:
  std::filesystem::path path_;
  lmxhost::Module module_;        // declared first: unloaded after the objects below
  lmxhost::HostSession session_;  // answers the allocator once it exists
  Ref<LMXAllocator> allocator_;
  Ref<LMXScheduler> scheduler_;
};

// Where lmxtool looks for the library by default: next to the program (the build
// tree, Windows installs), else in the install's library folder (POSIX installs).
std::filesystem::path DefaultModulePath();

}  // namespace lmxtool
