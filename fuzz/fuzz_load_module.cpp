// fuzz_load_module: loadModule on arbitrary bytes, once per input, with the
// format (automatic detection or one loader) and the variant taken from the
// input's length, so every loader is entered directly as well as by trial.
#include <cstddef>
#include <cstdint>

#include "core/MemoryStream.h"
#include "modplayer/ModuleLoader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 22))
        return 0;
    static constexpr int32_t formats[] = {mod::FormatAutomatic, mod::FormatMod, mod::FormatS3m, mod::FormatXm};
    MemoryStream stream(data, int32_t(size));
    mod::Module module;
    mod::loadModule(module, stream, formats[size % 4], int32_t(size / 4 % 7));
    return 0;
}
