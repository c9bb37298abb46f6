// terminal.h: whether a stream is an interactive terminal (for progress bars).
#pragma once

#include <cstdio>

namespace lmxtool {

bool IsTerminal(FILE* stream);

}  // namespace lmxtool
