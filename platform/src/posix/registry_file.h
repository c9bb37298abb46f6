// registry_file.h: the POSIX registry back end's file parser, from memory.
//
// Internal to the platform layer: the back end opens keys through it, and the
// parser's fuzz target feeds it arbitrary bytes. Any input gives an answer (a
// missing key at worst); nothing in the file can make it fail otherwise.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "lmx/platform/registry.h"

namespace lmx::platform::registry_file {

using Value = std::variant<std::wstring, uint32_t>;

// What an open key holds: a snapshot of its values (by lower-case name) and the
// names of its direct subkeys in their own case.
struct KeySnapshot {
  std::map<std::wstring, Value> values;
  std::vector<std::wstring> subkeys;
};

// Parses `bytes` (a whole ".reg" file: UTF-8, or UTF-16LE with its BOM) and takes
// the snapshot of HKEY_LOCAL_MACHINE\<subkey> in `view`; false when the file has
// no such key (nor any key below it).
bool OpenKeyInFile(std::string_view bytes, const std::wstring& subkey, RegistryView view, KeySnapshot* key);

}  // namespace lmx::platform::registry_file
