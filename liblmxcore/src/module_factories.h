// module_factories.h: the factories that the module export table lists, one per wing.
#pragma once

#include "audio/audio_converter.h"
#include "image/coreaccel_manager.h"
#include "scheduler/corescheduler.h"
