// Environment on Windows: GetEnvironmentVariableW and GetTempPathW.
#include "lmx/platform/environment.h"

#include <windows.h>

#include <cstdlib>

namespace lmx::platform {

std::optional<std::wstring> ReadEnvironmentVariable(const std::wstring& name) {
  // The value may change between the size query and the read; retry until it fits.
  std::wstring value;
  DWORD capacity = 256;
  for (int attempt = 0; attempt < 8; ++attempt) {
    value.assign(capacity, L'\0');
    ::SetLastError(ERROR_SUCCESS);
    const DWORD length = ::GetEnvironmentVariableW(name.c_str(), value.data(), capacity);
    if (length == 0) {
      // 0 means either "not set" or an empty value.
      if (::GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
      return std::wstring();
    }
    if (length < capacity) {  // fitted: length excludes the terminator
      value.resize(length);
      return value;
    }
    capacity = length;  // too small: length is the size needed, terminator included
  }
  return std::nullopt;
}

bool WriteEnvironmentVariable(const std::wstring& name, const std::optional<std::wstring>& value) {
  // The process environment block is what GetEnvironmentVariableW reads; the C
  // runtime's copy (getenv) is kept in step for code that reads it.
  if (!::SetEnvironmentVariableW(name.c_str(), value ? value->c_str() : nullptr)) return false;
  return ::_wputenv_s(name.c_str(), value ? value->c_str() : L"") == 0;
}

std::filesystem::path TemporaryDirectory() {
  // GetTempPathW returns at most MAX_PATH + 1 characters, ending in a backslash.
  wchar_t buffer[MAX_PATH + 2] = {};
  const DWORD length = ::GetTempPathW(static_cast<DWORD>(MAX_PATH + 1), buffer);
  if (length == 0 || length > MAX_PATH + 1) return {};
  std::wstring directory(buffer, length);
  if (directory.back() != L'\\' && directory.back() != L'/') directory.push_back(L'\\');
  return directory;
}

}  // namespace lmx::platform
