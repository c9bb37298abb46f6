// Windows test registry: values written to the real local-machine hive and
// deleted again when the test ends (keys created for them are left empty).
#include "support/test_registry.h"

#include <windows.h>

#include <utility>
#include <vector>

namespace lmxtest {

struct ScopedTestRegistry::State {
  std::vector<std::pair<std::wstring, std::wstring>> written;  // (key, value name)
};

namespace {
void Write(const std::wstring& key, const std::wstring& name, DWORD type, const void* data, DWORD size) {
  HKEY handle = nullptr;
  if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_WRITE | KEY_WOW64_64KEY, nullptr, &handle,
                        nullptr) != ERROR_SUCCESS)
    return;
  ::RegSetValueExW(handle, name.c_str(), 0, type, static_cast<const BYTE*>(data), size);
  ::RegCloseKey(handle);
}
}  // namespace

ScopedTestRegistry::ScopedTestRegistry() : state_(std::make_unique<State>()) {}

ScopedTestRegistry::~ScopedTestRegistry() {
  for (const auto& [key, name] : state_->written) {
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_WRITE | KEY_WOW64_64KEY, &handle) == ERROR_SUCCESS) {
      ::RegDeleteValueW(handle, name.c_str());
      ::RegCloseKey(handle);
    }
  }
}

void ScopedTestRegistry::SetString(const std::wstring& key, const std::wstring& name, const std::wstring& value) {
  Write(key, name, REG_SZ, value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  state_->written.emplace_back(key, name);
}

void ScopedTestRegistry::SetDword(const std::wstring& key, const std::wstring& name, uint32_t value) {
  const DWORD data = value;
  Write(key, name, REG_DWORD, &data, sizeof data);
  state_->written.emplace_back(key, name);
}

}  // namespace lmxtest
