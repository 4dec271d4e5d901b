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
    // XM: how fast the volume fades after key off (subtracted per tick from
    // a fade level of 32768, as FT2 counts it); 0 = no fade.
    uint16_t fadeout = 0;
    // XM auto-vibrato: waveform (0 sine, 1 square, 2 ramp down, 3 ramp up),
    // ticks until full depth, depth and speed.
    uint8_t vibratoType = 0;
    uint8_t vibratoSweep = 0;
    uint8_t vibratoDepth = 0;
    uint8_t vibratoRate = 0;
};

}  // namespace mod
