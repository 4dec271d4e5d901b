// Sequencer notes: instrument numbers, notes, sample starts and the one
// place where a channel's pitch and loudness for the tick are put together.
#include <algorithm>

#include "modplayer/EffectCodes.h"
#include "modplayer/PlayerTables.h"
#include "modplayer/Sequencer.h"

namespace mod {

namespace {

constexpr int32_t highestNote = 119;  // B-9: the last note every format can name

bool isTonePortamento(const PatternCell& cell) {
    return cell.effect == EffectTonePortamento || cell.effect == EffectTonePortamentoVolumeSlide ||
           cell.effect == EffectS3mTonePortamentoVolumeSlide || (cell.volume & 0xF0) == volumeTonePortamento;
}

// Sample end for offsets: a looped sample plays only up to its loop end.
uint32_t playableFrames(const SampleData& data) { return data.isLooped() ? data.loopEnd : data.length; }

}  // namespace

void Sequencer::playCell(Channel& channel, const PatternCell& cell) {
    bool hasNote = cell.note <= highestNote;
    if (cell.instrument)
        selectInstrument(channel, cell.instrument, hasNote ? cell.note : std::max(channel.note, 0));
    if (cell.note == noteCut)
        cutNote(channel);
    else if (cell.note == noteKeyOff)
        keyOff(channel);
    else if (hasNote)
        startNote(channel, cell);
    if (cell.instrument && !channel.output.trigger && isMod())
        swapSample(channel);
    else if (cell.instrument && !channel.output.trigger && impulseTrackerS3m)
        switchSample(channel);
    startVolumeColumn(channel);
}

const ModuleSample* Sequencer::sampleFor(const ModuleInstrument& instrument, int32_t note) const {
    int32_t slot = instrument.noteToSample[std::clamp(note, 0, noteCount - 1)];
    if (slot >= instrument.sampleIndices.count())
        return nullptr;
    int32_t index = instrument.sampleIndices[slot];
    return index < module->samples.count() ? &module->samples[index] : nullptr;
}

// An instrument number resets the volume to the sample's default and picks
// the finetune or C4 speed that the next notes use. The sample itself starts
// only with a note. (XM's instruments: XmNotes.cpp.)
void Sequencer::selectInstrument(Channel& channel, int32_t number, int32_t note) {
    if (number > module->instruments.count())
        return;
    channel.instrument = &module->instruments[number - 1];
    channel.modSampleStart = 0;
    const ModuleSample* sample = sampleFor(*channel.instrument, note);
    if (!sample) {
        channel.setVolume(0);
        return;
    }
    channel.setVolume(sample->effectVolume());
    channel.finetune = sample->finetune;
    if (isS3m() && sample->extraA > 0)
        channel.c4Speed = sample->extraA;
}

void Sequencer::startNote(Channel& channel, const PatternCell& cell) {
    if (!channel.instrument)
        return;
    const ModuleSample* sample = sampleFor(*channel.instrument, cell.note);
    int32_t note = cell.note;
    if (note < 0 || note > highestNote)
        return;
    if (cell.effect == EffectExtended && cell.parameter >> 4 == ExtendedSetFinetune)
        channel.finetune = int8_t(cell.parameter << 4);
    int32_t period = periods.notePeriod(note, channel.finetune, channel.c4Speed);
    if (isTonePortamento(cell) && channel.playing && channel.period > 0) {
        channel.portamentoTarget = period;
        return;
    }
    channel.sample = sample;
    if (!sample || !sample->data || sample->data->length == 0 || period <= 0)
        return cutNote(channel);
    channel.note = note;
    channel.period = channel.tickPeriod = period;
    channel.portamentoTarget = period;
    channel.vibrato.noteStarted();
    channel.tremolo.noteStarted();
    channel.panbrello.noteStarted();
    if (!impulseTrackerS3m)
        channel.s3m.retriggerTicks = 0;  // ST3 counts Qxy's ticks from the note
    channel.noteOnRow = true;
    if (isMod() && channel.modSampleStart > 0)
        return startAtOffset(channel, channel.modSampleStart);
    triggerSample(channel, 0);
}

void Sequencer::triggerSample(Channel& channel, uint32_t frame) {
    if (!channel.sample || !channel.sample->data)
        return;
    channel.playing = true;
    channel.lastStartFrame = frame;
    channel.output.trigger = true;
    channel.output.stop = false;
    channel.output.sample = channel.sample->data.get();
    channel.output.startFrame = frame;
}

// ProTracker: an instrument number that starts no note (alone, or beside a
// tone portamento) still hands its sample to Paula, which plays it, from its
// loop, once the sample playing now reaches its loop end; an unlooped or
// empty sample ends the sound there. Chip tunes change waveforms this way.
void Sequencer::swapSample(Channel& channel) {
    const ModuleSample* next = channel.instrument ? sampleFor(*channel.instrument, 0) : nullptr;
    if (!channel.instrument || !channel.playing || next == channel.sample)
        return;
    channel.sample = next;
    channel.output.swap = true;
    channel.output.sample = next && next->data && next->data->isLooped() ? next->data.get() : nullptr;
}

// Impulse Tracker's S3M: an instrument number that starts no note changes
// the sample under the playing note at once, which goes on from where it is.
void Sequencer::switchSample(Channel& channel) {
    const ModuleSample* next = channel.instrument ? sampleFor(*channel.instrument, 0) : nullptr;
    if (!channel.playing || next == channel.sample)
        return;
    channel.sample = next;
    if (!next || !next->data || next->data->length == 0)
        return cutNote(channel);
    channel.output.switchNow = true;
    channel.output.sample = next->data.get();
}

// A start beyond the playable frames: ProTracker (and ST3) play a looped
// sample from its loop start and stay silent otherwise; FT2 stops the note.
void Sequencer::startAtOffset(Channel& channel, uint32_t frame) {
    const SampleData& data = *channel.sample->data;
    if (frame < playableFrames(data))
        return triggerSample(channel, frame);
    if (data.isLooped() && !isXm())
        return triggerSample(channel, data.loopStart);
    cutNote(channel);
}

void Sequencer::cutNote(Channel& channel) {
    channel.playing = false;
    channel.output.trigger = false;
    channel.output.stop = true;
}

// Key off releases the instrument. Without a volume envelope the note falls
// silent at once, as in FT2; envelopes and fadeout take over from here.
void Sequencer::keyOff(Channel& channel) {
    channel.keyOn = false;
    bool hasEnvelope = channel.instrument && (channel.instrument->volumeEnvelope.flags & envelopeOn);
    if (!hasEnvelope)
        channel.setVolume(0);
}

// The tick's pitch and loudness from all their parts: base volume, tremolo
// (or tremor), envelope, fadeout and global volume; base period, arpeggio or
// glissando, vibrato and auto-vibrato; channel panning, envelope and panbrello.
void Sequencer::computeOutput(Channel& channel) {
    ChannelOutput& out = channel.output;
    int32_t offset = 4 * channel.volumeOffset + channel.tremoloQuarters;
    int64_t volume = std::clamp(channel.volumeInQuarters() + offset, 0, 256);
    int64_t envelope = std::clamp(channel.envelopeVolume, 0, 64);
    int64_t fadeout = std::clamp(channel.fadeoutVolume, 0, 65536);
    out.volume = channel.playing ? int32_t((volume * envelope * globalLevel * fadeout) >> 20) : 0;
    out.panning = uint8_t(std::clamp(channel.panning + channel.envelopePanning + channel.s3m.panningOffset, 0, 255));
    int32_t period = channel.tickPeriod + channel.vibratoOffset + channel.autoVibratoOffset;
    out.frequency = channel.playing ? periods.frequency(period) : 0;
}

}  // namespace mod
