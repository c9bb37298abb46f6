// log_bootstrap_support.h: scaffolding for the logging bootstrap's tests: a
// temporary folder, environment variables restored on exit, copies of the test
// logging module placed in folder layouts, and an injected bootstrap context.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fixtures/fake_logging_module.h"
#include "lmx/platform/environment.h"
#include "lmx/platform/module.h"
#include "log_bootstrap.h"

namespace lmxtest {

namespace fs = std::filesystem;
using lmsdk::log_bootstrap::BootstrapContext;
using lmsdk::log_bootstrap::BootstrapResult;
using lmsdk::log_bootstrap::ToPath;
using lmsdk::log_bootstrap::ToWide;

// Sets an environment variable for its lifetime and restores the old value.
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::wstring name, std::optional<std::wstring> value)
      : name_(std::move(name)), previous_(lmx::platform::ReadEnvironmentVariable(name_)) {
    lmx::platform::WriteEnvironmentVariable(name_, value);
  }
  ~ScopedEnvironment() { lmx::platform::WriteEnvironmentVariable(name_, previous_); }

 private:
  std::wstring name_;
  std::optional<std::wstring> previous_;
};

// A fresh folder under the temporary directory, removed with its contents.
class TempFolder {
 public:
  TempFolder() {
    static std::atomic<int> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    path_ = fs::temp_directory_path() / ("lmx_logs_" + std::to_string(stamp) + "_" + std::to_string(counter++));
    fs::create_directories(path_);
  }
  ~TempFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
  }

  const fs::path& path() const { return path_; }
  // "<folder>/<relative>/" as wide text with a trailing separator; created.
  std::wstring Directory(const std::string& relative) const {
    const fs::path directory = relative.empty() ? path_ : path_ / relative;
    fs::create_directories(directory);
    return ToWide((directory / "").lexically_normal());  // an empty last element adds the separator
  }
  fs::path Write(const std::string& relative, const std::string& bytes) const {
    const fs::path file = path_ / relative;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
  }

 private:
  fs::path path_;
};

inline const std::wstring kModuleFile = lmsdk::log_bootstrap::LoggingModuleFileName();
inline fs::path FakeLoggingModule() { return fs::path(LMX_FAKE_LOGGING_MODULE); }
inline fs::path BadSignatureLoggingModule() { return fs::path(LMX_FAKE_LOGGING_MODULE_BAD_SIGNATURE); }

// Copies a test logging module to <directory>/<platform file name>. Each copy loads
// as a module of its own, with its own record.
inline void PlaceModule(const fs::path& module, const std::wstring& directory) {
  const fs::path target = ToPath(directory) / lmx::platform::SharedLibraryFileName("liblmxlog");
  fs::create_directories(target.parent_path());
  fs::copy_file(module, target, fs::copy_options::overwrite_existing);
}

inline FakeLoggingRecord* RecordOf(lmx::platform::ModuleHandle module) {
  auto function =
      reinterpret_cast<FakeLoggingRecordFunction>(lmx::platform::FindExport(module, kFakeLoggingRecordExport));
  return function ? function() : nullptr;
}

// A context whose directories lie in a temporary folder and whose environment
// and event log are maps and lists the test controls.
struct TestContext {
  explicit TestContext(const TempFolder& folder) {
    context.moduleName = L"bootstrap_test";
    context.runtimeDirectory = folder.Directory("sdk/runtime/bin");
    context.executableDirectory = folder.Directory("app");
    context.temporaryDirectory = folder.Directory("tmp");
    context.environment = [this](const std::wstring& name) -> std::optional<std::wstring> {
      const auto it = environment.find(name);
      return it == environment.end() ? std::nullopt : std::optional(it->second);
    };
    context.reportEvent = [this](const char* text) { events.emplace_back(text); };
  }
  TestContext(const TestContext&) = delete;  // the callbacks hold `this`

  BootstrapContext context;
  std::map<std::wstring, std::wstring> environment;
  std::vector<std::string> events;
};

inline constexpr char kFunction[] = "test-function";

// The bootstrap's choice for a context; the logger is released and the module
// unloaded at the end of the scope.
struct Selection : BootstrapResult {
  explicit Selection(const BootstrapContext& context)
      : BootstrapResult(lmsdk::log_bootstrap::SelectLogger(context, kFunction)) {}
  Selection(const Selection&) = delete;
  ~Selection() {
    if (logger) logger->Release();
    if (module) lmx::platform::UnloadModule(module);
  }
};

}  // namespace lmxtest
