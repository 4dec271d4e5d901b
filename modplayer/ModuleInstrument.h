// ModuleInstrument: a named instrument that maps notes onto samples of the
// module, with its volume and panning envelopes. Filled by the loaders.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/String.h"
#include "modplayer/Envelope.h"

namespace mod {

struct ModuleInstrument {
    String name;
    Array<uint16_t> sampleIndices;    // into Module::samples
    uint8_t noteToSample[128] = {};   // note -> position in sampleIndices
    Envelope volumeEnvelope;
    Envelope panningEnvelope;
};

}  // namespace mod
