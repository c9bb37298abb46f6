// The one-time set-up of the signal-processing primitives.
#include "signal_processing_setup.h"

#include <mutex>

namespace lmx {

void InitSignalProcessing() {
  static std::once_flag once;
  // CPU feature detection for the conversion kernels' dispatch hooks in here.
  std::call_once(once, [] {});
}

}  // namespace lmx
