// VectorMixLoops: AVX2 versions of the steady loops for mono samples (no
// ramp), the ones that carry nearly all of a song's frames. Eight output
// frames a step, with exactly the scalar loop's arithmetic, so they give
// the same output bit for bit. Used by the Mixer's loop table when the
// processor has AVX2.
#pragma once

#include <cstdint>

#include "modplayer/MixStretch.h"

namespace mod {

// The vector loop for mono samples at `outChannels` (1, 2), or null when
// this processor (or build) has none.
MixLoop vectorMixLoop(int32_t outChannels, bool interpolate);

}  // namespace mod
