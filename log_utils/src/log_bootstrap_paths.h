// log_bootstrap_paths.h: what the bootstrap's files share: small text helpers and
// the loading of the external logging module.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "log_bootstrap.h"

namespace lmsdk::log_bootstrap {

inline constexpr wchar_t kSeparator = static_cast<wchar_t>(std::filesystem::path::preferred_separator);

// Registry values and the relative paths below are written Windows-style; on
// POSIX their backslashes become slashes.
inline std::wstring NativeSeparators(std::wstring_view text) {
  std::wstring result(text);
  if (kSeparator != L'\\')
    for (auto& c : result)
      if (c == L'\\') c = kSeparator;
  return result;
}

inline bool EndsWithSeparator(std::wstring_view text) {
  return !text.empty() && (text.back() == L'\\' || text.back() == L'/');
}

// The directory part of a full path, ending with a separator; empty for an empty path.
inline std::wstring DirectoryOf(const std::wstring& path) {
  const size_t cut = path.find_last_of(L"\\/");
  return cut == std::wstring::npos ? std::wstring() : path.substr(0, cut + 1);
}

// Loads the logging module from the first candidate that loads and, if its table
// gives a logger that accepts the properties file, names it and stores it in
// result (log_utils.cpp).
void LoadExternalLogger(const BootstrapContext& context, const PropertiesFile& properties, const char* function,
                        BootstrapResult& result);

}  // namespace lmsdk::log_bootstrap
