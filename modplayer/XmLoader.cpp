// loadXm: the XM loader's entry point. XM files are not read yet, so it
// refuses every stream without touching it; automatic detection then goes
// on to the next format.
#include "modplayer/ModuleLoader.h"

namespace mod {

bool loadXm(Module&, Stream&, int32_t) {
    return false;
}

}  // namespace mod
