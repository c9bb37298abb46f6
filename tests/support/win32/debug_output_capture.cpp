// Captures OutputDebugStringA in the process itself: it raises DBG_PRINTEXCEPTION_C
// with the text's length and address, and a vectored handler sees that before the
// function's own handler swallows it.
#include "support/debug_output_capture.h"

#include <windows.h>

#include <mutex>
#include <utility>

namespace lmxtest {

namespace {

std::mutex g_mutex;
std::string* g_sink = nullptr;  // the active capture's text, guarded by g_mutex

LONG CALLBACK OnException(EXCEPTION_POINTERS* info) {
  const EXCEPTION_RECORD* record = info->ExceptionRecord;
  if (record->ExceptionCode == DBG_PRINTEXCEPTION_C && record->NumberParameters >= 2) {
    // Parameter 0 is the length including the terminating zero.
    const auto length = static_cast<size_t>(record->ExceptionInformation[0]);
    const auto* text = reinterpret_cast<const char*>(record->ExceptionInformation[1]);
    std::lock_guard lock(g_mutex);
    if (g_sink && text && length > 0) g_sink->append(text, length - 1);
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

struct DebugOutputCapture::State {
  std::string text;
  void* handler = nullptr;
};

DebugOutputCapture::DebugOutputCapture() : state_(std::make_unique<State>()) {
  {
    std::lock_guard lock(g_mutex);
    g_sink = &state_->text;
  }
  state_->handler = ::AddVectoredExceptionHandler(1, OnException);
}

DebugOutputCapture::~DebugOutputCapture() { Finish(); }

std::string DebugOutputCapture::Finish() {
  if (state_->handler) {
    ::RemoveVectoredExceptionHandler(state_->handler);
    state_->handler = nullptr;
  }
  std::lock_guard lock(g_mutex);
  if (g_sink == &state_->text) g_sink = nullptr;
  return std::exchange(state_->text, {});
}

}  // namespace lmxtest
