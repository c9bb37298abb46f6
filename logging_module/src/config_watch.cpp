// The module's properties-file watch: one polling thread, joined at unload.
#include "config_watch.h"

#include <log4cxx/file.h>
#include <log4cxx/propertyconfigurator.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "engine_configuration.h"
#include "lmx/platform/text.h"

namespace lmxlog {

namespace {

namespace fs = std::filesystem;

struct FileStamp {
  fs::file_time_type time{};
  std::uintmax_t size = 0;
  bool operator==(const FileStamp&) const = default;
};

FileStamp StampOf(const fs::path& path) {
  std::error_code error;
  FileStamp stamp;
  stamp.time = fs::last_write_time(path, error);
  if (error) return {};
  stamp.size = fs::file_size(path, error);
  return stamp;
}

class ConfigWatch {
 public:
  ConfigWatch(std::wstring path, int32_t delayMs)
      : path_(std::move(path)), file_(lmx::platform::WideToUtf8(path_)), delay_(delayMs), last_(StampOf(file_)) {
    thread_ = std::thread([this] { Run(); });
  }
  // Runs when the module unloads or the process exits: the thread is woken and
  // joined, so it never outlives the module or meets the engine half torn down.
  ~ConfigWatch() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
  }
  ConfigWatch(const ConfigWatch&) = delete;
  ConfigWatch& operator=(const ConfigWatch&) = delete;

 private:
  void Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!wake_.wait_for(lock, delay_, [this] { return stop_; })) {
      const FileStamp now = StampOf(file_);
      if (now == last_ || now == FileStamp{}) continue;
      last_ = now;
      lock.unlock();
      try {
        ReconfigureFromFile(path_);
      } catch (...) {
        // A file that cannot be read now is read again at its next change.
      }
      lock.lock();
    }
  }

  const std::wstring path_;
  const fs::path file_;
  const std::chrono::milliseconds delay_;
  FileStamp last_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

std::mutex g_watchLock;

}  // namespace

bool StartConfigWatch(const std::wstring& path, int32_t delayMs) {
  std::lock_guard<std::mutex> lock(g_watchLock);
  // A function-local static made now, after the engine's first read, is
  // destroyed before the engine's statics made by that read.
  static std::unique_ptr<ConfigWatch> watch;
  if (watch) return true;
  try {
    watch = std::make_unique<ConfigWatch>(path, delayMs);
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace lmxlog
