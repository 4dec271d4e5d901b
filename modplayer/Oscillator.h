// Oscillator: the low-frequency wave behind vibrato, tremolo and panbrello.
// Each channel has one per effect; the effects set its speed and depth and
// read its value once per tick. Used by the sequencer's effects.
#pragma once

#include <cstdint>

namespace mod {

struct Oscillator {
    enum Waveform : uint8_t { Sine = 0, RampDown = 1, Square = 2, Random = 3 };

    uint8_t waveform = Sine;
    bool keepsPhase = false;  // waveform code + 4: new notes do not restart the wave
    uint8_t speed = 0;        // steps of 1/64 cycle per tick
    uint8_t depth = 0;
    uint8_t position = 0;     // 256 to a cycle

    // E4x / E7x style code: low two bits the waveform, bit 2 keeps the phase.
    void setWaveform(uint8_t code) {
        waveform = code & 3;
        keepsPhase = (code & 4) != 0;
    }
    void noteStarted() {
        if (!keepsPhase)
            position = 0;
    }
    void advance() { position = uint8_t(position + speed * 4); }

    // The wave at the current position, -32..32. Positive in the first half
    // of a sine cycle, where the trackers raise the period (lower the pitch)
    // and raise the volume. The ramp rises through the cycle from its
    // middle, as ProTracker's "ramp down" vibrato does to the period.
    int32_t value() const;

    // The wave at 64 steps a cycle, -254..254: twice a table of
    // round(127 sin) (and a ramp of 4 a step), as the reference player
    // holds it; scaled by the depth and shifted down, it gives the period
    // units and volume quarters that value()'s coarser steps miss.
    int32_t fineValue() const;
    // fineValue() times `depth`, shifted down by `shift`. The trackers scale
    // the magnitude and then add or subtract it, so the wave stays symmetric.
    int32_t scaledFineValue(int32_t depth, int32_t shift) const;
};

}  // namespace mod
