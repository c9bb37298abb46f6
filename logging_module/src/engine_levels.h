// engine_levels.h: the kit's logging levels on the engine's levels, both ways.
//
// The two scales share their numbers from TRACE (5000) to FATAL (50000). VERBOSE
// (2500) has no engine level of its own and gets one named "VERBOSE"; a properties
// file enables it with the engine's "ALL". A number between two kit levels is
// logged at the kit level below it.
#pragma once

#include <log4cxx/level.h>

#include <cstdint>

namespace lmxlog {

// The engine level a kit level is logged and filtered at.
const log4cxx::LevelPtr& EngineLevel(int32_t kitLevel);

// The kit level of an engine threshold: the same number, except that "ALL" (every
// message passes) is VERBOSE and "OFF" is the largest level (nothing passes).
int32_t KitLevel(const log4cxx::LevelPtr& engineLevel);

}  // namespace lmxlog
