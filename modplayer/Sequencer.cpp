// Sequencer: ticks, rows and order positions, and where the song ends.
#include "modplayer/Sequencer.h"

#include <algorithm>

#include "modplayer/EffectCodes.h"
#include "modplayer/PlayerTables.h"

namespace mod {

namespace {

const PatternCell emptyCell;

int32_t longestPattern(const Module& module) {
    int32_t rows = 1;
    for (const ModulePattern& pattern : module.patterns)
        rows = std::max(rows, pattern.count());
    return rows;
}

// ST3 never plays a cell held back by SD0: a tick no row reaches.
constexpr int32_t neverTick = 1 << 16;

// A note delay holds the whole cell back until its tick.
int32_t noteDelayOf(const PatternCell& cell) {
    if (cell.effect == EffectS3mExtended && cell.parameter == S3mExtendedNoteDelay << 4)
        return neverTick;
    bool delay = (cell.effect == EffectExtended && cell.parameter >> 4 == ExtendedNoteDelay) ||
                 (cell.effect == EffectS3mExtended && cell.parameter >> 4 == S3mExtendedNoteDelay);
    return delay ? cell.parameter & 0x0F : 0;
}

}  // namespace

bool Sequencer::start(const Module& song, int32_t subsong) {
    songEnded = true;
    if (subsong < 0 || subsong >= song.subsongs.count())
        return false;
    buildPlayerTables();
    module = &song;
    channels.clear();
    if (!channels.resize(std::max(song.channelCount, 0)) || !history.reset(song.orders.count(), longestPattern(song)))
        return false;
    for (int32_t i = 0; i < channels.count(); ++i)
        channels[i].panning = i < song.channelPanning.count() ? song.channelPanning[i] : 128;
    periods = Periods::forModule(song);
    impulseTrackerS3m = song.isImpulseTrackerS3m();
    ticksPerRow = song.initialSpeed ? song.initialSpeed : 6;
    beatsPerMinute = song.initialTempo ? song.initialTempo : 125;
    globalLevel = (song.globalVolume * 64 + 127) / 255;
    startPosition = song.subsongs[subsong].startPosition;
    restartPosition = subsong == 0 ? song.restartPosition : startPosition;
    tickInRow = rowRepeat = rowRepeats = extraTicks = tempoSlide = loopedRows = xmNextPatternRow = 0;
    jumpOrder = breakRow = loopJumpRow = requestedDelay = -1;
    songEnded = false;
    if (!enterOrder(startPosition, 0))
        songEnded = true;
    else
        arriveAtRow();
    return true;
}

bool Sequencer::playTick() {
    if (songEnded)
        return false;
    for (Channel& channel : channels)
        channel.output.trigger = channel.output.stop = channel.output.swap = channel.output.switchNow = false;
    if (tickInRow == 0 && rowRepeat == 0)
        readRow(false);
    else if (tickInRow == 0 && !isXm())
        repeatRow();
    else
        playLaterTick();
    for (Channel& channel : channels) {
        if (isXm())
            advanceXmInstrument(channel);
        computeOutput(channel);
    }
    finishTick();
    return true;
}

int64_t Sequencer::runToEnd(uint32_t sampleRate) {
    looping = false;
    int64_t frames = 0;
    while (!songEnded) {
        readRow(true);
        // The repeats of a pattern delay: only what repeatRow would apply again.
        for (rowRepeat = 1; rowRepeat <= rowRepeats; ++rowRepeat)
            for (Channel& channel : channels)
                startFlowEffect(channel, channel.effect, channel.parameter);
        frames += rowFrames(sampleRate);
        tickInRow = rowRepeat = 0;
        advanceRow();
    }
    return frames;
}

// Frames of the current row and its pattern-delay repeats, each tick as long
// as playing makes it: an S3M tempo slide changes every tick but the first.
int64_t Sequencer::rowFrames(uint32_t sampleRate) {
    int32_t ticks = ticksPerRow + extraTicks;
    if (tempoSlide == 0)
        return int64_t(ticks) * (rowRepeats + 1) * framesPerTick(sampleRate, beatsPerMinute);
    int64_t frames = 0;
    for (int32_t pass = 0; pass <= rowRepeats; ++pass) {
        frames += framesPerTick(sampleRate, beatsPerMinute);
        for (int32_t tick = 1; tick < ticks; ++tick) {
            beatsPerMinute = slidTempo(beatsPerMinute, tempoSlide);
            frames += framesPerTick(sampleRate, beatsPerMinute);
        }
    }
    return frames;
}

// The row's first tick: every channel takes its cell. With `flowOnly`, only
// the effects that time or move the song are applied (duration scans).
void Sequencer::readRow(bool flowOnly) {
    jumpOrder = breakRow = loopJumpRow = requestedDelay = -1;
    extraTicks = tempoSlide = 0;
    for (int32_t i = 0; i < channels.count(); ++i) {
        Channel& channel = channels[i];
        const PatternCell& cell = cellAt(i);
        if (isXm() && !flowOnly) {
            startXmRow(channel, cell);
            continue;
        }
        channel.effect = cell.effect;
        channel.parameter = cell.parameter;
        if (flowOnly) {
            startFlowEffect(channel, cell.effect, cell.parameter);
            continue;
        }
        channel.volumeCommand = cell.volume;
        channel.noteOnRow = false;
        channel.tickPeriod = channel.period;
        channel.vibratoOffset = channel.volumeOffset = channel.tremoloQuarters = 0;
        channel.delayTick = noteDelayOf(cell);
        if (channel.delayTick)
            channel.delayedCell = cell;
        else
            playCell(channel, cell);
        startEffect(channel);
    }
    rowRepeats = std::max(requestedDelay, 0);
}

// First tick of a pattern-delay repeat (MOD, S3M): no new notes, but the
// first-tick effects run again, as fine slides do in ProTracker. The row's
// jumps, breaks and loops were taken on its first pass and are not repeated.
void Sequencer::repeatRow() {
    for (Channel& channel : channels) {
        channel.noteOnRow = false;
        channel.tickPeriod = channel.period;
        channel.vibratoOffset = channel.volumeOffset = channel.tremoloQuarters = 0;
        startEffect(channel);
    }
}

void Sequencer::playLaterTick() {
    for (Channel& channel : channels) {
        channel.tickPeriod = channel.period;
        channel.vibratoOffset = channel.volumeOffset = channel.tremoloQuarters = 0;
        if (isXm()) {
            tickXmChannel(channel);
            continue;
        }
        if (channel.delayTick > 0 && channel.delayTick == tickInRow) {
            channel.noteOnRow = false;
            playCell(channel, channel.delayedCell);
        }
        tickEffect(channel);
        tickVolumeColumn(channel);
    }
    if (tempoSlide)
        beatsPerMinute = slidTempo(beatsPerMinute, tempoSlide);
}

void Sequencer::finishTick() {
    if (++tickInRow < ticksPerRow + extraTicks)
        return;
    tickInRow = 0;
    if (++rowRepeat <= rowRepeats)
        return;
    rowRepeat = 0;
    advanceRow();
}

void Sequencer::advanceRow() {
    if (jumpOrder >= 0 || breakRow >= 0) {
        if (!enterOrder(jumpOrder >= 0 ? jumpOrder : order + 1, std::max(breakRow, 0)))
            return endPass(false);
    } else if (loopJumpRow >= 0) {
        rowIndex = std::min(loopJumpRow, rowCount - 1);
    } else if (++rowIndex >= rowCount) {
        if (!enterOrder(order + 1, isXm() ? xmNextPatternRow : 0))
            return endPass(false);
    }
    arriveAtRow();
}

// Goes to order `position` (passing over skip markers, missing and empty
// patterns) at `startRow`, or row 0 when the pattern is shorter. False when
// the song ends first.
bool Sequencer::enterOrder(int32_t position, int32_t startRow) {
    const Module& song = *module;
    int32_t last = std::min(song.songLength, song.orders.count());
    for (; position >= 0 && position < last; ++position, startRow = 0) {
        uint16_t value = song.orders[position];
        if (song.honoursOrderMarkers() && value == orderEndOfSong)
            return false;
        if (song.honoursOrderMarkers() && value == orderSkip)
            continue;
        int32_t number = value < song.patterns.count() ? value : song.substitutePattern;
        if (number < 0 || number >= song.patterns.count() || song.patterns[number].count() == 0)
            continue;
        order = position;
        pattern = number;
        rowCount = song.patterns[number].count();
        rowIndex = startRow < rowCount ? startRow : 0;
        xmNextPatternRow = 0;
        // FT2 keeps each channel's loop row and count across patterns.
        if (!isXm())
            for (Channel& channel : channels)
                channel.loopRow = channel.loopCount = 0;
        return true;
    }
    return false;
}

void Sequencer::arriveAtRow() {
    RowHistory::Visit visit = history.visit(order, rowIndex, loopDigest());
    if (visit == RowHistory::Fresh)
        return;
    if (visit == RowHistory::Revisit && loopRunning() && ++loopedRows <= maxLoopedRows)
        return;
    endPass(true);
}

// The end of one pass. Without looping the song stops here. With looping, a
// revisit plays on where the song went; running off the end restarts.
void Sequencer::endPass(bool revisited) {
    if (!looping) {
        songEnded = true;
        return;
    }
    history.clear();
    loopedRows = 0;
    if (!revisited && !enterOrder(restartPosition, 0) && !enterOrder(startPosition, 0)) {
        songEnded = true;
        return;
    }
    history.visit(order, rowIndex, loopDigest());
}

bool Sequencer::loopRunning() const {
    for (const Channel& channel : channels)
        if (channel.loopCount > 0)
            return true;
    return false;
}

uint32_t Sequencer::loopDigest() const {
    uint32_t digest = 2166136261u;  // FNV-1a over each channel's loop row and count
    for (const Channel& channel : channels) {
        digest = (digest ^ uint32_t(channel.loopRow)) * 16777619u;
        digest = (digest ^ uint32_t(channel.loopCount)) * 16777619u;
    }
    return digest;
}

const PatternCell& Sequencer::cellAt(int32_t channelIndex) const {
    const PatternRow& cells = module->patterns[pattern][rowIndex];
    return channelIndex < cells.count() ? cells[channelIndex] : emptyCell;
}

}  // namespace mod
