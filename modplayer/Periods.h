// Periods: the pitch arithmetic of the three period systems, for the
// sequencer and its effects: note to period (with finetune, C4 speed or
// relative note already folded into the note), period to frequency, and
// period back to note (arpeggio, glissando).
//
// A period is a number that falls as the pitch rises. Every system counts in
// units fine enough that a ProTracker slide of 1 is stepUnits() units:
//   Amiga (MOD, XM with the Amiga table): quarter Amiga periods, note 48 = 1712;
//     frequency = clock / period, PAL clock for MOD, 8363 * 1712 for XM; 4 a step;
//   ST3 (S3M): the same quarter periods scaled by 8363 / C4 speed, counted
//     in sixteenths (64 a step) so that a pitch in whole hertz, as Impulse
//     Tracker keeps it, has a period close to it;
//   linear (XM): 64 units a semitone, note 48 = 4608 = 8363 Hz; 4 a step.
#pragma once

#include <cstdint>

#include "modplayer/Module.h"

namespace mod {

class Periods {
public:
    enum Kind : uint8_t { Amiga, St3, Linear };

    // The system a module plays with, and the range its slides stay within.
    static Periods forModule(const Module& module);

    Kind kind() const { return system; }
    // Period units in one ProTracker slide step.
    int32_t stepUnits() const { return system == St3 ? 4 * st3Fraction : 4; }
    static constexpr int32_t st3Fraction = 16;  // ST3 periods count sixteenths

    // Period of `note` (0..127) with `finetune` in 1/128 semitone (Amiga and
    // linear) or at `c4Speed` Hz (ST3). 0 for notes the system cannot play.
    int32_t notePeriod(int32_t note, int32_t finetune, int32_t c4Speed) const;

    // Lowest note whose period is not above `period` (the note at or just
    // above the pitch), with the same finetune or C4 speed.
    int32_t noteAtOrAbove(int32_t period, int32_t finetune, int32_t c4Speed) const;

    // Frequency in Hz with 16 fractional bits; 0 for period 0 (silence).
    uint64_t frequency(int32_t period) const;

    // Slides stay within [minimum, maximum]. ST3 lets a slide take the
    // period below its minimum (frequency() plays it at the minimum) and
    // cuts the note when it reaches 0.
    int32_t clamp(int32_t period) const;
    int32_t minimum() const { return lowest; }
    int32_t maximum() const { return highest; }

private:
    int32_t st3NotePeriod(int32_t note, int32_t c4Speed) const;
    int32_t st3NoteAtOrAbove(int32_t period, int32_t c4Speed) const;

    Kind system = Amiga;
    bool equalTempered = false;  // S3M by Impulse Tracker: notes at C4 speed * 2^(semitones / 12) Hz
    uint32_t clock = 0;  // Amiga and ST3: quarter-period clock in Hz
    int32_t lowest = 1;
    int32_t highest = 1;
};

}  // namespace mod
