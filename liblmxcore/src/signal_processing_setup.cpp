// The one-time set-up of the signal-processing primitives: CPU feature detection
// and the choice of every kernel variant, for pixels and for audio. Idempotent.
#include "signal_processing_setup.h"

#include "dsp/audio_kernels.h"
#include "kernels/dispatch.h"

namespace lmx {

void InitSignalProcessing() {
  ActiveRowKernels();
  ActiveAudioKernels();
}

}  // namespace lmx
