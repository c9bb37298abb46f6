#include <unistd.h>

#include "terminal.h"

namespace lmxtool {

bool IsTerminal(FILE* stream) { return isatty(fileno(stream)) != 0; }

}  // namespace lmxtool
