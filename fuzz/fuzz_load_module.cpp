// fuzz_load_module: loadModule on arbitrary bytes, with automatic detection
// and as MOD, under a variant taken from the input's length.
#include <cstddef>
#include <cstdint>

#include "core/MemoryStream.h"
#include "modplayer/ModuleLoader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 22))
        return 0;
    for (int32_t format : {mod::FormatAutomatic, mod::FormatMod}) {
        MemoryStream stream(data, int32_t(size));
        mod::Module module;
        mod::loadModule(module, stream, format, int32_t(size % 7));
    }
    return 0;
}
