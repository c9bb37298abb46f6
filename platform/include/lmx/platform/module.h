// module.h: module (shared library) services and the process's own paths.
#pragma once

#include <filesystem>

namespace lmx::platform {

using ModuleHandle = void*;

// Full path of the process's executable; empty if it cannot be found.
std::filesystem::path ExecutablePath();
// Full path of the loaded module that contains the given code or data address.
std::filesystem::path ModulePathOf(const void* address);
// Loads a module by path; null if it cannot be loaded.
ModuleHandle LoadModule(const std::filesystem::path& path);
void UnloadModule(ModuleHandle module);
// Full path of an already loaded module whose file name is SharedLibraryFileName(stem)
// (on POSIX also a versioned "…so.N"; on Windows compared case-insensitively);
// empty if none is loaded. Loads nothing and takes no reference.
std::filesystem::path LoadedModulePath(const std::string& stem);
// Looks up an export by plain name; null if absent.
void* FindExport(ModuleHandle module, const char* name);
// Whether modules export by ordinal as well as by name (Windows does, POSIX does not).
bool ExportsHaveOrdinals();
// Looks up an export by ordinal; always null where the platform has no ordinals.
void* FindExportByOrdinal(ModuleHandle module, int ordinal);
// File name of a shared library as the platform spells it: "lmxcore" ->
// "liblmxcore.so" on POSIX, "liblmxcore.dll" on Windows (a leading "lib" is kept).
std::filesystem::path SharedLibraryFileName(const std::string& stem);

}  // namespace lmx::platform
