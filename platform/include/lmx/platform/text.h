// text.h: conversions between wide text and UTF-8, the same on every platform.
#pragma once

#include <string>
#include <string_view>

namespace lmx::platform {

// wchar_t is UTF-16 on Windows and UTF-32 elsewhere; both are handled, and an
// unpaired surrogate or invalid value becomes U+FFFD.
std::string WideToUtf8(std::wstring_view text);
std::wstring Utf8ToWide(std::string_view text);

}  // namespace lmx::platform
