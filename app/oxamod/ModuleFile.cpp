// ModuleFile: the file is read through a fixed-size buffer, never slurped, so
// what loading costs beyond the module itself does not grow with the file;
// detection rewinds the buffered stream between trials.
#include "app/oxamod/ModuleFile.h"

#include <cstdio>

#include "core/BufferedStream.h"
#include "core/FileStream.h"
#include "modplayer/ModuleLoader.h"

namespace {
// Loaders read headers and sample data in pieces of a few bytes to a few
// hundred KiB; 64 KiB keeps the small reads off the file system.
constexpr int32_t ReadBufferBytes = 65536;
}  // namespace

bool loadModuleFile(const String& name, mod::Module& module) {
    FileStream file(name, FileRead, 7);
    if (!file.isOpen()) {
        std::fprintf(stderr, "failed to open %s\n", name.c_str());
        return false;
    }
    BufferedStream buffered(&file, ReadBufferBytes);
    if (!mod::loadModule(module, buffered, mod::FormatAutomatic, 0)) {
        module.reset();
        std::fprintf(stderr, "not a module: %s\n", name.c_str());
        return false;
    }
    return true;
}
