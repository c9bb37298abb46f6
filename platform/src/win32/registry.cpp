// Registry on Windows: the local-machine hive through RegOpenKeyExW, RegGetValueW
// and RegEnumKeyW. The 32-bit view is the WOW64 one, which redirects the Software
// keys to their Wow6432Node counterparts.
#include "lmx/platform/registry.h"

#include <windows.h>

namespace lmx::platform {

namespace {

HKEY AsKey(void* handle) { return static_cast<HKEY>(handle); }

// Key names are at most 255 characters.
constexpr DWORD kMaxKeyNameChars = 256;

}  // namespace

RegistryKey::~RegistryKey() {
  if (handle_) ::RegCloseKey(AsKey(handle_));
}

RegistryKey::RegistryKey(RegistryKey&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }

RegistryKey& RegistryKey::operator=(RegistryKey&& other) noexcept {
  if (this != &other) {
    if (handle_) ::RegCloseKey(AsKey(handle_));
    handle_ = other.handle_;
    other.handle_ = nullptr;
  }
  return *this;
}

RegistryKey RegistryKey::OpenLocalMachine(const std::wstring& subkey, RegistryView view) {
  const REGSAM access = KEY_READ | (view == RegistryView::k32Bit ? KEY_WOW64_32KEY : KEY_WOW64_64KEY);
  HKEY key = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, subkey.c_str(), 0, access, &key) != ERROR_SUCCESS) return RegistryKey();
  return RegistryKey(key);
}

std::optional<std::wstring> RegistryKey::ReadString(const std::wstring& name) const {
  if (!handle_) return std::nullopt;
  // The value may change between the size query and the read; retry until it fits.
  for (int attempt = 0; attempt < 4; ++attempt) {
    DWORD bytes = 0;
    if (::RegGetValueW(AsKey(handle_), nullptr, name.c_str(), RRF_RT_REG_SZ, nullptr, nullptr, &bytes) !=
        ERROR_SUCCESS) {
      return std::nullopt;
    }
    std::wstring text(bytes / sizeof(wchar_t) + 1, L'\0');
    bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    const LSTATUS status =
        ::RegGetValueW(AsKey(handle_), nullptr, name.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &bytes);
    if (status == ERROR_MORE_DATA) continue;
    if (status != ERROR_SUCCESS) return std::nullopt;
    // The size includes the terminating zero that RegGetValueW guarantees.
    text.resize(wcsnlen(text.c_str(), bytes / sizeof(wchar_t)));
    return text;
  }
  return std::nullopt;
}

std::optional<uint32_t> RegistryKey::ReadDword(const std::wstring& name) const {
  if (!handle_) return std::nullopt;
  DWORD value = 0;
  DWORD bytes = sizeof(value);
  if (::RegGetValueW(AsKey(handle_), nullptr, name.c_str(), RRF_RT_REG_DWORD, nullptr, &value, &bytes) !=
      ERROR_SUCCESS) {
    return std::nullopt;
  }
  return static_cast<uint32_t>(value);
}

std::vector<std::wstring> RegistryKey::EnumerateSubkeys() const {
  std::vector<std::wstring> names;
  if (!handle_) return names;
  wchar_t name[kMaxKeyNameChars];
  for (DWORD index = 0; ::RegEnumKeyW(AsKey(handle_), index, name, kMaxKeyNameChars) == ERROR_SUCCESS; ++index) {
    names.emplace_back(name);
  }
  return names;
}

}  // namespace lmx::platform
