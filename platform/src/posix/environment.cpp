// Environment on POSIX: getenv, and $TMPDIR or /tmp/ as the temporary directory.
#include "lmx/platform/environment.h"

#include <cstdlib>

#include "lmx/platform/text.h"

namespace lmx::platform {

std::optional<std::wstring> ReadEnvironmentVariable(const std::wstring& name) {
  const char* value = std::getenv(WideToUtf8(name).c_str());
  if (!value) return std::nullopt;
  return Utf8ToWide(value);
}

bool WriteEnvironmentVariable(const std::wstring& name, const std::optional<std::wstring>& value) {
  const std::string narrow = WideToUtf8(name);
  if (!value) return ::unsetenv(narrow.c_str()) == 0;
  return ::setenv(narrow.c_str(), WideToUtf8(*value).c_str(), 1) == 0;
}

std::filesystem::path TemporaryDirectory() {
  const char* tmpdir = std::getenv("TMPDIR");
  std::string directory = tmpdir && *tmpdir ? tmpdir : "/tmp/";
  if (directory.back() != '/') directory.push_back('/');
  return directory;
}

}  // namespace lmx::platform
