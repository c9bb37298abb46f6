// Module services on Windows: GetModuleHandleExW, GetModuleFileNameW, LoadLibraryW,
// GetProcAddress by name and by ordinal.
#include "lmx/platform/module.h"

#include <windows.h>

#include <cstring>
#include <string>

namespace lmx::platform {

namespace {

// The full path of a module (null: the executable); the buffer grows for long paths.
std::filesystem::path ModuleFileName(HMODULE module) {
  std::wstring buffer(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = ::GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return {};
    if (length < buffer.size()) {
      buffer.resize(length);
      return buffer;
    }
    // Truncated: the path filled the whole buffer.
    if (buffer.size() >= 32768) return {};
    buffer.resize(buffer.size() * 2);
  }
}

// GetProcAddress answers FARPROC; the export may be data, so it is handed on as a plain address.
void* AsAddress(FARPROC proc) {
  void* address = nullptr;
  static_assert(sizeof(address) == sizeof(proc));
  std::memcpy(&address, &proc, sizeof(address));
  return address;
}

}  // namespace

std::filesystem::path ExecutablePath() { return ModuleFileName(nullptr); }

std::filesystem::path ModulePathOf(const void* address) {
  if (!address) return {};
  HMODULE module = nullptr;
  if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCWSTR>(address), &module)) {
    return {};
  }
  return ModuleFileName(module);
}

std::filesystem::path LoadedModulePath(const std::string& stem) {
  // GetModuleHandleExW compares module names case-insensitively and loads nothing.
  const std::filesystem::path name = SharedLibraryFileName(stem);
  HMODULE module = nullptr;
  if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, name.c_str(), &module)) return {};
  return ModuleFileName(module);
}

ModuleHandle LoadModule(const std::filesystem::path& path) { return ::LoadLibraryW(path.c_str()); }

void UnloadModule(ModuleHandle module) {
  if (module) ::FreeLibrary(static_cast<HMODULE>(module));
}

void* FindExport(ModuleHandle module, const char* name) {
  return module && name ? AsAddress(::GetProcAddress(static_cast<HMODULE>(module), name)) : nullptr;
}

bool ExportsHaveOrdinals() { return true; }

void* FindExportByOrdinal(ModuleHandle module, int ordinal) {
  // Ordinals are 16-bit; anything else would be read as a name pointer.
  if (!module || ordinal <= 0 || ordinal > 0xFFFF) return nullptr;
  return AsAddress(::GetProcAddress(static_cast<HMODULE>(module), MAKEINTRESOURCEA(ordinal)));
}

std::filesystem::path SharedLibraryFileName(const std::string& stem) {
  return (stem.rfind("lib", 0) == 0 ? stem : "lib" + stem) + ".dll";
}

}  // namespace lmx::platform
