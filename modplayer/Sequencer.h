// Sequencer: plays one sub-song of a Module tick by tick without producing
// sound: it reads each row's cells on the row's first tick, applies the
// effects on every tick, moves through rows and orders, and leaves in each
// Channel's `output` what the mixer should play. ModulePlayer drives it and
// mixes; subsongDuration runs it row by row; tests inspect its channels.
//
// Where things live:
//   Sequencer.cpp  rows, orders, ticks, the song's end;
//   Notes.cpp      instruments, notes, sample starts, the per-tick output;
//   Effects.cpp    the effect decoding of MOD, with the ProTracker effects,
//                  the song-moving effects of every format (startFlowEffect)
//                  and the building blocks the formats share;
//   S3mEffects.cpp every effect of an S3M module, by ST3's rules (or
//                  Impulse Tracker's, for the S3M files it saved);
//   XmNotes.cpp, XmEffects.cpp, XmInstrument.cpp  XM (below).
//
// S3M's effects that time or move the song (A, T, SBx, SEx, S6x via
// `extraTicks`, T's slides via `tempoSlide`) start in startS3mFlowEffect,
// which startFlowEffect asks first, so that runToEnd sees them; they act
// only while `rowRepeat` is 0 (a pattern-delay repeat calls them again).
//
// XM plays by FT2's rules in files of its own: XmNotes.cpp takes each row's
// cells (notes, instruments, key off, note delay), XmEffects.cpp every
// effect and volume-column command, XmInstrument.cpp the envelopes, fadeout
// and auto-vibrato once per tick. Only the effects that time or move the
// song (B, D, E6x, EEx, F) stay shared in startFlowEffect, with FT2's
// choices there: F00 ends the song, loop rows survive pattern changes, and
// a pattern that simply ends hands its last loop's start row to the next.
//
// Module::channelMap plays no part: every pattern channel drives its own
// voice (and its fade-out twin), so the map's instrument numbers per
// channel, which the loaders record, have nothing to choose.
//
// The song ends the first time it would play an (order, row) it has already
// played in this pass. Rows replayed by a running pattern loop do not count,
// unless the loop state itself repeats (a loop that never ends); a pass also
// ends after `maxLoopedRows` replayed rows. Running past the song length,
// order 255 (modes 4 and 6) and empty order lists end it as well. With
// looping on, a revisit continues where the song went (clearing the
// history); the other ends continue at the restart position (sub-song 0) or
// at the sub-song's start.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "modplayer/Channel.h"
#include "modplayer/Module.h"
#include "modplayer/Periods.h"
#include "modplayer/RowHistory.h"

namespace mod {

class Sequencer {
public:
    Sequencer() = default;
    Sequencer(const Sequencer&) = delete;
    Sequencer& operator=(const Sequencer&) = delete;

    // Prepares sub-song `subsong` (index into module.subsongs) at its first
    // row. Borrows the module. False for a missing sub-song or no memory.
    bool start(const Module& module, int32_t subsong);
    void setLooping(bool on) { looping = on; }

    // Plays the next tick and fills every channel's output. False when the
    // song has ended: then nothing was played.
    bool playTick();

    // Frames from here to the song's end at `sampleRate`, stepping whole rows
    // and applying only the effects that move or time the song. Ends the
    // song; ignores looping.
    int64_t runToEnd(uint32_t sampleRate);

    // Output frames of one tick at `tempo`: rate * 2.5 / tempo rounded down
    // to whole frames, as the trackers' own players do, so that at uneven
    // tempos notes fall (and songs end) on the same frames as theirs.
    static int32_t framesPerTick(uint32_t sampleRate, int32_t tempo) {
        return int32_t(uint64_t(sampleRate) * 5 / (2 * uint64_t(tempo)));
    }

    bool ended() const { return songEnded; }
    int32_t orderPosition() const { return order; }
    int32_t row() const { return rowIndex; }
    int32_t tick() const { return tickInRow; }
    int32_t speed() const { return ticksPerRow; }
    int32_t tempo() const { return beatsPerMinute; }
    int32_t globalVolume() const { return globalLevel; }  // 0..64
    int32_t channelCount() const { return channels.count(); }
    const Channel& channel(int32_t index) const { return channels[index]; }

    // Replayed rows a pass may spend in pattern loops before it is ended.
    static constexpr int32_t maxLoopedRows = 1 << 16;

private:
    // Sequencer.cpp: rows, orders and the song's end.
    void readRow(bool flowOnly);
    int64_t rowFrames(uint32_t sampleRate);
    void repeatRow();
    void playLaterTick();
    void finishTick();
    void advanceRow();
    bool enterOrder(int32_t position, int32_t startRow);
    void arriveAtRow();
    void endPass(bool revisited);
    bool loopRunning() const;
    uint32_t loopDigest() const;
    const PatternCell& cellAt(int32_t channelIndex) const;
    bool isXm() const { return module->formatType == FormatXm; }
    bool isS3m() const { return module->formatType == FormatS3m; }
    bool isMod() const { return module->formatType == FormatMod; }

    // Notes.cpp: instruments, notes and the output of a tick.
    void playCell(Channel& channel, const PatternCell& cell);
    void selectInstrument(Channel& channel, int32_t number, int32_t note);
    void startNote(Channel& channel, const PatternCell& cell);
    const ModuleSample* sampleFor(const ModuleInstrument& instrument, int32_t note) const;
    void triggerSample(Channel& channel, uint32_t frame);
    void swapSample(Channel& channel);
    void switchSample(Channel& channel);
    void startAtOffset(Channel& channel, uint32_t frame);
    void cutNote(Channel& channel);
    void keyOff(Channel& channel);
    void computeOutput(Channel& channel);

    // Effects.cpp: the shared (ProTracker) codes and the volume column.
    void startEffect(Channel& channel);
    void tickEffect(Channel& channel);
    bool startFlowEffect(Channel& channel, uint8_t effect, uint8_t parameter);
    void startExtended(Channel& channel, uint8_t command, uint8_t value);
    void tickExtended(Channel& channel, uint8_t command, uint8_t value);
    void startVolumeColumn(Channel& channel);
    void tickVolumeColumn(Channel& channel);
    void slideVolume(Channel& channel, uint8_t parameter);
    void slidePeriod(Channel& channel, int32_t delta);
    void tonePortamento(Channel& channel);
    void applyVibrato(Channel& channel, bool moveOn = true);
    void applyTremolo(Channel& channel, bool moveOn = true);
    void applyArpeggio(Channel& channel, uint8_t parameter);
    uint8_t remembered(uint8_t& memory, uint8_t parameter) const;

    // S3mEffects.cpp: every effect of an S3M module, by ST3's rules.
    void startS3mEffect(Channel& channel);
    void tickS3mEffect(Channel& channel);
    bool startS3mFlowEffect(Channel& channel, uint8_t effect, uint8_t parameter);
    bool startS3mFlowExtended(uint8_t command, uint8_t value);
    void startS3mExtended(Channel& channel, uint8_t command, uint8_t value);
    void slideS3mPeriod(Channel& channel, int32_t delta);
    void tonePortamentoS3m(Channel& channel);
    void retriggerS3mNote(Channel& channel);
    static int32_t slidTempo(int32_t tempo, int32_t slide);
    static int32_t retriggeredLevel(int32_t level, uint8_t change);

    // XmNotes.cpp: FT2's notes, instruments and key off.
    void startXmRow(Channel& channel, const PatternCell& cell);
    void playXmCell(Channel& channel, const PatternCell& cell);
    void playXmDelayedCell(Channel& channel);
    int32_t xmNoteWithinRange(const Channel& channel, const PatternCell& cell) const;
    void triggerXmNote(Channel& channel, int32_t note, uint8_t effect, uint8_t parameter);
    void startXmInstrument(Channel& channel);
    void restoreXmSampleDefaults(Channel& channel);
    void aimXmPortamento(Channel& channel, int32_t note, int32_t instrumentNumber);
    void releaseXmKey(Channel& channel);
    const ModuleInstrument* xmInstrument(int32_t number) const;

    // XmEffects.cpp: every XM effect and volume-column command.
    void startXmEffect(Channel& channel);
    void tickXmEffect(Channel& channel);
    void tickXmChannel(Channel& channel);
    void startXmExtended(Channel& channel, uint8_t command, uint8_t value);
    void tickXmExtended(Channel& channel, uint8_t command, uint8_t value);
    void startXmVolumeColumn(Channel& channel);
    void tickXmVolumeColumn(Channel& channel);
    void slideXmPeriod(Channel& channel, int32_t delta);
    void slideXmVolume(Channel& channel, uint8_t parameter);
    void xmTonePortamento(Channel& channel);
    void xmArpeggio(Channel& channel, uint8_t parameter);
    void xmTremolo(Channel& channel, bool moveOn);
    void xmVibrato(Channel& channel, bool moveOn);
    void xmTremor(Channel& channel, uint8_t parameter);
    void xmMultiRetrigger(Channel& channel, uint8_t parameter, bool firstTick);
    void setXmEnvelopePosition(Channel& channel, uint8_t position);
    int32_t xmNearestNotePeriod(const Channel& channel, int32_t period, int32_t semitones) const;

    // XmInstrument.cpp: envelopes, fadeout and auto-vibrato, once per tick.
    void advanceXmInstrument(Channel& channel);

    const Module* module = nullptr;
    Array<Channel> channels;
    Periods periods;
    RowHistory history;

    int32_t startPosition = 0;  // the sub-song's first order position
    int32_t restartPosition = 0;
    int32_t order = 0;
    int32_t pattern = 0;
    int32_t rowIndex = 0;
    int32_t rowCount = 0;
    int32_t tickInRow = 0;
    int32_t ticksPerRow = 6;
    int32_t beatsPerMinute = 125;
    int32_t globalLevel = 64;

    // Pattern delay: repeats of the current row, and which repeat plays.
    int32_t rowRepeats = 0;
    int32_t rowRepeat = 0;
    int32_t extraTicks = 0;  // S3M S6x: ticks added to each repeat of the row
    int32_t tempoSlide = 0;  // S3M T0x / T1x: added to the tempo on each tick but the first

    // Where the row's effects send the song next; -1 where they do not.
    int32_t jumpOrder = -1;
    int32_t breakRow = -1;
    int32_t loopJumpRow = -1;
    int32_t requestedDelay = -1;

    // XM: the row the next pattern starts at when the current one simply
    // ends. FT2 leaves a pattern loop's start row here (and plays the next
    // pattern from it); breaks and jumps name their own row.
    int32_t xmNextPatternRow = 0;

    int32_t loopedRows = 0;
    bool impulseTrackerS3m = false;  // S3M effects by Impulse Tracker's rules (S3mEffects.cpp)
    bool looping = false;
    bool songEnded = true;
};

}  // namespace mod
