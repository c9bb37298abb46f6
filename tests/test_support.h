// test_support.h: a logger that records lines, installed for the scope of a test.
#pragma once

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "lmx/platform/text.h"
#include "lmximpl.h"
#include "lmxlogging.h"

namespace lmxtest {

struct LogLine {
  int32_t level;
  std::string message;  // UTF-8
  std::string file;
  int32_t line;
  std::string function;
};

struct TraceEvent {
  bool enter;
  int32_t level;
  std::string name;
};

// Records every message at or above its threshold; thread safe.
class CapturingLogger final : public Norvik::Lumetra::BaseImpl<Norvik::Lumetra::LoggingService> {
 public:
  explicit CapturingLogger(int32_t threshold = 0) : threshold_(threshold) {}

  using Status = Norvik::Lumetra::Status;
  Status SetName(const wchar_t*) override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Status Configure(int32_t, const wchar_t*, int32_t) override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  bool IsConfigured() override { return true; }
  Status SetLevel(int32_t level) override {
    threshold_ = level;
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  bool IsLevelEnabled(int32_t level) override { return level >= threshold_; }
  int32_t QueryLevel() override { return threshold_; }
  void Log(int32_t level, const char* message, const char* file, int32_t line, const char* function) override {
    Record(level, message ? message : "", file, line, function);
  }
  void LogW(int32_t level, const wchar_t* message, const char* file, int32_t line, const char* function) override {
    Record(level, message ? lmx::platform::WideToUtf8(message) : "", file, line, function);
  }
  void TraceEnter(int32_t level, const char* name) override { RecordTrace(true, level, name); }
  void TraceLeave(int32_t level, const char* name) override { RecordTrace(false, level, name); }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  std::vector<LogLine> Lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  std::vector<TraceEvent> Traces() {
    std::lock_guard lock(mutex_);
    return traces_;
  }
  // Whether some line's message contains the text.
  bool Contains(const std::string& text) {
    std::lock_guard lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(),
                       [&](auto& l) { return l.message.find(text) != std::string::npos; });
  }
  // Whether some trace entered a scope of that name.
  bool Traced(const std::string& name) {
    std::lock_guard lock(mutex_);
    return std::any_of(traces_.begin(), traces_.end(), [&](auto& t) { return t.enter && t.name == name; });
  }
  void Clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
    traces_.clear();
  }

 private:
  void Record(int32_t level, std::string message, const char* file, int32_t line, const char* function) {
    if (level < threshold_) return;
    std::lock_guard lock(mutex_);
    lines_.push_back({level, std::move(message), file ? file : "", line, function ? function : ""});
  }
  void RecordTrace(bool enter, int32_t level, const char* name) {
    std::lock_guard lock(mutex_);
    traces_.push_back({enter, level, name ? name : ""});
  }

  std::atomic<int32_t> threshold_;
  std::mutex mutex_;
  std::vector<LogLine> lines_;
  std::vector<TraceEvent> traces_;
};

// Installs a CapturingLogger as the process-wide logger for its lifetime.
class ScopedCapture {
 public:
  explicit ScopedCapture(int32_t threshold = 0) : previous_(lmsdk::LogUtil::GetLogger()), logger_(threshold) {
    lmsdk::LogUtil::SetLogger(&logger_);
  }
  ~ScopedCapture() { lmsdk::LogUtil::SetLogger(previous_); }
  ScopedCapture(const ScopedCapture&) = delete;
  ScopedCapture& operator=(const ScopedCapture&) = delete;
  CapturingLogger* operator->() { return &logger_; }

 private:
  Norvik::Lumetra::LoggingService* previous_;
  CapturingLogger logger_;
};

// The function at a slot of a face's vtable, called with the face as `this`, as a
// separately compiled module calls it.
template <class R, class... Args>
R CallSlot(void* face, int slot, Args... args) {
  void** vtable = *static_cast<void***>(face);
  return reinterpret_cast<R (*)(void*, Args...)>(vtable[slot])(face, args...);
}

}  // namespace lmxtest
