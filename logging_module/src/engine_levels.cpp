// The kit's logging levels on the engine's levels.
#include "engine_levels.h"

#include <climits>

#include "lmxlogging.h"

namespace lmxlog {

using namespace Norvik::Lumetra;

namespace {

struct Levels {
  log4cxx::LevelPtr all = log4cxx::Level::getAll();
  // Syslog equivalent 7 (debug), as the engine's own DEBUG and TRACE.
  log4cxx::LevelPtr verbose = std::make_shared<log4cxx::Level>(LOG_LEVEL_VERBOSE, LOG4CXX_STR("VERBOSE"), 7);
  log4cxx::LevelPtr trace = log4cxx::Level::getTrace();
  log4cxx::LevelPtr debug = log4cxx::Level::getDebug();
  log4cxx::LevelPtr info = log4cxx::Level::getInfo();
  log4cxx::LevelPtr warn = log4cxx::Level::getWarn();
  log4cxx::LevelPtr error = log4cxx::Level::getError();
  log4cxx::LevelPtr fatal = log4cxx::Level::getFatal();
};

const Levels& AllLevels() {
  static const Levels levels;
  return levels;
}

}  // namespace

const log4cxx::LevelPtr& EngineLevel(int32_t kitLevel) {
  const Levels& levels = AllLevels();
  if (kitLevel >= LOG_LEVEL_FATAL) return levels.fatal;
  if (kitLevel >= LOG_LEVEL_ERROR) return levels.error;
  if (kitLevel >= LOG_LEVEL_WARN) return levels.warn;
  if (kitLevel >= LOG_LEVEL_INFO) return levels.info;
  if (kitLevel >= LOG_LEVEL_DEBUG) return levels.debug;
  if (kitLevel >= LOG_LEVEL_TRACE) return levels.trace;
  if (kitLevel >= LOG_LEVEL_VERBOSE) return levels.verbose;
  return levels.all;
}

int32_t KitLevel(const log4cxx::LevelPtr& engineLevel) {
  if (!engineLevel) return LOG_LEVEL_DEBUG;  // the engine's own default
  const int value = engineLevel->toInt();
  if (value == log4cxx::Level::ALL_INT) return LOG_LEVEL_VERBOSE;
  if (value == log4cxx::Level::OFF_INT) return INT32_MAX;
  return value;
}

}  // namespace lmxlog
