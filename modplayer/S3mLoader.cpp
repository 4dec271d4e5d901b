// loadS3m: the S3M loader's entry point. S3M files are not read yet, so it
// refuses every stream without touching it; automatic detection then goes
// on to the next format.
#include "modplayer/ModuleLoader.h"

namespace mod {

bool loadS3m(Module&, Stream&, int32_t) {
    return false;
}

}  // namespace mod
