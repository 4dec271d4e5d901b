// Core: start-up and shutdown of the runtime, fatal exits and assertions.
// coreInit brings up the process-wide singletons (only the call that moves
// the init counter from 0 to 1 acts); coreShutdown takes them down (only the
// call that brings it back to 0). Nested pairs are allowed.
#pragma once

#include <cstdint>

#include "core/String.h"

void coreInit(const char* logFileName = nullptr);
void coreShutdown();

// Hands the message (if any) to the log listeners, then exit(status).
[[noreturn]] void fatalExit(const char* message, int status);
// "Assertion failed: %s at line %d in file %s", then fatalExit.
[[noreturn]] void assertFailed(const char* expression, const char* file, int line, int status);

#define OXA_ASSERT(expression) \
    ((expression) ? (void)0 : assertFailed(#expression, __FILE__, __LINE__, 1))

uint32_t physicalCores();
uint32_t logicalCores();
const String& exeDir();   // the executable's folder with a trailing slash, or empty
const String& baseDir();  // base for relative runtime files such as the log file
uint32_t codePage();

// The code page a locale name selects: 5 for ".1250", 4 for ".1252", else 1.
uint32_t codePageForLocale(const char* localeName);
