#include <io.h>

#include "terminal.h"

namespace lmxtool {

bool IsTerminal(FILE* stream) { return _isatty(_fileno(stream)) != 0; }

}  // namespace lmxtool
