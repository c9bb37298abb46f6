// environment.h: the process environment and the temporary directory.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lmx::platform {

// The value of an environment variable; nothing if it is not set (an empty value
// that the platform can represent is returned as an empty text).
std::optional<std::wstring> ReadEnvironmentVariable(const std::wstring& name);

// Sets (or, given nothing, removes) an environment variable of this process, so
// that ReadEnvironmentVariable and the platform's own lookups see it (tests; the
// logging module's default LMSDK_LOG_DIR).
bool WriteEnvironmentVariable(const std::wstring& name, const std::optional<std::wstring>& value);

// The directory for temporary files, ending in a separator: GetTempPathW on
// Windows; $TMPDIR (if set and not empty) else "/tmp/" on POSIX. Empty if the
// platform cannot name one.
std::filesystem::path TemporaryDirectory();

}  // namespace lmx::platform
