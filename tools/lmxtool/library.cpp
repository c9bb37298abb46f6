// Loading the library and creating its objects through the export table.
#include "library.h"

#include "lmx/platform/module.h"
#include "lmxutils.h"

namespace lmxtool {

using namespace Norvik::Lumetra;

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
  if (const Status sts = module_.Create(LMXAllocator::kIid, &session_, allocator_.Out()); sts < 0) {
    *error = "cannot create the allocator: " + StatusText(sts);
    return false;
  }
  session_.SetAllocator(allocator_.Get());
  return true;
}

Status Library::Scheduler(LMXScheduler** scheduler, LMXSchedulerService** service) {
  if (!scheduler_)
    if (const Status sts = module_.Create(LMXScheduler::kIid, &session_, scheduler_.Out()); sts < 0) return sts;
  *scheduler = scheduler_.Get();
  *service = static_cast<LMXSchedulerService*>(scheduler_->QueryInstance(LMXSchedulerService::kIid));
  return *service ? LMX_STATUS_NO_ERROR : LMX_STATUS_ITEM_UNAVAILABLE;
}

Status Library::CreateAudioConverter(LMXAudioConversion** converter) {
  // The converter asks its first argument for the allocator interface to create
  // the audio objects it returns; the session answers it.
  return module_.Create(LMXAudioConversion::kIid, &session_, converter);
}

}  // namespace lmxtool
