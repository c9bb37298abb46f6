// Module services on POSIX: dladdr, dlopen, dlsym, dl_iterate_phdr; /proc/self/exe for the executable.
#include "lmx/platform/module.h"

#include <dlfcn.h>
#include <link.h>

#include <string>

#include <system_error>

namespace lmx::platform {

std::filesystem::path ExecutablePath() {
  std::error_code error;
  auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path() : path;
}

std::filesystem::path ModulePathOf(const void* address) {
  Dl_info info{};
  if (!address || !::dladdr(address, &info) || !info.dli_fname) return {};
  std::error_code error;
  auto path = std::filesystem::absolute(info.dli_fname, error);
  return error ? std::filesystem::path(info.dli_fname) : path;
}

ModuleHandle LoadModule(const std::filesystem::path& path) { return ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }

void UnloadModule(ModuleHandle module) {
  if (module) ::dlclose(module);
}

std::filesystem::path LoadedModulePath(const std::string& stem) {
  struct Search {
    std::string fileName;
    std::filesystem::path found;
  } search{SharedLibraryFileName(stem).string(), {}};
  ::dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* data) -> int {
        auto* search = static_cast<Search*>(data);
        if (!info->dlpi_name || !*info->dlpi_name) return 0;
        const std::filesystem::path path(info->dlpi_name);
        const std::string name = path.filename().string();
        const bool matches = name == search->fileName ||
                             (name.size() > search->fileName.size() && name.rfind(search->fileName + ".", 0) == 0);
        if (!matches) return 0;
        search->found = path;
        return 1;  // stop
      },
      &search);
  if (search.found.empty()) return {};
  std::error_code error;
  auto absolute = std::filesystem::absolute(search.found, error);
  return error ? search.found : absolute;
}

void* FindExport(ModuleHandle module, const char* name) { return module && name ? ::dlsym(module, name) : nullptr; }

bool ExportsHaveOrdinals() { return false; }

void* FindExportByOrdinal(ModuleHandle, int) { return nullptr; }

std::filesystem::path SharedLibraryFileName(const std::string& stem) {
  return (stem.rfind("lib", 0) == 0 ? stem : "lib" + stem) + ".so";
}

}  // namespace lmx::platform
