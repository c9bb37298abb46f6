// Loading the library and creating its objects through the export table.
#include "library.h"

#include "lmx/platform/module.h"
#include "lmxutils.h"

namespace lmxtool {

using namespace Norvik::Lumetra;
using Norvik::Lumetra::Service::DLLExportTable;

std::string StatusText(Status sts) {
  const char* text = GetStatusText(sts);
  // Unknown values come back as a wide text through the narrow pointer.
  if (text == reinterpret_cast<const char*>(kUnknownStatusText))
    return "Unknown lmxStatus code " + std::to_string(static_cast<int>(sts));
  return text;
}

std::filesystem::path DefaultModulePath() {
  const std::filesystem::path name = lmx::platform::SharedLibraryFileName("liblmxcore");
  const std::filesystem::path here = lmx::platform::ExecutablePath().parent_path();
  std::error_code error;
  if (std::filesystem::exists(here / name, error)) return here / name;
  const std::filesystem::path installed = here.parent_path() / LMX_INSTALL_LIBDIR / name;
  if (std::filesystem::exists(installed, error)) return installed;
  return here / name;
}

Library::~Library() {
  scheduler_.Reset();
  session_.SetAllocator(nullptr);
  allocator_.Reset();
}

bool Library::Open(const std::filesystem::path& path, std::string* error) {
  path_ = path.empty() ? DefaultModulePath() : path;
  if (!module_.Load(path_)) {
    *error = "'" + path_.string() + "' " + (module_.Handle() ? "has no valid LMXDLLExportTable" : "cannot be loaded");
    return false;
  }
  void* face = nullptr;
  Base* object = nullptr;
  const Status sts = Create(LMXAllocator::kIid, &session_, &face, &object);
  if (sts < 0) {
    if (object) object->Release();
    *error = "cannot create the allocator: " + StatusText(sts);
    return false;
  }
  *allocator_.Out() = static_cast<LMXAllocator*>(face);
  session_.SetAllocator(allocator_.Get());
  return true;
}

DLLExportTable* Library::FindEntry(InterfaceId iid) const {
  DLLExportTable* best = nullptr;
  for (DLLExportTable* entry : module_.Entries())
    for (int32_t listed : entry->desc.iids)
      if (listed == iid && (!best || entry->desc.merit > best->desc.merit)) best = entry;
  return best;
}

Status Library::Create(InterfaceId iid, Session* session, void** face, Base** object) {
  *face = nullptr;
  *object = nullptr;
  DLLExportTable* entry = FindEntry(iid);
  if (!entry || !entry->factory) return LMX_STATUS_ITEM_UNAVAILABLE;
  const Status sts = entry->factory(session, nullptr, nullptr, entry, iid, object);
  if (sts < 0) return sts;
  if (!*object) return LMX_STATUS_HANDLE_INVALID;
  *face = (*object)->QueryInstance(iid);
  return *face ? sts : LMX_STATUS_ITEM_UNAVAILABLE;
}

Status Library::Scheduler(LMXScheduler** scheduler, LMXSchedulerService** service) {
  if (!scheduler_) {
    void* face = nullptr;
    Base* object = nullptr;
    const Status sts = Create(LMXScheduler::kIid, &session_, &face, &object);
    if (sts < 0) {
      if (object) object->Release();  // handed out even when its set-up failed
      return sts;
    }
    *scheduler_.Out() = static_cast<LMXScheduler*>(face);
  }
  *scheduler = scheduler_.Get();
  *service = static_cast<LMXSchedulerService*>(scheduler_->QueryInstance(LMXSchedulerService::kIid));
  return *service ? LMX_STATUS_NO_ERROR : LMX_STATUS_ITEM_UNAVAILABLE;
}

Status Library::CreateAudioConverter(LMXAudioConversion** converter) {
  void* face = nullptr;
  Base* object = nullptr;
  // The converter asks its first argument for the allocator interface to create
  // the audio objects it returns; the session answers it.
  const Status sts = Create(LMXAudioConversion::kIid, &session_, &face, &object);
  if (sts < 0) {
    if (object) object->Release();
    return sts;
  }
  *converter = static_cast<LMXAudioConversion*>(face);
  return sts;
}

}  // namespace lmxtool
