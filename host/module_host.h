// module_host.h: reading a module's export table the way a session host does.
//
// Example:
//   lmxhost::Module module;
//   if (module.Load(path)) for (auto* e = module.Table(); e; e = e->next) ...
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lmx/platform/module.h"
#include "lmxsession.h"

namespace lmxhost {

using Norvik::Lumetra::Service::DLLExportTable;

// How the table was found.
enum class TableLookup { kNone, kByName, kByOrdinal };

class Module {
 public:
  Module() = default;
  ~Module() { lmx::platform::UnloadModule(handle_); }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Loads the module and finds its table: the export named "LMXDLLExportTable",
  // else (missing, or wrong signature) the export at ordinal 1. Returns whether a
  // table with the right signature was found.
  bool Load(const std::filesystem::path& path);

  DLLExportTable* Table() const { return table_; }
  TableLookup Lookup() const { return lookup_; }
  lmx::platform::ModuleHandle Handle() const { return handle_; }

  // Entries from the exported one through the next pointers; entries whose
  // signature differs are left out, as a host ignores them.
  std::vector<DLLExportTable*> Entries() const;

 private:
  lmx::platform::ModuleHandle handle_ = nullptr;
  DLLExportTable* table_ = nullptr;
  TableLookup lookup_ = TableLookup::kNone;
};

// The built library, next to the running program.
std::filesystem::path DefaultCoreLibraryPath();

// Text helpers for printing a descriptor.
std::string FriendlyName(const DLLExportTable& entry);     // UTF-8
std::string FourCCText(uint32_t value);                    // "SHED", or "" if not printable

}  // namespace lmxhost
