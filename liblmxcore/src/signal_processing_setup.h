// signal_processing_setup.h: the one-time set-up of the signal-processing
// primitives that image and audio conversion use.
#pragma once

namespace lmx {

// Prepares the primitives once per process; later calls do nothing. Safe to call
// from any thread and from every scheduler factory call.
void InitSignalProcessing();

// Chooses every kernel variant again from the current CpuFeatures() (the mask's
// refill; see cpu_features.h).
void RefreshSignalProcessing();

}  // namespace lmx
