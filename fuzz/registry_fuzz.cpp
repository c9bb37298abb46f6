// Fuzz target: the POSIX registry back end's ".reg" parser, fed whole files.
// Opens a few keys in both views of every input; beyond "no crash, no leak, no
// undefined behaviour" it checks that a key listed as a subkey can be opened.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "registry_file.h"

using lmx::platform::RegistryView;
using lmx::platform::registry_file::KeySnapshot;
using lmx::platform::registry_file::OpenKeyInFile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const wchar_t* subkey : {L"", L"Software\\Norvik\\LMSDK"}) {
    for (RegistryView view : {RegistryView::kDefault, RegistryView::k32Bit}) {
      KeySnapshot key;
      if (!OpenKeyInFile(bytes, subkey, view, &key)) continue;
      // Subkey names come back in the file's case; reading them back must find
      // the key (names with surrounding blanks are trimmed by the open).
      for (const std::wstring& name : key.subkeys) {
        if (name.empty() || name.find_first_of(L" \t\r\n") != std::wstring::npos) continue;
        const std::wstring path = std::wstring(subkey).empty() ? name : std::wstring(subkey) + L"\\" + name;
        KeySnapshot child;
        if (!OpenKeyInFile(bytes, path, view, &child)) std::abort();
        break;  // one is enough per key: each open parses the file again
      }
    }
  }
  return 0;
}
