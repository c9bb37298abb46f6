// log_bootstrap_paths.h: small text helpers shared by the bootstrap's files.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

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

}  // namespace lmsdk::log_bootstrap
