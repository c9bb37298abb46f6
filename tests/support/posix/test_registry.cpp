// POSIX test registry: rewrites a private .reg file on every change.
#include "support/test_registry.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "lmx/platform/text.h"

namespace lmxtest {

struct ScopedTestRegistry::State {
  std::filesystem::path file;
  std::optional<std::string> previous;
  std::map<std::wstring, std::map<std::wstring, std::string>> keys;  // key -> name -> .reg data

  void Flush() const {
    std::ostringstream out;
    out << "Windows Registry Editor Version 5.00\r\n";
    for (const auto& [key, values] : keys) {
      out << "\r\n[HKEY_LOCAL_MACHINE\\" << lmx::platform::WideToUtf8(key) << "]\r\n";
      for (const auto& [name, data] : values) out << '"' << lmx::platform::WideToUtf8(name) << "\"=" << data << "\r\n";
    }
    std::ofstream(file, std::ios::binary) << out.str();
  }
};

namespace {
std::string Quote(const std::wstring& text) {
  std::string out = "\"";
  for (char c : lmx::platform::WideToUtf8(text)) {
    if (c == '\\' || c == '"') out.push_back('\\');
    out.push_back(c);
  }
  return out + "\"";
}
}  // namespace

ScopedTestRegistry::ScopedTestRegistry() : state_(std::make_unique<State>()) {
  static int counter = 0;
  state_->file = std::filesystem::temp_directory_path() /
                 ("lmx_test_registry_" + std::to_string(::getpid()) + "_" + std::to_string(++counter) + ".reg");
  if (const char* old = std::getenv("LMSDK_REGISTRY")) state_->previous = old;
  state_->Flush();
  ::setenv("LMSDK_REGISTRY", state_->file.c_str(), 1);
}

ScopedTestRegistry::~ScopedTestRegistry() {
  if (state_->previous)
    ::setenv("LMSDK_REGISTRY", state_->previous->c_str(), 1);
  else
    ::unsetenv("LMSDK_REGISTRY");
  std::error_code ignored;
  std::filesystem::remove(state_->file, ignored);
}

void ScopedTestRegistry::SetString(const std::wstring& key, const std::wstring& name, const std::wstring& value) {
  state_->keys[key][name] = Quote(value);
  state_->Flush();
}

void ScopedTestRegistry::SetDword(const std::wstring& key, const std::wstring& name, uint32_t value) {
  char data[32];
  std::snprintf(data, sizeof data, "dword:%08x", value);
  state_->keys[key][name] = data;
  state_->Flush();
}

}  // namespace lmxtest
