// Wide text <-> UTF-8, shared by both back ends.
#include "lmx/platform/text.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace lmx::platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = kReplacement;
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

void AppendWide(std::wstring& out, char32_t cp) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<wchar_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<wchar_t>(0xDC00 + (cp & 0x3FF)));
      return;
    }
  }
  out.push_back(static_cast<wchar_t>(cp));
}

}  // namespace

std::string WideToUtf8(std::wstring_view text) {
  // Log messages are mostly ASCII: copy the leading ASCII run in one pass.
  size_t ascii = 0;
  while (ascii < text.size() && static_cast<std::make_unsigned_t<wchar_t>>(text[ascii]) < 0x80) ++ascii;
  std::string out(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(ascii));
  if (ascii == text.size()) return out;
  out.reserve(text.size() + 8);
  for (size_t i = ascii; i < text.size(); ++i) {
    char32_t cp = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
    if constexpr (sizeof(wchar_t) == 2) {
      if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size()) {
        char32_t low = static_cast<char16_t>(text[i + 1]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        }
      }
    }
    AppendUtf8(out, cp);
  }
  return out;
}

std::wstring Utf8ToWide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    const auto lead = static_cast<uint8_t>(text[i]);
    int extra = lead < 0x80 ? 0 : (lead >> 5) == 0x6 ? 1 : (lead >> 4) == 0xE ? 2 : (lead >> 3) == 0x1E ? 3 : -1;
    if (extra < 0 || text.size() - i <= static_cast<size_t>(extra)) {
      AppendWide(out, kReplacement);
      ++i;
      continue;
    }
    char32_t cp = extra == 0 ? lead : lead & (0x3F >> extra);
    bool ok = true;
    for (int k = 1; k <= extra; ++k) {
      const auto cont = static_cast<uint8_t>(text[i + k]);
      if ((cont & 0xC0) != 0x80) {
        ok = false;
        break;
      }
      cp = (cp << 6) | (cont & 0x3F);
    }
    if (!ok) {
      AppendWide(out, kReplacement);
      ++i;
      continue;
    }
    AppendWide(out, cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) ? kReplacement : cp);
    i += extra + 1;
  }
  return out;
}

}  // namespace lmx::platform
