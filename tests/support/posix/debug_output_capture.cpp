// Captures standard error by pointing descriptor 2 at a temporary file.
#include "support/debug_output_capture.h"

#include <unistd.h>

#include <cstdio>

namespace lmxtest {

struct DebugOutputCapture::State {
  std::FILE* file = nullptr;
  int saved = -1;
};

DebugOutputCapture::DebugOutputCapture() : state_(std::make_unique<State>()) {
  std::fflush(stderr);
  state_->file = std::tmpfile();
  state_->saved = ::dup(STDERR_FILENO);
  if (state_->file && state_->saved >= 0) ::dup2(::fileno(state_->file), STDERR_FILENO);
}

DebugOutputCapture::~DebugOutputCapture() { Finish(); }

std::string DebugOutputCapture::Finish() {
  std::string text;
  if (state_->saved >= 0) {
    ::dup2(state_->saved, STDERR_FILENO);
    ::close(state_->saved);
    state_->saved = -1;
  }
  if (state_->file) {
    std::rewind(state_->file);
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, state_->file)) > 0) text.append(buffer, n);
    std::fclose(state_->file);
    state_->file = nullptr;
  }
  return text;
}

}  // namespace lmxtest
