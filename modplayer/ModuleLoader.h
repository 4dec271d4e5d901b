// ModuleLoader: loadModule picks the format loader for a stream; the format
// loaders themselves are entered through it or directly. Used by whatever
// plays modules, and by the tests and fuzz targets.
#pragma once

#include <cstdint>

#include "core/Stream.h"
#include "modplayer/Module.h"

namespace mod {

// formatType: 0 automatic (XM, then S3M, then MOD), 2 MOD, 3 S3M, 4 XM,
// 5 unload (reset and fail). `variant` is the playback mode to store; 0
// lets the loader choose by layout.
bool loadModule(Module& module, Stream& stream, int32_t formatType, int32_t variant);

bool loadMod(Module& module, Stream& stream, int32_t variant);
bool loadS3m(Module& module, Stream& stream, int32_t variant);
bool loadXm(Module& module, Stream& stream, int32_t variant);

}  // namespace mod
