// Loading liblmxcore and creating its objects through the export table.
#include "library.h"

#include <cstdlib>

#include "lmx/platform/module.h"

#include "errors.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

// LMXCORE_LIBRARY if set, else the installed library (at its place relative to this
// module's site-packages folder), else the build tree's.
std::filesystem::path ModulePath() {
  if (const char* chosen = std::getenv("LMXCORE_LIBRARY"); chosen && *chosen) return chosen;
  static const int here = 0;
  const std::filesystem::path installed = lmx::platform::ModulePathOf(&here).parent_path() / LMX_PY_INSTALLED_MODULE;
  std::error_code error;
  if (std::filesystem::exists(installed, error)) return installed.lexically_normal();
  return LMX_PY_BUILD_MODULE;
}

}  // namespace

Library& Library::Get() {
  // Never destroyed: the module stays loaded while Python may still release objects.
  static Library* library = [] {
    auto* opened = new Library();
    if (!opened->Open()) {
      const std::string path = opened->Path().string();
      delete opened;
      Raise(LMX_STATUS_ITEM_UNAVAILABLE, "cannot load liblmxcore from '" + path + "' (set LMXCORE_LIBRARY)");
    }
    return opened;
  }();
  return *library;
}

bool Library::Open() {
  path_ = ModulePath();
  if (!module_.Load(path_)) return false;
  void* face = nullptr;
  if (Create(LMXAllocator::kIid, &session_, &face) < 0) return false;
  allocator_ = Ref<LMXAllocator>(static_cast<LMXAllocator*>(face));
  session_.SetAllocator(allocator_.Get());
  return true;
}

Status Library::Create(InterfaceId iid, Session* session, void** face) { return module_.Create(iid, session, face); }

}  // namespace lmxpy
