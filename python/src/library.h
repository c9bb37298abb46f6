// library.h: liblmxcore as the Python module hosts it.
//
// The module is loaded once per process, on first use, and reached only through its
// export table, as any host does; it stays loaded until the process ends, because
// Python may release library objects during interpreter shutdown.
//
// Example:
//   LMXAllocator* allocator = nullptr;
//   Library::Get().Create(LMXAllocator::kIid, &session, reinterpret_cast<void**>(&allocator));
#pragma once

#include <filesystem>
#include <utility>

#include "lmxallocator.h"
#include "lmxsession.h"
#include "host_ref.h"
#include "host_session.h"
#include "module_host.h"

namespace lmxpy {

using Norvik::Lumetra::Status;

using lmxhost::Ref;

// The host session (host/host_session.h): answers itself, the session service
// ("SES2") and, once set, the allocator interface, through which the audio
// converter creates its results.
using lmxhost::HostSession;

class Library {
 public:
  // The process's library; raises LmxError (ITEM_UNAVAILABLE) when it cannot be loaded.
  static Library& Get();

  // The host kit's lookup: the highest-merit entry offering iid, its factory run
  // with `session`, the object's iid face in *face (one reference).
  Status Create(Norvik::Lumetra::InterfaceId iid, Norvik::Lumetra::Session* session, void** face);

  // The allocator shared by the module's defaults (Image.from_numpy without one,
  // the audio converter's results) and the session that answers it.
  LMXAllocator* DefaultAllocator() const { return allocator_.Get(); }
  HostSession* DefaultSession() { return &session_; }
  const std::filesystem::path& Path() const { return path_; }

 private:
  Library() = default;
  bool Open();

  std::filesystem::path path_;
  lmxhost::Module module_;
  HostSession session_;
  Ref<LMXAllocator> allocator_;
};

}  // namespace lmxpy
