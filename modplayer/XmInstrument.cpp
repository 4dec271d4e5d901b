// Sequencer XM instruments: once per tick, after the row's effects, the
// playing instrument's fadeout, volume and panning envelopes and
// auto-vibrato move on, as FT2 moves them, and leave in the channel what
// computeOutput combines (envelopeVolume, envelopePanning, fadeoutVolume,
// autoVibratoOffset).
//
// An envelope's tick moves before it is read, so the tick an instrument
// starts on reads tick 0. While the key is down the tick stops on the
// sustain point; a loop goes back to its start on reaching its end, unless
// the end is a sustain point that still holds. FT2 never releases a panning
// envelope that reached its sustain point before the key off.
#include <algorithm>
#include <cstdlib>

#include "modplayer/EffectCodes.h"
#include "modplayer/PlayerTables.h"
#include "modplayer/Sequencer.h"

namespace mod {

namespace {

// One tick on: `hold` is whether the sustain point (if any) still holds.
void stepEnvelope(const Envelope& envelope, int32_t& tick, bool hold) {
    const Array<EnvelopePoint>& points = envelope.points;
    bool sustain = (envelope.flags & envelopeSustain) != 0;
    if (tick < 0)
        tick = 0;
    else if (!(hold && sustain && tick == points[envelope.sustainPoint].position))
        ++tick;
    if ((envelope.flags & envelopeLoop) && tick == points[envelope.loopEndPoint].position) {
        bool heldAtEnd = hold && sustain && envelope.sustainPoint == envelope.loopEndPoint;
        if (!heldAtEnd)
            tick = points[envelope.loopStartPoint].position;
    }
}

bool atSustain(const Envelope& envelope, int32_t tick) {
    return (envelope.flags & envelopeSustain) && tick == envelope.points[envelope.sustainPoint].position;
}

// FT2's auto-vibrato waves, -64..64, by the instrument's type: sine
// (falling first: the pitch rises first), square, and two ramps.
int32_t autoVibratoWave(uint8_t type, int32_t position) {
    switch (type) {
    case 1:
        return position > 127 ? 64 : -64;
    case 2:
        return (((position >> 1) + 64) & 127) - 64;
    case 3:
        return ((64 - (position >> 1)) & 127) - 64;
    default:
        return -2 * waveSine256[position];
    }
}

}  // namespace

void Sequencer::advanceXmInstrument(Channel& channel) {
    XmChannelState& xm = channel.xm;
    const ModuleInstrument* instrument = xm.playing;
    channel.autoVibratoOffset = 0;
    channel.envelopeVolume = 64;
    channel.envelopePanning = 0;
    channel.output.smooth = false;
    if (!instrument)
        return;
    if (!channel.keyOn)  // FT2 fades from 32768 by the fadeout; we count twice as fine
        channel.fadeoutVolume = std::max(channel.fadeoutVolume - 2 * instrument->fadeout, 0);

    const Envelope& volume = instrument->volumeEnvelope;
    if (volume.flags & envelopeOn) {
        stepEnvelope(volume, channel.volumeEnvelopeTick, channel.keyOn);
        channel.output.smooth = true;
        channel.envelopeVolume = std::clamp(volume.valueAt(channel.volumeEnvelopeTick), 0, 64);
    }

    const Envelope& panning = instrument->panningEnvelope;
    if (panning.flags & envelopeOn) {
        stepEnvelope(panning, channel.panningEnvelopeTick, channel.keyOn || xm.panningSustainHeld);
        if (channel.keyOn && atSustain(panning, channel.panningEnvelopeTick))
            xm.panningSustainHeld = true;
        // Around the channel's panning, as far as the nearer side allows.
        int32_t swing = std::clamp(panning.valueAt(channel.panningEnvelopeTick), 0, 64) - 32;
        channel.envelopePanning = (swing * (128 - std::abs(channel.panning - 128))) >> 5;
    }

    if (instrument->vibratoDepth > 0) {
        int32_t depth = xm.autoVibratoDepth;
        if (xm.autoVibratoSweep > 0) {
            // The sweep grows the depth only while the key is down; a key
            // off before it ends leaves just one sweep step.
            depth = xm.autoVibratoSweep;
            if (channel.keyOn) {
                depth += xm.autoVibratoDepth;
                if ((depth >> 8) > instrument->vibratoDepth) {
                    depth = instrument->vibratoDepth << 8;
                    xm.autoVibratoSweep = 0;
                }
                xm.autoVibratoDepth = depth;
            }
        }
        xm.autoVibratoPosition = (xm.autoVibratoPosition + instrument->vibratoRate) & 255;
        channel.autoVibratoOffset = (autoVibratoWave(instrument->vibratoType, xm.autoVibratoPosition) * depth) >> 14;
    }
}

}  // namespace mod
