// lmx_loggers.h: the loggers the library implements itself, and the event-log writer.
//
//   LoggerDebugView     one formatted line per message to the debugger output.
//   EmptyLogger         discards everything; every level is disabled.
//   LoggerEventHandler  writes a text to the operating system's event log.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "lmx/platform/event_log.h"
#include "lmximpl.h"
#include "lmxlogging.h"

namespace lmsdk {

// Line format: "<name>: <LEVEL>: <file>: <line>: <message>\n", where file is the
// last component of the source path. The function argument is not printed. A line
// is built in a 1024-byte buffer; a longer one is cut (and still ends in a line feed).
// Thread safety: the threshold is read with relaxed ordering, so a level change is
// seen by other threads at their next call; SetName must not race with logging.
class LoggerDebugView final : public Norvik::Lumetra::BaseImpl<Norvik::Lumetra::LoggingService> {
 public:
  static constexpr size_t kLineBufferSize = 1024;

  LoggerDebugView() = default;
  explicit LoggerDebugView(int32_t threshold) : threshold_(threshold) {}

  Norvik::Lumetra::Status SetName(const wchar_t* name) override;
  Norvik::Lumetra::Status Configure(int32_t kind, const wchar_t* path, int32_t watchDelay) override;
  bool IsConfigured() override { return true; }
  Norvik::Lumetra::Status SetLevel(int32_t level) override;
  bool IsLevelEnabled(int32_t level) override { return level >= threshold_.load(std::memory_order_relaxed); }
  int32_t QueryLevel() override { return threshold_.load(std::memory_order_relaxed); }
  void Log(int32_t level, const char* message, const char* file, int32_t line, const char* function) override;
  void LogW(int32_t level, const wchar_t* message, const char* file, int32_t line, const char* function) override;
  void TraceEnter(int32_t, const char*) override {}
  void TraceLeave(int32_t, const char*) override {}
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  // Formats one line into buffer (kLineBufferSize bytes) exactly as Log writes it.
  void FormatLine(char* buffer, int32_t level, const char* message, const char* file, int32_t line) const;

 private:
  std::atomic<int32_t> threshold_{0};
  std::string name_;  // UTF-8 copy of the wide name
};

// The fallback logger: configured, every level disabled, nothing stored. The
// process-wide instance is static, so its Release does nothing.
class EmptyLogger final : public Norvik::Lumetra::LoggingService {
 public:
  constexpr EmptyLogger() = default;

  void* QueryInstance(Norvik::Lumetra::InterfaceId iid) override;
  void Release() override {}
  Norvik::Lumetra::Status SetName(const wchar_t*) override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Norvik::Lumetra::Status Configure(int32_t, const wchar_t*, int32_t) override {
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  bool IsConfigured() override { return true; }
  Norvik::Lumetra::Status SetLevel(int32_t) override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  bool IsLevelEnabled(int32_t) override { return false; }
  int32_t QueryLevel() override { return 0; }
  void Log(int32_t, const char*, const char*, int32_t, const char*) override {}
  void LogW(int32_t, const wchar_t*, const char*, int32_t, const char*) override {}
  void TraceEnter(int32_t, const char*) override {}
  void TraceLeave(int32_t, const char*) override {}
  void Destroy(uint32_t) override {}

  static EmptyLogger& Instance();
};

// Registers an event source named after the executable (bare name, no extension)
// on construction and deregisters it on destruction.
class LoggerEventHandler {
 public:
  static constexpr size_t kMaxReportChars = 1024;

  LoggerEventHandler();
  ~LoggerEventHandler();
  LoggerEventHandler(const LoggerEventHandler&) = delete;
  LoggerEventHandler& operator=(const LoggerEventHandler&) = delete;

  // Writes text (at most 1024 characters) as one error-type entry; returns success.
  bool Report(const char* text);
  bool IsRegistered() const { return source_ != nullptr; }

 private:
  lmx::platform::EventSource source_ = nullptr;
};

// The process-wide event-log handler, constructed before the logging bootstrap runs.
LoggerEventHandler& EventLogHandler();

}  // namespace lmsdk
