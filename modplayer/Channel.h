// Channel: the state of one pattern channel as the sequencer plays it: what
// instrument and sample it plays, its pitch and volume before and after this
// tick's modulation, the effect memories, and what the mixer should do this
// tick. Owned by the Sequencer; the effects change it; ModulePlayer reads
// `output` once per tick; tests read it through Sequencer::channel.
//
// XM instruments keep their envelope, fadeout and auto-vibrato state in
// `xm`; Sequencer::computeOutput combines what it yields (`envelopeVolume`,
// `envelopePanning`, `fadeoutVolume`, `autoVibratoOffset`) with the rest.
// Effect memories live in `memory`; add fields there rather than reusing
// another effect's byte unless the tracker shares it.
#pragma once

#include <algorithm>
#include <cstdint>

#include "modplayer/ModuleInstrument.h"
#include "modplayer/ModuleSample.h"
#include "modplayer/Oscillator.h"
#include "modplayer/PatternCell.h"

namespace mod {

// What the mixer does with the channel's voice after this tick.
struct ChannelOutput {
    bool trigger = false;            // start `sample` afresh at `startFrame`
    bool stop = false;               // silence the voice (note cut, empty sample)
    bool swap = false;               // at its loop end the voice goes on with `sample`'s loop
                                     // (null: it stops there), as Paula does in MOD
    bool switchNow = false;          // the voice goes on at once with `sample`, from where it is
    const SampleData* sample = nullptr;
    uint32_t startFrame = 0;
    uint64_t frequency = 0;          // Hz with 16 fractional bits; 0 = silent
    int32_t volume = 0;              // 0..65536: everything but the panning
    uint8_t panning = 128;           // 0 left .. 255 right
    bool smooth = false;             // XM envelope: move to the new volume over the whole tick
};

// Parameters an effect reuses when its own is 0 (where the tracker does so).
struct EffectMemory {
    uint8_t sampleOffset = 0;     // 9xx
    uint8_t portamentoUp = 0;     // XM 1xx
    uint8_t portamentoDown = 0;   // XM 2xx
    uint8_t tonePortamento = 0;   // 3xx (all formats)
    uint8_t volumeSlide = 0;      // XM Axy (and the slide half of 5xy, 6xy)
    uint8_t finePortamentoUp = 0;    // XM E1x
    uint8_t finePortamentoDown = 0;  // XM E2x
    uint8_t fineVolumeUp = 0;        // XM EAx
    uint8_t fineVolumeDown = 0;      // XM EBx
    uint8_t extraFineUp = 0;         // XM X1x
    uint8_t extraFineDown = 0;       // XM X2x
    uint8_t panningSlide = 0;        // XM Pxy
    uint8_t globalVolumeSlide = 0;   // XM Hxy
    uint8_t retriggerTicks = 0;      // XM Rxy: y
    uint8_t retriggerVolume = 0;     // XM Rxy: x
    uint8_t tremor = 0;              // XM Txy
};

// FT2's instrument playback of one channel: which instrument the envelopes
// follow, where they stand, and the counters of the effects that keep time
// across rows. Reset by starting an instrument (XmNotes.cpp).
struct XmChannelState {
    int32_t instrumentNumber = 0;                   // last one named (1..128), even without a note
    int32_t lastNote = -1;                          // last pattern note played (retriggers, delays)
    int32_t relativeNote = 0;                       // the playing sample's (portamento targets)
    uint8_t portamentoDirection = 0;                // 0 none, 1 period up, 2 period down
    const ModuleInstrument* playing = nullptr;      // the last note's: envelopes, fadeout, auto-vibrato
    uint8_t sampleVolume = 0;                       // the last note's sample defaults, which an
    uint8_t samplePanning = 128;                    // instrument number alone restores
    bool panningSustainHeld = false;  // FT2 never releases a panning sustain reached before key off
    int32_t autoVibratoPosition = 0;  // 256 to a cycle
    int32_t autoVibratoDepth = 0;     // depth << 8, grown by the sweep
    int32_t autoVibratoSweep = 0;     // depth << 8 added per tick while sweeping; 0 when done
    int32_t retriggerCount = 0;       // ticks since the last Rxy retrigger
    int32_t tremorCount = 0;          // ticks left in the current Txy phase
    bool tremorOn = true;             // Txy phase: sound (true) or silence
    uint8_t previousEffect = 0;       // the last row's effect (a running tremor goes on)
    uint8_t rowNote = noNote;         // the row's own note and instrument number (Rxy's first tick)
    uint8_t rowInstrument = 0;
};

// S3M: the effect state kept per channel beyond the memories above.
struct S3mEffectState {
    // ST3: every effect's last nonzero parameter; D, E, F, I, J, K, L, Q, R
    // and S read 00 as it.
    uint8_t lastParameter = 0;
    // Impulse Tracker keeps a memory per effect instead (R keeps its speed
    // and depth in the oscillator, as H does).
    uint8_t volumeSlide = 0;     // D, K, L
    uint8_t portamento = 0;      // E, F
    uint8_t tremor = 0;          // I
    uint8_t arpeggio = 0;        // J
    uint8_t retrigger = 0;       // Q
    uint8_t extended = 0;        // S
    // Both.
    uint8_t tempo = 0;           // Txx: the last T parameter (T00 repeats it)
    uint8_t globalVolumeSlide = 0;  // Wxy
    uint8_t tremorTicks = 0;     // Ixy: where in the on-off cycle the channel is
    int32_t retriggerTicks = 0;  // Qxy: ST3 counts ticks of Q since the note, Impulse Tracker counts down
    int32_t panningOffset = 0;   // Yxy: this tick's panbrello change to the panning
    // Glissando: the period the tone portamento moves, and the semitone at
    // or above it that plays (and stays once the slide ends).
    int32_t glissandoPeriod = 0;
    int32_t glissandoNote = 0;
};

struct Channel {
    // What plays.
    const ModuleInstrument* instrument = nullptr;  // last instrument named
    const ModuleSample* sample = nullptr;           // sample of the last note
    int32_t note = -1;        // last note, relative note included
    int32_t finetune = 0;     // 1/128 semitone (MOD, XM)
    int32_t c4Speed = 8363;   // S3M: Hz of note 48
    bool playing = false;     // a sample was started and not cut

    // Pitch: `period` is the base that slides move; `tickPeriod` is this
    // tick's pitch before vibrato (arpeggio and glissando replace it);
    // `vibratoOffset` is added on top.
    int32_t period = 0;
    int32_t tickPeriod = 0;
    int32_t vibratoOffset = 0;
    int32_t portamentoTarget = 0;
    bool glissando = false;

    // Volume 0..64 and this tick's tremolo (or tremor) change to it. XM and
    // S3M keep quarter steps on top, which the retriggers' divisions leave
    // and slides carry (the reference player keeps the volume that finely);
    // their code changes the volume through the calls below so that the
    // quarters stay right. MOD never has any.
    int32_t volume = 0;
    uint8_t volumeQuarters = 0;  // 0..3
    int32_t volumeOffset = 0;
    int32_t tremoloQuarters = 0;  // MOD and S3M tremolo: this tick's change, in quarter steps
    int32_t volumeInQuarters() const { return 4 * volume + volumeQuarters; }
    void setVolumeInQuarters(int32_t level) {
        volume = level >> 2;
        volumeQuarters = uint8_t(level & 3);
    }
    void setVolume(int32_t value) { setVolumeInQuarters(4 * value); }
    void addVolume(int32_t steps) { setVolumeInQuarters(std::clamp(volumeInQuarters() + 4 * steps, 0, 256)); }
    uint8_t panning = 128;

    Oscillator vibrato;
    Oscillator tremolo;
    Oscillator panbrello;  // S3M Yxy

    // The row's cell, kept for the effects on later ticks.
    uint8_t effect = 0;
    uint8_t parameter = 0;
    uint8_t volumeCommand = 0;
    bool noteOnRow = false;      // a note started on this row's first tick
    EffectMemory memory;
    S3mEffectState s3m;

    // Note delay: the cell waits for tick `delayTick` (0: no delay).
    PatternCell delayedCell;
    int32_t delayTick = 0;
    uint32_t lastStartFrame = 0;  // where the last note started (retrigger)
    // ProTracker moves the sample's start by every 9xx, note or not, and the
    // notes that follow start there until an instrument number reloads it
    // (Effects.cpp).
    uint32_t modSampleStart = 0;

    // Pattern loop (E6x): the row E60 marked and the repeats still to play.
    int32_t loopRow = 0;
    int32_t loopCount = 0;

    // XM instrument playback; neutral for MOD and S3M. An envelope tick of
    // -1 means the envelope has not played its first tick yet.
    bool keyOn = true;
    int32_t volumeEnvelopeTick = -1;
    int32_t panningEnvelopeTick = -1;
    int32_t envelopeVolume = 64;   // 0..64
    int32_t envelopePanning = 0;   // -128..127 around the channel panning
    int32_t fadeoutVolume = 65536; // 0..65536, falls after key off
    int32_t autoVibratoOffset = 0;  // period units, added with vibrato
    XmChannelState xm;

    ChannelOutput output;
};

}  // namespace mod
