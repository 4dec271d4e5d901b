// PatternCell, PatternRow, ModulePattern: the note grid of a module.
// Filled by the format loaders, walked by the sub-song scan and the sequencer.
#pragma once

#include <cstdint>

#include "core/Array.h"

namespace mod {

constexpr uint8_t noNote = 255;

// One channel's entry in one row. Empty: note 255, everything else 0.
struct PatternCell {
    uint8_t note = noNote;  // semitones, C at multiples of 12; note 48 is Amiga period 428
    uint8_t instrument = 0; // 1-based; 0 = none
    uint8_t volume = 0;     // volume column; 0 = none
    uint8_t effect = 0;
    uint8_t parameter = 0;

    bool isEmpty() const {
        return note == noNote && instrument == 0 && volume == 0 && effect == 0 && parameter == 0;
    }
};
static_assert(sizeof(PatternCell) == 5, "cells are packed five-byte records");

// A row holds exactly channelCount cells once loaded; a pattern may have no rows.
using PatternRow = Array<PatternCell>;
using ModulePattern = Array<PatternRow>;

}  // namespace mod
