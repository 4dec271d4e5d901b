// Sequencer effects: every effect code and volume-column command is decoded
// here, on a row's first tick (start*) and on the ticks after it (tick*).
// The shared codes 0x00..0x0F play by ProTracker's rules for MOD. XM plays
// every code by FT2's rules in XmEffects.cpp and S3M every code by ST3's in
// S3mEffects.cpp; they share the effects that move or time the song
// (startFlowEffect) and the building blocks at the end of this file.
//
// Units: periods move 4 units per ProTracker slide step (Periods.h; S3M's
// stepUnits() are finer);
// volumes are 0..64; depth 15 reaches ProTracker's extremes (vibrato +-30
// Amiga periods, tremolo +-59), from the oscillators' -32..32 for XM and
// their finer 64-step wave for MOD.
#include <algorithm>

#include "modplayer/EffectCodes.h"
#include "modplayer/Sequencer.h"

namespace mod {

namespace {

constexpr uint8_t high(uint8_t parameter) { return parameter >> 4; }
constexpr uint8_t low(uint8_t parameter) { return parameter & 0x0F; }

void setOscillator(Oscillator& oscillator, uint8_t parameter) {
    if (high(parameter))
        oscillator.speed = high(parameter);
    if (low(parameter))
        oscillator.depth = low(parameter);
}

// ProTracker's vibrato and tremolo, from the 64-step wave as the reference
// player computes them: the vibrato in quarter periods (depth 15: 30
// periods either way), the tremolo in quarter volume steps (depth 15: 59.5).
void vibrateMod(Channel& channel) {
    channel.vibratoOffset = channel.vibrato.scaledFineValue(4 * channel.vibrato.depth, 7);
    channel.vibrato.advance();
}

// ProTracker's ramp tremolo takes its half-cycle's direction from the
// vibrato's position, a slip the reference player keeps; without a vibrato
// the ramp climbs, then falls back from 0.
int32_t tremoloRampMod(const Channel& channel, int32_t depth) {
    const Oscillator& tremolo = channel.tremolo;
    int32_t magnitude = ((tremolo.position >> 2) & 31) * 8;
    if (channel.vibrato.position >= 128)
        magnitude = 255 - magnitude;
    magnitude = magnitude * depth >> 6;
    return tremolo.position < 128 ? magnitude : -magnitude;
}

void tremoloMod(Channel& channel) {
    Oscillator& tremolo = channel.tremolo;
    int32_t depth = 4 * tremolo.depth;
    channel.tremoloQuarters = tremolo.waveform == Oscillator::RampDown ? tremoloRampMod(channel, depth)
                                                                       : tremolo.scaledFineValue(depth, 6);
    tremolo.advance();
}

}  // namespace

uint8_t Sequencer::remembered(uint8_t& memory, uint8_t parameter) const {
    if (parameter)
        memory = parameter;
    return memory;
}

// ---- First tick ------------------------------------------------------------

void Sequencer::startEffect(Channel& channel) {
    if (isS3m())
        return startS3mEffect(channel);
    uint8_t effect = channel.effect;
    uint8_t parameter = channel.parameter;
    if (startFlowEffect(channel, effect, parameter))
        return;
    if (isXm())
        return startXmEffect(channel);
    EffectMemory& memory = channel.memory;
    switch (effect) {
    case EffectTonePortamento:
        remembered(memory.tonePortamento, parameter);
        break;
    case EffectVibrato:
        setOscillator(channel.vibrato, parameter);
        break;
    case EffectTremolo:
        setOscillator(channel.tremolo, parameter);
        break;
    case EffectSetPanning:
        channel.panning = parameter;
        break;
    case EffectSampleOffset: {
        remembered(memory.sampleOffset, parameter);
        uint32_t offset = uint32_t(memory.sampleOffset) * 256;
        uint32_t start = offset;
        if (isMod()) {
            // ProTracker moves the start once more after a note has left
            // from it, so the notes after it start twice the offset on.
            start = channel.modSampleStart + offset;
            channel.modSampleStart = start + (channel.noteOnRow ? offset : 0);
        }
        if (channel.noteOnRow)
            startAtOffset(channel, start);
        break;
    }
    case EffectSetVolume:
        channel.volume = std::min<int32_t>(parameter, 64);
        break;
    case EffectExtended:
        startExtended(channel, high(parameter), low(parameter));
        break;
    default:  // arpeggio and the slides act after the first tick
        break;
    }
}

// Effects that move through the song or set its pace. They act once per
// row, not again on the repeats of a pattern delay (but see E6x). Also used
// alone when a song is timed without playing it.
bool Sequencer::startFlowEffect(Channel& channel, uint8_t effect, uint8_t parameter) {
    if (isS3m() && startS3mFlowEffect(channel, effect, parameter))
        return true;
    bool firstPass = rowRepeat == 0;
    switch (effect) {
    case EffectPositionJump:
        // ProTracker and FT2 start the new position at row 0 unless a break
        // in a later channel names a row; ST3 keeps a break from any channel.
        if (firstPass) {
            jumpOrder = parameter;
            if (!isS3m())
                breakRow = -1;
        }
        return true;
    case EffectPatternBreak:
        if (firstPass) {
            breakRow = high(parameter) * 10 + low(parameter);
            if (breakRow > 63)
                breakRow = 0;
        }
        return true;
    case EffectSetSpeedTempo:
        // F00: ProTracker stops; both reference players play on for MOD,
        // while XM players take it as the song's end.
        if (firstPass && parameter == 0 && isXm())
            jumpOrder = module->songLength;
        else if (firstPass && parameter > 0 && parameter < 0x20)
            ticksPerRow = parameter;
        else if (firstPass && parameter >= 0x20)
            beatsPerMinute = parameter;
        return true;
    case EffectExtended:
        if (high(parameter) == ExtendedPatternLoop) {
            // ProTracker counts a loop again on each repeat of a delayed
            // row (EEx beside E6x), which can keep a loop going for ever.
            if (!firstPass && module->formatType != FormatMod)
                return true;
            if (low(parameter) == 0) {
                channel.loopRow = rowIndex;
            } else if (channel.loopCount == 0) {
                channel.loopCount = low(parameter);
                loopJumpRow = channel.loopRow;
            } else if (--channel.loopCount > 0) {
                loopJumpRow = channel.loopRow;
            }
            if (isXm() && loopJumpRow >= 0)
                xmNextPatternRow = loopJumpRow;
            return true;
        }
        if (high(parameter) == ExtendedPatternDelay) {
            if (firstPass)
                requestedDelay = low(parameter);  // the last channel's wins
            return true;
        }
        return false;
    default:
        return false;
    }
}

void Sequencer::startExtended(Channel& channel, uint8_t command, uint8_t value) {
    switch (command) {
    case ExtendedFinePortamentoUp:
        slidePeriod(channel, -4 * value);
        break;
    case ExtendedFinePortamentoDown:
        slidePeriod(channel, 4 * value);
        break;
    case ExtendedGlissando:
        channel.glissando = value != 0;
        break;
    case ExtendedVibratoWaveform:
        channel.vibrato.setWaveform(value);
        break;
    case ExtendedSetFinetune:  // the note on this row already used it (startNote)
        channel.finetune = int8_t(value << 4);
        break;
    case ExtendedTremoloWaveform:
        channel.tremolo.setWaveform(value);
        break;
    case ExtendedSetPanning:
        channel.panning = uint8_t(value * 17);
        break;
    case ExtendedRetrigger:
        if (value && !channel.noteOnRow && channel.playing)
            triggerSample(channel, channel.lastStartFrame);
        break;
    case ExtendedFineVolumeUp:
        channel.volume = std::min(channel.volume + value, 64);
        break;
    case ExtendedFineVolumeDown:
        channel.volume = std::max(channel.volume - value, 0);
        break;
    case ExtendedNoteCut:
        if (value == 0)
            channel.volume = 0;
        break;
    default:  // filter, pattern loop and delay (flow), note delay (readRow), funk repeat
        break;
    }
}

// The volume column's set-volume (S3M); XM's column has commands of its own.
void Sequencer::startVolumeColumn(Channel& channel) {
    if (isXm())
        return startXmVolumeColumn(channel);
    uint8_t command = channel.volumeCommand;
    if (command >= volumeSetBase && command <= volumeSetBase + 64)
        channel.setVolume(command - volumeSetBase);
    else if ((command & 0xF0) == volumeSetPanning && isS3m())
        channel.panning = uint8_t((command & 0x0F) * 17);  // the S3M loader's panning extension
}

// ---- Later ticks -------------------------------------------------------------

void Sequencer::tickEffect(Channel& channel) {
    if (isS3m())
        return tickS3mEffect(channel);
    uint8_t effect = channel.effect;
    uint8_t parameter = channel.parameter;
    if (isXm())
        return tickXmEffect(channel);
    uint8_t slide = parameter;
    switch (effect) {
    case EffectArpeggio:
        if (parameter)
            applyArpeggio(channel, parameter);
        break;
    case EffectPortamentoUp:
        slidePeriod(channel, -4 * parameter);
        break;
    case EffectPortamentoDown:
        slidePeriod(channel, 4 * parameter);
        break;
    case EffectTonePortamento:
        tonePortamento(channel);
        break;
    case EffectVibrato:
        vibrateMod(channel);
        break;
    case EffectTonePortamentoVolumeSlide:
        tonePortamento(channel);
        slideVolume(channel, slide);
        break;
    case EffectVibratoVolumeSlide:
        vibrateMod(channel);
        slideVolume(channel, slide);
        break;
    case EffectTremolo:
        tremoloMod(channel);
        break;
    case EffectVolumeSlide:
        slideVolume(channel, slide);
        break;
    case EffectExtended:
        tickExtended(channel, high(parameter), low(parameter));
        break;
    default:
        break;
    }
}

void Sequencer::tickExtended(Channel& channel, uint8_t command, uint8_t value) {
    switch (command) {
    case ExtendedRetrigger:
        if (value && tickInRow % value == 0 && channel.playing)
            triggerSample(channel, channel.lastStartFrame);
        break;
    case ExtendedNoteCut:
        if (tickInRow == value)
            channel.volume = 0;
        break;
    default:
        break;
    }
}

void Sequencer::tickVolumeColumn(Channel& channel) {
    if (isXm())
        tickXmVolumeColumn(channel);
}

// ---- Building blocks -----------------------------------------------------------

// Axy: up x, else down y (x wins when both are set, as in ProTracker and FT2).
void Sequencer::slideVolume(Channel& channel, uint8_t parameter) {
    if (high(parameter))
        channel.volume = std::min(channel.volume + high(parameter), 64);
    else
        channel.volume = std::max(channel.volume - low(parameter), 0);
}

void Sequencer::slidePeriod(Channel& channel, int32_t delta) {
    if (channel.period <= 0)
        return;
    channel.period = channel.tickPeriod = periods.clamp(channel.period + delta);
}

// Slides towards the target at the remembered speed and stops on it; with
// glissando the pitch moves in whole semitones of the sample's finetune.
void Sequencer::tonePortamento(Channel& channel) {
    int32_t target = channel.portamentoTarget;
    if (target <= 0 || channel.period <= 0)
        return;
    int32_t speed = channel.memory.tonePortamento * periods.stepUnits();
    if (channel.period < target)
        channel.period = std::min(channel.period + speed, target);
    else
        channel.period = std::max(channel.period - speed, target);
    channel.tickPeriod = channel.period;
    if (channel.glissando) {
        int32_t note = periods.noteAtOrAbove(channel.period, channel.finetune, channel.c4Speed);
        channel.tickPeriod = periods.notePeriod(note, channel.finetune, channel.c4Speed);
    }
}

void Sequencer::applyVibrato(Channel& channel, bool moveOn) {
    // Divided, not shifted: the trackers scale the magnitude and then add or
    // subtract it, so the wave stays symmetric.
    channel.vibratoOffset = channel.vibrato.value() * channel.vibrato.depth * 255 / 1024;
    if (moveOn)
        channel.vibrato.advance();
}

// The volume change x of XM's Rxy and S3M's Qxy on each retrigger, on a
// level in quarter steps (0..256): 1..5 take 1, 2, 4, 8, 16 steps away,
// 9..D add them; 6, 7, E, F multiply by 10/16, 1/2, 3/2 and 2. The reference
// player computes it so finely (FT2 takes about 2/3 of whole steps for 6)
// and keeps the quarters left over.
int32_t Sequencer::retriggeredLevel(int32_t level, uint8_t change) {
    static const int8_t added[16] = {0, -1, -2, -4, -8, -16, 0, 0, 0, 1, 2, 4, 8, 16, 0, 0};
    static const uint8_t sixteenths[16] = {16, 16, 16, 16, 16, 16, 10, 8, 16, 16, 16, 16, 16, 16, 24, 32};
    return std::clamp(level * sixteenths[change & 15] / 16 + 4 * added[change & 15], 0, 256);
}

void Sequencer::applyTremolo(Channel& channel, bool moveOn) {
    channel.volumeOffset = channel.tremolo.value() * channel.tremolo.depth * 255 / 2048;
    if (moveOn)
        channel.tremolo.advance();
}

// Ticks cycle through the base note, +x and +y semitones from the row's start.
void Sequencer::applyArpeggio(Channel& channel, uint8_t parameter) {
    int32_t step = tickInRow % 3;
    if (step == 0)
        return;
    int32_t semitones = step == 1 ? high(parameter) : low(parameter);
    int32_t note = periods.noteAtOrAbove(channel.period, channel.finetune, channel.c4Speed);
    int32_t period = periods.notePeriod(std::min(note + semitones, 127), channel.finetune, channel.c4Speed);
    if (period > 0)
        channel.tickPeriod = period;
}

}  // namespace mod
