// Registry on POSIX: a file in the Windows ".reg" export format stands in for the
// local-machine hive. The file is, in order: the one $LMSDK_REGISTRY names (a
// missing one is an empty registry, so a test or a user can shut the others out);
// else /etc/lmsdk/lmsdk.reg if it exists; else the installation's own file, found
// from the loaded library (<libdir>/../etc/lmsdk/lmsdk.reg, written at install
// time). The file is read on every open, so a change is seen by the next open, as
// with the real registry.
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <system_error>
#include <cwctype>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "lmx/platform/module.h"
#include "lmx/platform/registry.h"
#include "lmx/platform/text.h"
#include "registry_file.h"

namespace lmx::platform {
namespace {

using registry_file::KeySnapshot;
using registry_file::Value;

constexpr const char* kSystemRegistryFile = "/etc/lmsdk/lmsdk.reg";
#ifndef LMX_INSTALL_REGISTRY_FROM_LIBDIR
#define LMX_INSTALL_REGISTRY_FROM_LIBDIR "../etc/lmsdk/lmsdk.reg"
#endif

struct KeyEntry {
  std::wstring path;                     // as first written, for subkey names in their own case
  std::map<std::wstring, Value> values;  // by lower-case name
};

struct Hive {
  // Keys by lower-case path below HKEY_LOCAL_MACHINE.
  std::map<std::wstring, KeyEntry> keys;
};

std::wstring Lower(std::wstring text) {
  for (auto& c : text) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
  return text;
}

std::wstring Trim(const std::wstring& text) {
  const size_t first = text.find_first_not_of(L" \t\r\n");
  if (first == std::wstring::npos) return {};
  return text.substr(first, text.find_last_not_of(L" \t\r\n") - first + 1);
}

std::wstring DecodeFile(std::string_view bytes) {
  if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF && static_cast<uint8_t>(bytes[1]) == 0xFE) {
    std::wstring utf16;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
      utf16.push_back(static_cast<wchar_t>(static_cast<uint8_t>(bytes[i]) | static_cast<uint8_t>(bytes[i + 1]) << 8));
    // Re-encode through UTF-8 so surrogate pairs become whole code points.
    std::string utf8;
    for (size_t i = 0; i < utf16.size(); ++i) {
      char32_t cp = static_cast<char32_t>(utf16[i]);
      if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 && utf16[i + 1] <= 0xDFFF)
        cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<char32_t>(utf16[++i]) - 0xDC00);
      utf8 += WideToUtf8(std::wstring(1, static_cast<wchar_t>(cp)));
    }
    return Utf8ToWide(utf8);
  }
  const bool bom = bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
  return Utf8ToWide(bytes.substr(bom ? 3 : 0));
}

// Strips the hive name; only the local-machine hive is kept. The path keeps its case.
bool LocalMachinePath(const std::wstring& full, std::wstring* path) {
  const std::wstring lower = Lower(full);
  for (const wchar_t* hive : {L"hkey_local_machine", L"hklm"}) {
    const std::wstring prefix(hive);
    if (lower == prefix) {
      *path = L"";
      return true;
    }
    if (lower.rfind(prefix + L"\\", 0) == 0) {
      *path = full.substr(prefix.size() + 1);
      return true;
    }
  }
  return false;
}

// Parses a quoted string starting at text[pos] == '"'; advances pos past the closing quote.
bool ParseQuoted(const std::wstring& text, size_t& pos, std::wstring* out) {
  if (pos >= text.size() || text[pos] != L'"') return false;
  out->clear();
  for (++pos; pos < text.size(); ++pos) {
    if (text[pos] == L'\\' && pos + 1 < text.size()) {
      out->push_back(text[++pos]);
    } else if (text[pos] == L'"') {
      ++pos;
      return true;
    } else {
      out->push_back(text[pos]);
    }
  }
  return false;
}

std::optional<std::string> ParseHexBytes(const std::wstring& text) {
  std::string bytes;
  std::wstring digits;
  for (wchar_t c : text + L",") {
    if (c == L',') {
      digits = Trim(digits);
      if (!digits.empty()) {
        wchar_t* end = nullptr;
        const unsigned long byte = std::wcstoul(digits.c_str(), &end, 16);
        if (*end || byte > 0xFF) return std::nullopt;
        bytes.push_back(static_cast<char>(byte));
      }
      digits.clear();
    } else {
      digits.push_back(c);
    }
  }
  return bytes;
}

// A value's data: "text", dword:XXXXXXXX, hex(2):.. (expandable text) or hex(4):.. (dword).
std::optional<Value> ParseData(const std::wstring& data) {
  if (!data.empty() && data[0] == L'"') {
    size_t pos = 0;
    std::wstring text;
    if (ParseQuoted(data, pos, &text)) return Value(text);
    return std::nullopt;
  }
  const std::wstring lower = Lower(data);
  if (lower.rfind(L"dword:", 0) == 0) {
    wchar_t* end = nullptr;
    const std::wstring digits = Trim(data.substr(6));
    const unsigned long long value = std::wcstoull(digits.c_str(), &end, 16);
    if (digits.empty() || *end || value > 0xFFFFFFFFull) return std::nullopt;
    return Value(static_cast<uint32_t>(value));
  }
  for (const auto& [prefix, kind] : {std::pair{L"hex(2):", 2}, std::pair{L"hex(4):", 4}}) {
    if (lower.rfind(prefix, 0) != 0) continue;
    const auto bytes = ParseHexBytes(data.substr(std::wcslen(prefix)));
    if (!bytes) return std::nullopt;
    if (kind == 4) {
      if (bytes->size() != 4) return std::nullopt;
      uint32_t value = 0;
      for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<uint8_t>((*bytes)[i]);
      return Value(value);
    }
    std::wstring text;
    for (size_t i = 0; i + 1 < bytes->size(); i += 2) {
      const wchar_t c =
          static_cast<wchar_t>(static_cast<uint8_t>((*bytes)[i]) | static_cast<uint8_t>((*bytes)[i + 1]) << 8);
      if (!c) break;
      text.push_back(c);
    }
    return Value(text);
  }
  return std::nullopt;  // other types are not read by the library
}

void ParseInto(const std::wstring& content, Hive* hive) {
  std::wstring current;  // lower-case key path, empty = outside the hive
  bool inHive = false;
  std::wstring line;
  size_t start = 0;
  while (start <= content.size()) {
    size_t end = content.find(L'\n', start);
    if (end == std::wstring::npos) end = content.size();
    std::wstring piece = Trim(content.substr(start, end - start));
    start = end + 1;
    // A trailing backslash continues hex data on the next line.
    if (!piece.empty() && piece.back() == L'\\' && piece.find(L'=') != std::wstring::npos &&
        Lower(piece).find(L"hex") != std::wstring::npos) {
      line += piece.substr(0, piece.size() - 1);
      continue;
    }
    line += piece;
    const std::wstring entry = std::exchange(line, std::wstring());
    if (entry.empty() || entry[0] == L';') continue;
    if (entry[0] == L'[') {
      const size_t close = entry.rfind(L']');
      if (close == std::wstring::npos) {
        inHive = false;
        continue;
      }
      const bool erase = entry.size() > 1 && entry[1] == L'-';
      std::wstring original;
      inHive = LocalMachinePath(entry.substr(erase ? 2 : 1, close - (erase ? 2 : 1)), &original);
      if (!inHive) continue;
      const std::wstring path = Lower(original);
      if (erase) {
        for (auto it = hive->keys.begin(); it != hive->keys.end();)
          it = (it->first == path || it->first.rfind(path + L"\\", 0) == 0) ? hive->keys.erase(it) : std::next(it);
        inHive = false;
        continue;
      }
      current = path;
      auto& key = hive->keys[current];
      if (key.path.empty()) key.path = original;
      continue;
    }
    if (!inHive) continue;
    std::wstring name;
    size_t pos = 0;
    if (entry[0] == L'@') {
      pos = 1;
    } else if (!ParseQuoted(entry, pos, &name)) {
      continue;
    }
    while (pos < entry.size() && entry[pos] == L' ') ++pos;
    if (pos >= entry.size() || entry[pos] != L'=') continue;
    const std::wstring data = Trim(entry.substr(pos + 1));
    auto& values = hive->keys[current].values;
    if (data == L"-") {
      values.erase(Lower(name));
    } else if (auto value = ParseData(data)) {
      values[Lower(name)] = *value;
    }
  }
}

// The installation's own registry file, relative to the module holding this code
// (the library, or a program linking the platform layer). Computed once.
const std::filesystem::path& InstallationRegistryFile() {
  static const std::filesystem::path path = [] {
    const auto module = ModulePathOf(reinterpret_cast<const void*>(&InstallationRegistryFile));
    return module.empty() ? module : (module.parent_path() / LMX_INSTALL_REGISTRY_FROM_LIBDIR).lexically_normal();
  }();
  return path;
}

std::filesystem::path RegistryFilePath() {
  if (const char* configured = std::getenv("LMSDK_REGISTRY"); configured && *configured) return configured;
  std::error_code error;
  if (std::filesystem::exists(kSystemRegistryFile, error)) return kSystemRegistryFile;
  return InstallationRegistryFile();
}

// The file's bytes; a missing file reads as an empty registry.
std::string ReadRegistryFile() {
  const std::filesystem::path path = RegistryFilePath();
  if (path.empty()) return {};
  std::ifstream file(path, std::ios::binary);
  if (!file) return {};
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// The 32-bit view of a key below "Software" is its Wow6432Node twin.
std::wstring ViewPath(std::wstring path, RegistryView view) {
  if (view == RegistryView::k32Bit && path.rfind(L"software\\", 0) == 0 && path.rfind(L"software\\wow6432node", 0) != 0)
    path.insert(9, L"wow6432node\\");
  return path;
}

}  // namespace

bool registry_file::OpenKeyInFile(std::string_view bytes, const std::wstring& subkey, RegistryView view,
                                  KeySnapshot* key) {
  const std::wstring path = ViewPath(Lower(Trim(subkey)), view);
  Hive hive;
  ParseInto(DecodeFile(bytes), &hive);
  bool exists = false;
  std::set<std::wstring> seen;
  const std::wstring prefix = path.empty() ? L"" : path + L"\\";
  for (const auto& [keyPath, entry] : hive.keys) {
    if (keyPath == path) {
      exists = true;
      key->values = entry.values;
    } else if (keyPath.rfind(prefix, 0) == 0) {
      // A key implies its parents, as creating a nested key does.
      exists = true;
      const size_t length = keyPath.find(L'\\', prefix.size()) - prefix.size();
      if (seen.insert(keyPath.substr(prefix.size(), length)).second)
        key->subkeys.push_back(entry.path.substr(prefix.size(), length));
    }
  }
  return exists;
}

RegistryKey::~RegistryKey() { delete static_cast<KeySnapshot*>(handle_); }

RegistryKey::RegistryKey(RegistryKey&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}

RegistryKey& RegistryKey::operator=(RegistryKey&& other) noexcept {
  if (this != &other) {
    delete static_cast<KeySnapshot*>(handle_);
    handle_ = std::exchange(other.handle_, nullptr);
  }
  return *this;
}

RegistryKey RegistryKey::OpenLocalMachine(const std::wstring& subkey, RegistryView view) {
  auto key = std::make_unique<KeySnapshot>();
  if (!registry_file::OpenKeyInFile(ReadRegistryFile(), subkey, view, key.get())) return RegistryKey();
  return RegistryKey(key.release());
}

std::optional<std::wstring> RegistryKey::ReadString(const std::wstring& name) const {
  if (!handle_) return std::nullopt;
  const auto& values = static_cast<KeySnapshot*>(handle_)->values;
  const auto it = values.find(Lower(name));
  if (it == values.end() || !std::holds_alternative<std::wstring>(it->second)) return std::nullopt;
  return std::get<std::wstring>(it->second);
}

std::optional<uint32_t> RegistryKey::ReadDword(const std::wstring& name) const {
  if (!handle_) return std::nullopt;
  const auto& values = static_cast<KeySnapshot*>(handle_)->values;
  const auto it = values.find(Lower(name));
  if (it == values.end() || !std::holds_alternative<uint32_t>(it->second)) return std::nullopt;
  return std::get<uint32_t>(it->second);
}

std::vector<std::wstring> RegistryKey::EnumerateSubkeys() const {
  return handle_ ? static_cast<KeySnapshot*>(handle_)->subkeys : std::vector<std::wstring>{};
}

}  // namespace lmx::platform
