// Core: start-up and shutdown of the runtime, the log dispatcher, fatal exits.
// coreInit brings up the process-wide singletons (first call only);
// coreShutdown takes them down (last matching call only).
#pragma once

#include <cstdint>

#include "Delegate.h"
#include "String.h"

void coreInit(const char* logFileName = nullptr);
void coreShutdown();
