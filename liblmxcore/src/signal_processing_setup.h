// signal_processing_setup.h: the one-time set-up of the signal-processing
// primitives that image and audio conversion use.
#pragma once

namespace lmx {

// Prepares the primitives once per process; later calls do nothing. Safe to call
// from any thread and from every scheduler factory call.
void InitSignalProcessing();

}  // namespace lmx
