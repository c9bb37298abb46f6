// config_watch.h: the module's own watch of its properties file.
//
// The engine's built-in watchdog is a thread that the engine's static teardown
// joins at exit; with other libraries' statics in the process that join can wait
// forever on a lock the watchdog needs. This watch belongs to the module instead:
// one thread that polls the file's time and size, re-reads it on a change, and is
// stopped and joined when the module unloads or the process exits, before the
// engine's own statics go away (it is created after the engine's first read, so
// it is torn down before them).
#pragma once

#include <cstdint>
#include <string>

namespace lmxlog {

// Starts the process's one watch of path (a later call is ignored); every
// delayMs milliseconds a changed file is read again under lock. Returns false
// when the thread cannot be started (the file then stays read once).
bool StartConfigWatch(const std::wstring& path, int32_t delayMs);

}  // namespace lmxlog
