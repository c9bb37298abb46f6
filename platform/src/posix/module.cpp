// Module services on POSIX: dladdr, dlopen, dlsym; /proc/self/exe for the executable.
#include "lmx/platform/module.h"

#include <dlfcn.h>

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

ModuleHandle LoadModule(const std::filesystem::path& path) {
  return ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

void UnloadModule(ModuleHandle module) {
  if (module) ::dlclose(module);
}

void* FindExport(ModuleHandle module, const char* name) {
  return module && name ? ::dlsym(module, name) : nullptr;
}

bool ExportsHaveOrdinals() { return false; }

void* FindExportByOrdinal(ModuleHandle, int) { return nullptr; }

std::filesystem::path SharedLibraryFileName(const std::string& stem) {
  return (stem.rfind("lib", 0) == 0 ? stem : "lib" + stem) + ".so";
}

}  // namespace lmx::platform
