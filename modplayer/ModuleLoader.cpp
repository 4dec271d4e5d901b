// loadModule: dispatch to the format loaders, with format detection by trial.
#include "modplayer/ModuleLoader.h"

namespace mod {

// Each failed trial may have moved the stream and filled the module in part.
static bool detectAndLoad(Module& module, Stream& stream, int32_t variant) {
    if (loadXm(module, stream, variant))
        return true;
    if (!stream.rewind())
        return false;
    module.reset();
    if (!stream.rewind())
        return false;
    if (loadS3m(module, stream, variant))
        return true;
    if (!stream.rewind())
        return false;
    return loadMod(module, stream, variant);
}

bool loadModule(Module& module, Stream& stream, int32_t formatType, int32_t variant) {
    switch (formatType) {
    case FormatAutomatic:
        return detectAndLoad(module, stream, variant);
    case FormatMod:
        return loadMod(module, stream, variant);
    case FormatS3m:
        return loadS3m(module, stream, variant);
    case FormatXm:
        return loadXm(module, stream, variant);
    case FormatUnload:
        module.reset();
        module.formatType = FormatNone;
        return false;
    default:
        return false;
    }
}

}  // namespace mod
