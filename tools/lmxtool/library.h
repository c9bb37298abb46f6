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
#include "module_host.h"
#include "host_session.h"

namespace lmxtool {

using Norvik::Lumetra::Status;

// Holds one reference to a library object and releases it on scope exit.
template <class T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* object) : object_(object) {}
  ~Ref() { Reset(); }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  Ref(Ref&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
  Ref& operator=(Ref&& other) noexcept {
    if (this != &other) {
      Reset();
      object_ = other.object_;
      other.object_ = nullptr;
    }
    return *this;
  }

  T* Get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  // For factory calls that write a new object: the old one is released first.
  T** Out() {
    Reset();
    return &object_;
  }
  void Reset() {
    if (object_) object_->Release();
    object_ = nullptr;
  }

 private:
  T* object_ = nullptr;
};

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
  // The entry whose descriptor lists iid, highest merit first; null if none.
  Norvik::Lumetra::Service::DLLExportTable* FindEntry(Norvik::Lumetra::InterfaceId iid) const;
  // Runs the entry's factory and asks the new object for iid.
  Status Create(Norvik::Lumetra::InterfaceId iid, Norvik::Lumetra::Session* session, void** face,
                Norvik::Lumetra::Base** object);

  std::filesystem::path path_;
  lmxhost::Module module_;  // declared first: unloaded after the objects below
  lmxhost::HostSession session_;  // answers the allocator once it exists
  Ref<LMXAllocator> allocator_;
  Ref<LMXScheduler> scheduler_;
};

// Where lmxtool looks for the library by default: next to the program (the build
// tree, Windows installs), else in the install's library folder (POSIX installs).
std::filesystem::path DefaultModulePath();

}  // namespace lmxtool
