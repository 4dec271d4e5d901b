// ModuleInfo: the -i report of OxaMod, one "key: value" line per fact about
// a loaded module on standard output. Used by runOxaMod.
#pragma once

#include <cstdint>

#include "modplayer/Module.h"

// "MOD", "S3M", "XM", or "none".
const char* moduleFormatName(const mod::Module& module);

// Sample slots as the file declares them: every instrument slot for MOD
// (31 or 15) and S3M (where instrument and sample are one), every sample of
// every instrument for XM.
int32_t declaredSampleSlots(const mod::Module& module);

// Prints format, title, tracker, channels, orders, patterns, instruments,
// samples, subsongs and duration (seconds of one pass of each sub-song, in
// sub-song order, on one line). False when standard output fails.
bool printModuleInfo(const mod::Module& module);
