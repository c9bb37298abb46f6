// signal_processing_setup.h: the one-time set-up of the signal-processing
// primitives that image and audio conversion use.
#pragma once

namespace lmx {

// Fills every kernel table once per process (each table also fills itself at
// load or on first use, so later calls only confirm the choice). Safe to call
// from any thread; the export table's scheduler entry calls it on every call.
void InitSignalProcessing();

}  // namespace lmx
