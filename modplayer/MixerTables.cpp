// MixerTables: the module mixer's lookup tables.
#include "modplayer/MixerTables.h"

#include <cmath>

uint16_t signedByteToSample[256];
uint16_t unsignedByteToSample[256];
uint32_t squareRootCurve[4096];

static bool fillMixerTables() {
    for (uint32_t i = 0; i < 256; ++i)
        signedByteToSample[i] = uint16_t(i * 256);
    for (uint32_t i = 0; i < 256; ++i)
        unsignedByteToSample[i] = signedByteToSample[i ^ 128];
    for (uint32_t i = 0; i < 4096; ++i)
        squareRootCurve[i] = uint32_t(std::sqrt(i / 4095.0) * 16777215.0 + 0.5);  // truncation is floor here
    return true;
}

void buildMixerTables() {
    // A function-local static is initialised exactly once, even when the
    // audio start-up and a loader on another thread get here together.
    static const bool built = fillMixerTables();
    (void)built;
}
