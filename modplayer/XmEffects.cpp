// Sequencer XM effects: every effect and volume-column command of an XM
// song, by FT2's rules: the row's first tick (start*) and the ticks after
// it (tick*), the volume column before the effect on each. Effects.cpp
// sends XM here after the effects that move or time the song.
//
// FT2's rules that differ from ProTracker's, besides the letter effects:
//   - a zero parameter reuses the effect's own memory for 1, 2, 5/6/A (one
//     shared memory), E1, E2, EA, EB, H, P, R (each half), T, X1, X2; 3xx
//     shares its speed with the volume column's Fx;
//   - vibrato and tremolo act on every tick of their rows, the first
//     included, where they show where the wave stands without moving it
//     on (so the reference player renders them); the vibrato acts after
//     the tick's retriggers, which restart its wave, as any new note does;
//     waveform 3 is a square;
//   - arpeggio counts the ticks down from the speed through a 16-entry
//     table (beyond it, the third note), around the nearest semitone;
//   - slides keep the period within 1..31999;
//   - E9x retriggers with the envelopes restarted, E90 on the first tick;
//     E5x acts only beside a note (XmNotes.cpp); EFx does nothing.
// Units as in Effects.cpp: a slide step is 4 period units.
#include <algorithm>

#include "modplayer/EffectCodes.h"
#include "modplayer/PlayerTables.h"
#include "modplayer/Sequencer.h"

namespace mod {

namespace {

constexpr uint8_t high(uint8_t parameter) { return parameter >> 4; }
constexpr uint8_t low(uint8_t parameter) { return parameter & 0x0F; }

constexpr int32_t lowestXmPeriod = 1;
constexpr int32_t highestXmPeriod = 31999;
constexpr int32_t highestArpeggioNote = 95;  // FT2's arpeggio stops at its note 96, untuned

void setXmOscillator(Oscillator& oscillator, uint8_t parameter) {
    if (high(parameter))
        oscillator.speed = high(parameter);
    if (low(parameter))
        oscillator.depth = low(parameter);
}

// FT2 has no random wave: its waveform 3 is a square, as 2 is.
void setXmWaveform(Oscillator& oscillator, uint8_t code) {
    oscillator.setWaveform((code & 3) == Oscillator::Random ? uint8_t((code & 4) | Oscillator::Square) : code);
}

}  // namespace

// ---- First tick ------------------------------------------------------------

void Sequencer::startXmEffect(Channel& channel) {
    uint8_t parameter = channel.parameter;
    EffectMemory& memory = channel.memory;
    switch (channel.effect) {
    case EffectSetPanning:
        channel.panning = parameter;
        break;
    case EffectSetVolume:
        channel.setVolume(std::min<int32_t>(parameter, 64));
        break;
    case EffectExtended:
        startXmExtended(channel, high(parameter), low(parameter));
        break;
    case EffectSetGlobalVolume:
        globalLevel = std::min<int32_t>(parameter, 64);
        break;
    case EffectSetEnvelopePosition:
        setXmEnvelopePosition(channel, parameter);
        break;
    case EffectMultiRetrigger:
        xmMultiRetrigger(channel, parameter, true);
        break;
    case EffectVibrato:
        setXmOscillator(channel.vibrato, parameter);
        break;
    case EffectTremolo:
        setXmOscillator(channel.tremolo, parameter);
        xmTremolo(channel, false);
        break;
    case EffectTremor:  // a running tremor holds its phase through the first tick
        if (channel.xm.previousEffect == EffectTremor && !channel.xm.tremorOn && !channel.xm.rowInstrument)
            channel.volumeOffset = -64;  // silent, quarters and all
        break;
    case EffectExtraFinePortamento:
        if (high(parameter) == 1)
            slideXmPeriod(channel, -remembered(memory.extraFineUp, low(parameter)));
        else if (high(parameter) == 2)
            slideXmPeriod(channel, remembered(memory.extraFineDown, low(parameter)));
        break;
    default:  // the rest act after the first tick; K00, 3xx and 9xx are the cell's (XmNotes.cpp)
        break;
    }
}

void Sequencer::startXmExtended(Channel& channel, uint8_t command, uint8_t value) {
    EffectMemory& memory = channel.memory;
    switch (command) {
    case ExtendedFinePortamentoUp:
        slideXmPeriod(channel, -4 * remembered(memory.finePortamentoUp, value));
        break;
    case ExtendedFinePortamentoDown:
        slideXmPeriod(channel, 4 * remembered(memory.finePortamentoDown, value));
        break;
    case ExtendedGlissando:
        channel.glissando = value != 0;
        break;
    case ExtendedVibratoWaveform:
        setXmWaveform(channel.vibrato, value);
        break;
    case ExtendedTremoloWaveform:
        setXmWaveform(channel.tremolo, value);
        break;
    case ExtendedFineVolumeUp:
        channel.addVolume(remembered(memory.fineVolumeUp, value));
        break;
    case ExtendedFineVolumeDown:
        channel.addVolume(-remembered(memory.fineVolumeDown, value));
        break;
    case ExtendedNoteCut:
        if (value == 0)
            channel.setVolume(0);
        break;
    case ExtendedSetPanning:  // not FT2's, but the reference player takes it
        channel.panning = uint8_t(value * 17);
        break;
    default:  // E5x with the note; E6x, EEx flow; E9x, EDx later; E0x, EFx nothing
        break;
    }
}

// The volume column's first tick: set volume, fine slides, vibrato speed
// and depth, panning (x * 16). Tone portamento was taken with the note.
void Sequencer::startXmVolumeColumn(Channel& channel) {
    uint8_t command = channel.volumeCommand;
    uint8_t value = low(command);
    if (command >= volumeSetBase && command <= volumeSetBase + 64) {
        channel.setVolume(command - volumeSetBase);
        return;
    }
    switch (command & 0xF0) {
    case volumeFineDown:
        channel.addVolume(-value);
        break;
    case volumeFineUp:
        channel.addVolume(value);
        break;
    case volumeVibratoSpeed:
        if (value)
            channel.vibrato.speed = value;
        break;
    case volumeVibrato:
        if (value)
            channel.vibrato.depth = value;
        break;
    case volumeSetPanning:
        channel.panning = uint8_t(value << 4);
        break;
    default:
        break;
    }
}

// ---- Later ticks -------------------------------------------------------------

void Sequencer::tickXmChannel(Channel& channel) {
    tickXmVolumeColumn(channel);
    tickXmEffect(channel);
    xmVibrato(channel, true);
}

void Sequencer::tickXmEffect(Channel& channel) {
    uint8_t parameter = channel.parameter;
    EffectMemory& memory = channel.memory;
    switch (channel.effect) {
    case EffectArpeggio:
        if (parameter)
            xmArpeggio(channel, parameter);
        break;
    case EffectPortamentoUp:
        slideXmPeriod(channel, -4 * remembered(memory.portamentoUp, parameter));
        break;
    case EffectPortamentoDown:
        slideXmPeriod(channel, 4 * remembered(memory.portamentoDown, parameter));
        break;
    case EffectTonePortamento:
        xmTonePortamento(channel);
        break;
    case EffectVibrato:  // xmVibrato does the rest
        setXmOscillator(channel.vibrato, parameter);
        break;
    case EffectTonePortamentoVolumeSlide:
        xmTonePortamento(channel);
        slideXmVolume(channel, remembered(memory.volumeSlide, parameter));
        break;
    case EffectVibratoVolumeSlide:
        slideXmVolume(channel, remembered(memory.volumeSlide, parameter));
        break;
    case EffectTremolo:
        setXmOscillator(channel.tremolo, parameter);
        xmTremolo(channel, true);
        break;
    case EffectVolumeSlide:
        slideXmVolume(channel, remembered(memory.volumeSlide, parameter));
        break;
    case EffectExtended:
        tickXmExtended(channel, high(parameter), low(parameter));
        break;
    case EffectGlobalVolumeSlide: {
        uint8_t slide = remembered(memory.globalVolumeSlide, parameter);
        globalLevel = high(slide) ? std::min(globalLevel + high(slide), 64) : std::max(globalLevel - low(slide), 0);
        break;
    }
    case EffectKeyOff:
        if (tickInRow == (parameter & 31))
            releaseXmKey(channel);
        break;
    case EffectPanningSlide: {
        uint8_t slide = remembered(memory.panningSlide, parameter);
        int32_t panning = high(slide) ? channel.panning + high(slide) : channel.panning - low(slide);
        channel.panning = uint8_t(std::clamp(panning, 0, 255));
        break;
    }
    case EffectMultiRetrigger:
        xmMultiRetrigger(channel, parameter, false);
        break;
    case EffectTremor:
        xmTremor(channel, parameter);
        break;
    default:
        break;
    }
}

void Sequencer::tickXmExtended(Channel& channel, uint8_t command, uint8_t value) {
    switch (command) {
    case ExtendedRetrigger:
        if (value && tickInRow % value == 0) {
            triggerXmNote(channel, -1, 0, 0);
            startXmInstrument(channel);
        } else {
            ++channel.xm.retriggerCount;  // the reference player counts E9x's ticks on Rxy's counter
        }
        break;
    case ExtendedNoteCut:
        if (tickInRow == value)
            channel.setVolume(0);
        break;
    case ExtendedNoteDelay:
        if (tickInRow == value)
            playXmDelayedCell(channel);
        break;
    default:
        break;
    }
}

// The volume column after the first tick: slides, vibrato, panning slides
// (Dx with x = 0 sends the panning hard left, as FT2's arithmetic does),
// tone portamento.
void Sequencer::tickXmVolumeColumn(Channel& channel) {
    uint8_t command = channel.volumeCommand;
    uint8_t value = low(command);
    switch (command & 0xF0) {
    case volumeSlideDown:
        channel.addVolume(-value);
        break;
    case volumeSlideUp:
        channel.addVolume(value);
        break;
    case volumeVibrato:  // xmVibrato does the rest
        if (value)
            channel.vibrato.depth = value;
        break;
    case volumePanningSlideLeft:
        channel.panning = value && channel.panning >= value ? uint8_t(channel.panning - value) : 0;
        break;
    case volumePanningSlideRight:
        channel.panning = uint8_t(std::min(channel.panning + value, 255));
        break;
    case volumeTonePortamento:
        xmTonePortamento(channel);
        break;
    default:
        break;
    }
}

// ---- Building blocks -----------------------------------------------------------

void Sequencer::slideXmPeriod(Channel& channel, int32_t delta) {
    channel.period = channel.tickPeriod = std::clamp(channel.period + delta, lowestXmPeriod, highestXmPeriod);
}

// Axy: up x, else down y.
void Sequencer::slideXmVolume(Channel& channel, uint8_t parameter) {
    channel.addVolume(high(parameter) ? high(parameter) : -low(parameter));
}

// Slides in the direction the target was set with and stops on it; from
// then on FT2 slides upwards, so a target left below (by 2xx, say) is taken
// at once.
void Sequencer::xmTonePortamento(Channel& channel) {
    XmChannelState& xm = channel.xm;
    if (xm.portamentoDirection == 0)
        return;
    int32_t speed = channel.memory.tonePortamento * 4;
    int32_t target = channel.portamentoTarget;
    if (xm.portamentoDirection == 2) {
        channel.period -= speed;
        if (channel.period <= target) {
            channel.period = target;
            xm.portamentoDirection = 1;
        }
    } else {
        channel.period += speed;
        if (channel.period >= target) {
            channel.period = target;
            xm.portamentoDirection = 1;
        }
    }
    channel.tickPeriod = channel.glissando ? xmNearestNotePeriod(channel, channel.period, 0) : channel.period;
}

// FT2 reads the arpeggio step from a table of 16 ticks, counted down from
// the speed; past its end it reads the vibrato table: 0, then values that
// all pick the third note.
void Sequencer::xmArpeggio(Channel& channel, uint8_t parameter) {
    int32_t ticksLeft = ticksPerRow - tickInRow;
    int32_t step = ticksLeft < 16 ? ticksLeft % 3 : ticksLeft == 16 ? 0 : 2;
    if (step == 0)
        return;
    channel.tickPeriod = xmNearestNotePeriod(channel, channel.period, step == 1 ? high(parameter) : low(parameter));
}

// The period of the note nearest to `period`, `semitones` higher.
int32_t Sequencer::xmNearestNotePeriod(const Channel& channel, int32_t period, int32_t semitones) const {
    int32_t below = periods.noteAtOrAbove(period, channel.finetune, 0);  // at or below in pitch
    int32_t nearest = below;
    int32_t above = periods.notePeriod(below + 1, channel.finetune, 0);
    if (above > 0 && periods.notePeriod(below, channel.finetune, 0) - period > period - above)
        nearest = below + 1;
    int32_t note = nearest + semitones;
    if (note > highestArpeggioNote)
        return periods.notePeriod(highestArpeggioNote, 0, 0);
    int32_t result = periods.notePeriod(note, channel.finetune, 0);
    return result > 0 ? result : period;
}

// 4xy, 6xy and the volume column's Vx, once a tick whichever of them the
// row has.
void Sequencer::xmVibrato(Channel& channel, bool moveOn) {
    bool vibrates = channel.effect == EffectVibrato || channel.effect == EffectVibratoVolumeSlide ||
                    (channel.volumeCommand & 0xF0) == volumeVibrato;
    if (vibrates)
        applyVibrato(channel, moveOn);
}

// FT2's tremolo: its ramp takes its half-cycle sign from the vibrato's
// position (a slip FT2 has always had).
void Sequencer::xmTremolo(Channel& channel, bool moveOn) {
    Oscillator& tremolo = channel.tremolo;
    int32_t magnitude;
    if (tremolo.waveform == Oscillator::RampDown) {
        magnitude = ((tremolo.position >> 2) & 31) << 3;
        if (channel.vibrato.position >= 128)
            magnitude = 255 - magnitude;
        magnitude = magnitude * tremolo.depth >> 6;
        channel.volumeOffset = tremolo.position < 128 ? magnitude : -magnitude;
        if (moveOn)
            tremolo.advance();
        return;
    }
    applyTremolo(channel, moveOn);
}

// Txy: on for x + 1 ticks, off for y + 1, counted only after the first tick
// of a row; an instrument number starts it again in the off phase, so the
// first counted tick turns it on.
void Sequencer::xmTremor(Channel& channel, uint8_t parameter) {
    XmChannelState& xm = channel.xm;
    uint8_t setting = remembered(channel.memory.tremor, parameter);
    if (--xm.tremorCount < 0) {
        xm.tremorOn = !xm.tremorOn;
        xm.tremorCount = xm.tremorOn ? high(setting) : low(setting);
    }
    if (!xm.tremorOn)
        channel.volumeOffset = -64;  // silent, quarters and all
}

// Rxy: every y ticks the note starts again (the envelopes go on), its
// volume changed by x. On a row's first tick the count starts at 1 beside
// an instrument number, waits while the volume column sets a volume, and
// never retriggers beside a note, which has just started anyway.
void Sequencer::xmMultiRetrigger(Channel& channel, uint8_t parameter, bool firstTick) {
    EffectMemory& memory = channel.memory;
    XmChannelState& xm = channel.xm;
    uint8_t ticks = low(parameter) ? low(parameter) : memory.retriggerTicks;
    uint8_t change = high(parameter) ? high(parameter) : memory.retriggerVolume;
    memory.retriggerTicks = ticks;
    memory.retriggerVolume = change;
    uint8_t command = channel.volumeCommand;
    bool setsVolume = command > volumeSetBase && command <= volumeSetBase + 64;
    bool hasNote = xm.rowNote < noteCount;
    if (firstTick) {
        if (xm.rowInstrument && (hasNote || xm.rowNote == noNote))
            xm.retriggerCount = 1;
        if (setsVolume)
            return;
    }
    if (xm.retriggerCount >= ticks && (!firstTick || !hasNote)) {
        xm.retriggerCount = 0;
        channel.setVolumeInQuarters(retriggeredLevel(channel.volumeInQuarters(), change));
        if (command >= volumeSetBase && command <= volumeSetBase + 64)
            channel.setVolume(command - volumeSetBase);
        else if ((command & 0xF0) == volumeSetPanning)
            channel.panning = uint8_t(low(command) << 4);
        triggerXmNote(channel, -1, 0, 0);
    }
    ++xm.retriggerCount;
}

// Lxx: the volume envelope to tick xx (when it is on); FT2 moves the
// panning envelope too, but only when the volume envelope has a sustain.
void Sequencer::setXmEnvelopePosition(Channel& channel, uint8_t position) {
    const ModuleInstrument* instrument = channel.xm.playing;
    if (!instrument)
        return;
    // One tick early: the envelope step of this same tick moves on to it.
    if (instrument->volumeEnvelope.flags & envelopeOn)
        channel.volumeEnvelopeTick = position - 1;
    if (instrument->volumeEnvelope.flags & envelopeSustain)
        channel.panningEnvelopeTick = position - 1;
}

}  // namespace mod
