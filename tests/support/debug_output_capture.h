// debug_output_capture.h: collects what the process writes to the debugger output
// while it lives (POSIX: standard error; Windows: OutputDebugStringA). One source
// per platform, chosen by CMake.
#pragma once

#include <memory>
#include <string>

namespace lmxtest {

class DebugOutputCapture {
 public:
  DebugOutputCapture();
  ~DebugOutputCapture();
  DebugOutputCapture(const DebugOutputCapture&) = delete;
  DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

  // Stops capturing and returns everything captured; later calls return "".
  std::string Finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace lmxtest
