// Envelope: the volume or panning curve of an instrument, as points in ticks.
// Filled by the S3M and XM loaders (empty for MOD); read by the sequencer.
#pragma once

#include <cstdint>

#include "core/Array.h"

namespace mod {

struct EnvelopePoint {
    uint16_t position = 0;  // ticks; points are in ascending order
    int16_t value = 0;
};

struct Envelope {
    Array<EnvelopePoint> points;
    uint8_t flags = 0;  // envelopeOn, envelopeSustain, envelopeLoop (EffectCodes.h)
    uint8_t sustainPoint = 0;
    uint8_t loopStartPoint = 0;
    uint8_t loopEndPoint = 0;

    // Value at `tick`, interpolated between points. Before the first point
    // the LAST point's value is returned, not the first's: players depend on
    // that, so keep it.
    int32_t valueAt(int32_t tick) const;
};

}  // namespace mod
