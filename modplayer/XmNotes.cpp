// Sequencer XM notes: what FT2 does with a row's note, instrument number and
// key off, on the row's first tick or on a note delay's tick. Its rules, by
// the names used below:
//   - triggerXmNote starts the sample the instrument maps the note to, at
//     its pitch, and keeps that sample's volume and panning as the defaults;
//   - an instrument number restores those defaults (restoreXmSampleDefaults)
//     and restarts the envelopes, fadeout, auto-vibrato and the tremor and
//     retrigger counters (startXmInstrument), even without a note; the
//     envelopes are those of the last note's instrument; the vibrato and
//     tremolo waves restart with every note instead, not with the number;
//   - a note without an instrument number plays the last number's sample
//     and changes nothing else, not even a released key;
//   - tone portamento (3xx, 5xy, Fx) never starts a note: its note only
//     sets the target, measured with the playing sample's relative note;
//   - key off releases the instrument; K00 does so instead of the row's note.
#include <algorithm>

#include "modplayer/EffectCodes.h"
#include "modplayer/PlayerTables.h"
#include "modplayer/Sequencer.h"

namespace mod {

namespace {

constexpr int32_t xmInstrumentSlots = 128;  // numbers beyond it mean no instrument
constexpr int32_t highestXmNote = 119;      // B-9, with the relative note added

bool isPortamento(const PatternCell& cell) {
    return cell.effect == EffectTonePortamento || cell.effect == EffectTonePortamentoVolumeSlide ||
           (cell.volume & 0xF0) == volumeTonePortamento;
}

int32_t noteDelay(const PatternCell& cell) {
    return cell.effect == EffectExtended && cell.parameter >> 4 == ExtendedNoteDelay ? cell.parameter & 0x0F : 0;
}

int32_t instrumentNumberOf(const PatternCell& cell) {
    return cell.instrument <= xmInstrumentSlots ? cell.instrument : 0;
}

}  // namespace

const ModuleInstrument* Sequencer::xmInstrument(int32_t number) const {
    return number >= 1 && number <= module->instruments.count() ? &module->instruments[number - 1] : nullptr;
}

// The row's first tick. A note delay (EDx, x > 0) holds the whole cell,
// volume column included, until its tick; only the instrument number is
// taken at once.
void Sequencer::startXmRow(Channel& channel, const PatternCell& cell) {
    channel.xm.previousEffect = channel.effect;
    channel.xm.rowNote = cell.note;
    channel.xm.rowInstrument = cell.instrument;
    channel.effect = cell.effect;
    channel.parameter = cell.parameter;
    channel.volumeCommand = cell.volume;
    channel.noteOnRow = false;
    channel.tickPeriod = channel.period;
    channel.volumeOffset = channel.vibratoOffset = 0;
    channel.delayTick = noteDelay(cell);
    if (channel.delayTick) {
        channel.delayedCell = cell;
        if (instrumentNumberOf(cell))
            channel.xm.instrumentNumber = instrumentNumberOf(cell);
    } else {
        playXmCell(channel, cell);
    }
    startEffect(channel);
    if (!channel.delayTick)  // a delayed row's vibrato waits for the ticks after the first
        xmVibrato(channel, false);
}

// A note whose sample's relative note takes it beyond the period tables is
// no note at all, and so is one the instrument maps to no sample; the
// sample is the one the row's own instrument number maps the note to.
int32_t Sequencer::xmNoteWithinRange(const Channel& channel, const PatternCell& cell) const {
    if (cell.note == noteKeyOff)
        return noteKeyOff;
    if (cell.note >= noteCount)
        return noNote;
    int32_t number = instrumentNumberOf(cell) ? instrumentNumberOf(cell) : channel.xm.instrumentNumber;
    const ModuleInstrument* instrument = xmInstrument(number);
    const ModuleSample* sample = instrument ? sampleFor(*instrument, cell.note) : nullptr;
    if (instrument && !sample)
        return noNote;
    int32_t relative = sample && sample->extraA != -1 ? sample->extraA : 0;
    int32_t note = cell.note + relative;
    return note >= 0 && note <= highestXmNote ? cell.note : noNote;
}

void Sequencer::playXmCell(Channel& channel, const PatternCell& cell) {
    int32_t number = instrumentNumberOf(cell);
    if (number)
        channel.xm.instrumentNumber = number;
    int32_t note = xmNoteWithinRange(channel, cell);
    if (cell.note < noteCount && note == noNote)
        number = 0;  // such a note takes its instrument number with it (which stays named)
    // E90 takes none of the shortcuts: it retriggers the row's (or the last)
    // note, envelopes and all.
    bool retriggerNow = cell.effect == EffectExtended && cell.parameter == 0x90;
    if (!retriggerNow) {
        if (isPortamento(cell)) {
            // The volume column's speed wins; then 3xx's (5xy has none).
            if ((cell.volume & 0xF0) == volumeTonePortamento) {
                if (cell.volume & 0x0F)
                    channel.memory.tonePortamento = uint8_t((cell.volume & 0x0F) << 4);
            } else if (cell.effect == EffectTonePortamento && cell.parameter) {
                channel.memory.tonePortamento = cell.parameter;
            }
            aimXmPortamento(channel, note, number);
            return startXmVolumeColumn(channel);
        }
        if (cell.effect == EffectKeyOff && cell.parameter == 0) {  // K00: the note is ignored
            releaseXmKey(channel);
            if (number)
                restoreXmSampleDefaults(channel);
            return startXmVolumeColumn(channel);
        }
        if (note == noNote) {
            if (number) {
                restoreXmSampleDefaults(channel);
                startXmInstrument(channel);
            }
            return startXmVolumeColumn(channel);
        }
    }
    if (note == noteKeyOff) {
        // Key off with an instrument number restores the volume but stays
        // released: the note fades out.
        releaseXmKey(channel);
        if (number)
            restoreXmSampleDefaults(channel);
        return startXmVolumeColumn(channel);
    }
    triggerXmNote(channel, note == noNote ? -1 : note, cell.effect, cell.parameter);
    if (number)
        restoreXmSampleDefaults(channel);
    if (number || retriggerNow)
        startXmInstrument(channel);
    startXmVolumeColumn(channel);
}

// The note delay's tick: the held cell plays without its effect (so without
// offset or finetune), always restarts the envelopes (a key off too, which
// then does not fade), and of the volume column only a volume or a panning
// applies. A delay without a note plays the last note again.
void Sequencer::playXmDelayedCell(Channel& channel) {
    const PatternCell& cell = channel.delayedCell;
    int32_t note = xmNoteWithinRange(channel, cell);
    if (note == noteKeyOff)
        releaseXmKey(channel);
    else
        triggerXmNote(channel, note == noNote ? -1 : note, 0, 0);
    if (instrumentNumberOf(cell))
        restoreXmSampleDefaults(channel);
    startXmInstrument(channel);
    uint8_t command = cell.volume;
    if (command >= volumeSetBase && command <= volumeSetBase + 64)
        channel.setVolume(command - volumeSetBase);
    else if ((command & 0xF0) == volumeSetPanning && note != noteKeyOff)
        channel.panning = uint8_t((command & 0x0F) << 4);
}

// Starts `note` (a pattern note; -1 for the last one) with the sample the
// current instrument number maps it to. An instrument number that names no
// instrument silences the channel; a map entry beyond the instrument's
// samples leaves the note playing now alone, as the reference player does.
// The portamento target stays as it was.
void Sequencer::triggerXmNote(Channel& channel, int32_t note, uint8_t effect, uint8_t parameter) {
    XmChannelState& xm = channel.xm;
    if (note < 0)
        note = xm.lastNote;
    if (note < 0)
        return;
    const ModuleInstrument* instrument = xmInstrument(xm.instrumentNumber);
    const ModuleSample* sample = instrument ? sampleFor(*instrument, note) : nullptr;
    if (instrument && !sample)
        return;
    xm.lastNote = note;
    xm.playing = instrument;
    channel.vibrato.noteStarted();  // every note restarts the waves; an instrument number alone does not
    channel.tremolo.noteStarted();
    channel.instrument = instrument;
    channel.sample = sample;
    channel.noteOnRow = true;
    if (!sample) {
        xm.sampleVolume = 0;
        xm.samplePanning = 128;
        return cutNote(channel);
    }
    xm.sampleVolume = uint8_t(sample->effectVolume());
    xm.samplePanning = sample->extraB >= 0 ? uint8_t(std::min<int32_t>(sample->extraB, 255)) : 128;
    xm.relativeNote = sample->extraA != -1 ? sample->extraA : 0;
    int32_t finetune = sample->finetune;
    if (effect == EffectExtended && parameter >> 4 == ExtendedSetFinetune)
        finetune = ((parameter & 0x0F) - 8) * 16;  // E50 lowest, E58 none, E5F highest
    channel.finetune = finetune & ~7;              // FT2 tunes in sixteenths of a semitone
    int32_t period = periods.notePeriod(note + xm.relativeNote, channel.finetune, 0);
    if (period > 0) {
        channel.note = note + xm.relativeNote;
        channel.period = channel.tickPeriod = period;
        channel.vibratoOffset = 0;
    }
    uint32_t start = 0;
    if (effect == EffectSampleOffset) {
        remembered(channel.memory.sampleOffset, parameter);
        start = uint32_t(channel.memory.sampleOffset) * 256;
    }
    if (!sample->data || sample->data->length == 0 || channel.period <= 0)
        return cutNote(channel);
    startAtOffset(channel, start);
}

// What an instrument number restarts: the envelopes (from before their first
// tick), fadeout, auto-vibrato, the key, and the effect counters.
void Sequencer::startXmInstrument(Channel& channel) {
    XmChannelState& xm = channel.xm;
    xm.retriggerCount = 0;
    xm.tremorCount = 0;
    xm.tremorOn = false;
    channel.keyOn = true;
    const ModuleInstrument* instrument = xm.playing;
    if (!instrument)
        return;
    channel.volumeEnvelopeTick = channel.panningEnvelopeTick = -1;
    xm.panningSustainHeld = false;
    channel.fadeoutVolume = 65536;
    if (instrument->vibratoDepth > 0) {
        xm.autoVibratoPosition = 0;
        int32_t full = instrument->vibratoDepth << 8;
        xm.autoVibratoSweep = instrument->vibratoSweep ? full / instrument->vibratoSweep : 0;
        xm.autoVibratoDepth = instrument->vibratoSweep ? 0 : full;
    }
}

void Sequencer::restoreXmSampleDefaults(Channel& channel) {
    channel.setVolume(channel.xm.sampleVolume);
    channel.panning = channel.xm.samplePanning;
}

// Tone portamento's note sets the target (and the direction FT2 keeps);
// its instrument number restores and restarts as usual, no note starts.
void Sequencer::aimXmPortamento(Channel& channel, int32_t note, int32_t instrumentNumber) {
    XmChannelState& xm = channel.xm;
    if (note == noteKeyOff) {
        releaseXmKey(channel);
    } else if (note != noNote) {
        int32_t target = periods.notePeriod(note + xm.relativeNote, channel.finetune, 0);
        if (target > 0) {
            channel.portamentoTarget = target;
            xm.portamentoDirection = target == channel.period ? 0 : target > channel.period ? 1 : 2;
        }
    }
    if (instrumentNumber) {
        restoreXmSampleDefaults(channel);
        startXmInstrument(channel);
    }
}

// Key off releases the envelopes' sustain and starts the fadeout. Without
// a volume envelope the volume drops to 0 at once.
void Sequencer::releaseXmKey(Channel& channel) {
    channel.keyOn = false;
    const ModuleInstrument* instrument = channel.xm.playing;
    if (!instrument || !(instrument->volumeEnvelope.flags & envelopeOn))
        channel.setVolume(0);
}

}  // namespace mod
