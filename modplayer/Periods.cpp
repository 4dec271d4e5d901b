// Periods: note, period and frequency conversions over the player tables.
#include "modplayer/Periods.h"

#include <algorithm>
#include <cmath>

#include "modplayer/PlayerTables.h"

namespace mod {

namespace {

// Quarter-period clocks: PAL Paula (3546895 Hz) for MOD, and the 8363 Hz at
// period 1712 that ST3 and the XM Amiga table are built on.
constexpr uint32_t palClock = 3546895 * 4;
constexpr uint32_t c4Clock = 8363 * 1712;
constexpr int32_t middleC4Speed = 8363;

// ST3's pitch range: slides stop at the longest period, and a pitch above
// the shortest plays at the shortest. Impulse Tracker keeps the pitch in
// hertz and has no such range: periods run from 1 to that of 1 Hz.
constexpr int32_t st3Fraction = Periods::st3Fraction;
constexpr int32_t st3Shortest = 64 * st3Fraction;
constexpr int32_t st3Longest = 32767 * st3Fraction;
constexpr int32_t hertzShortest = 1;
constexpr int32_t hertzLongest = int32_t(c4Clock) * st3Fraction;

// ProTracker's slide limits (B-3 and C-1), in quarter periods. They apply
// when every note of a module lies within its three octaves (notes 36..71).
constexpr int32_t proTrackerLowest = 113 * 4;
constexpr int32_t proTrackerHighest = 856 * 4;

bool notesWithinProTrackerRange(const Module& module) {
    for (const ModulePattern& pattern : module.patterns)
        for (const PatternRow& row : pattern)
            for (const PatternCell& cell : row)
                if (cell.note != noNote && (cell.note < 36 || cell.note > 71))
                    return false;
    return true;
}

uint32_t finetuneFactor(int32_t finetune) {
    return finetuneFactors[std::clamp(finetune, -128, 127) + 128];
}

int32_t validC4Speed(int32_t c4Speed) { return c4Speed > 0 ? c4Speed : middleC4Speed; }

// Highest note whose table period is at most `period`, in a table that falls
// with the note; `sorted` is the same table in ascending order.
int32_t noteOfTablePeriod(const uint16_t* sorted, int64_t period) {
    const uint16_t* above = std::upper_bound(sorted, sorted + noteCount, period,
                                             [](int64_t p, uint16_t entry) { return p < entry; });
    int32_t atOrBelow = int32_t(above - sorted) - 1;
    return atOrBelow < 0 ? noteCount - 1 : noteCount - 1 - atOrBelow;
}

}  // namespace

Periods Periods::forModule(const Module& module) {
    Periods periods;
    if (module.formatType == FormatXm && !module.usesAmigaPeriods) {
        periods.system = Linear;
        periods.lowest = 1;
        periods.highest = linearPeriodCount - 1;
        return periods;
    }
    periods.system = module.formatType == FormatS3m ? St3 : Amiga;
    periods.clock = module.formatType == FormatMod ? palClock : c4Clock;
    periods.lowest = amigaPeriods[noteCount - 1];
    periods.highest = amigaPeriods[0];
    if (periods.system == St3) {
        periods.equalTempered = module.isImpulseTrackerS3m();
        periods.lowest = periods.equalTempered ? hertzShortest : st3Shortest;
        periods.highest = periods.equalTempered ? hertzLongest : st3Longest;
    }
    if (module.formatType == FormatMod && notesWithinProTrackerRange(module)) {
        periods.lowest = proTrackerLowest;
        periods.highest = proTrackerHighest;
    }
    return periods;
}

int32_t Periods::notePeriod(int32_t note, int32_t finetune, int32_t c4Speed) const {
    if (note < 0 || note >= noteCount)
        return 0;
    switch (system) {
    case Linear:
        return std::max(int32_t(linearPeriods[note]) - finetune / 2, 1);
    case St3:
        return st3NotePeriod(note, validC4Speed(c4Speed));
    case Amiga:
        break;
    }
    uint32_t factor = finetuneFactor(finetune);
    return int32_t((uint64_t(amigaPeriods[note]) * 65536 + factor / 2) / factor);
}

int32_t Periods::noteAtOrAbove(int32_t period, int32_t finetune, int32_t c4Speed) const {
    switch (system) {
    case Linear:
        return noteOfTablePeriod(linearPeriodsSorted, int64_t(period) + finetune / 2);
    case St3:
        return st3NoteAtOrAbove(period, validC4Speed(c4Speed));
    case Amiga:
        break;
    }
    // Rounded back to the table's scale, so a period made by notePeriod maps
    // to its own note again.
    return noteOfTablePeriod(amigaPeriodsSorted, (int64_t(period) * finetuneFactor(finetune) + 32768) >> 16);
}

uint64_t Periods::frequency(int32_t period) const {
    if (period <= 0)
        return 0;
    if (system == Linear) {
        // Beyond the table each 768 units halve the frequency again.
        int32_t octaves = period < linearPeriodCount ? 0 : (period - linearPeriodCount) / 768 + 1;
        return (uint64_t(linearFrequency[period - 768 * octaves]) << 16) >> octaves;
    }
    if (system == St3)
        return (uint64_t(clock) * st3Fraction << 16) / uint32_t(clamp(period));
    return (uint64_t(clock) << 16) / uint32_t(period);
}

// ST3 scales its octave-0 period to the note's octave and C4 speed in one
// step, keeping the bits that a table of rounded periods for the higher
// octaves would lose. Impulse Tracker plays the note at C4 speed times a
// power of 2 in whole hertz; the period is the nearest to that pitch.
// Periods past the longest play as the longest (frequency()).
int32_t Periods::st3NotePeriod(int32_t note, int32_t c4Speed) const {
    if (!equalTempered) {
        int64_t period = int64_t(amigaPeriods[note % 12]) * middleC4Speed / (int64_t(c4Speed) << (note / 12));
        return int32_t(std::min<int64_t>(period * st3Fraction, highest));
    }
    double hertz = std::floor(c4Speed * std::exp2((note - 48) / 12.0));
    if (hertz < 1)
        return 0;
    return int32_t(std::min(double(c4Clock) * st3Fraction / hertz + 0.5, double(highest)));
}

// The table of ST3's rounded periods gives the note to a semitone; the
// periods the notes really have settle it.
int32_t Periods::st3NoteAtOrAbove(int32_t period, int32_t c4Speed) const {
    int64_t scale = int64_t(middleC4Speed) * st3Fraction;
    int32_t note = noteOfTablePeriod(amigaPeriodsSorted, (int64_t(period) * c4Speed + scale / 2) / scale);
    auto atOrAbove = [&](int32_t n) {
        int32_t notePeriod = st3NotePeriod(n, c4Speed);
        return notePeriod > 0 && notePeriod <= period;
    };
    while (note > 0 && atOrAbove(note - 1))
        --note;
    while (note < noteCount - 1 && !atOrAbove(note))
        ++note;
    return note;
}

int32_t Periods::clamp(int32_t period) const { return std::clamp(period, lowest, highest); }

}  // namespace mod
