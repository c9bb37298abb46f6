// engine_configuration.h: the engine's one configuration in the process.
//
// The engine keeps a single logger hierarchy per process, so configuration is
// module-wide: the first properties file that configures it wins, and every
// logger the module hands out afterwards reports itself configured.
#pragma once

#include <cstdint>
#include <string>

#include "lmxstatus.h"

namespace lmxlog {

// Reads a log4j-style properties file into the engine; with a watch delay above
// zero (milliseconds) the engine re-reads the file whenever it changes. A file
// that cannot be read, or that leaves no logger with an appender, configures
// nothing and starts no watch. Before reading, LMSDK_LOG_DIR is defined for the
// file's ${LMSDK_LOG_DIR} if the environment lacks it (DefaultLogDirectory).
Norvik::Lumetra::Status ConfigureFromFile(const std::wstring& path, int32_t watchDelay);

// Reads the file again over the current configuration (the watch's re-read).
void ReconfigureFromFile(const std::wstring& path);

// Whether a properties file has configured the engine in this process.
bool EngineConfigured();

// The user's state directory for logs: $XDG_STATE_HOME/lmsdk, else
// $HOME/.local/state/lmsdk, else <temporary directory>/lmsdk.
std::string DefaultLogDirectory();

}  // namespace lmxlog
