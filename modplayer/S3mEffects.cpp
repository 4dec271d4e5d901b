// Sequencer effects of S3M, as Scream Tracker 3 plays them: every effect of
// an S3M module comes here (Effects.cpp hands them over whole), the codes
// it shares with the other formats (B, C, G, H, I, O, Q, R, V) as well as
// its own (0x30 and up). Building blocks that the formats have in common
// (tone portamento, arpeggio, note starts) stay in Effects.cpp and Notes.cpp.
//
// ST3's rules that the other formats do not have:
//   - One memory slot per channel: every effect with a nonzero parameter
//     stores it, and D, E, F, I, J, K, L, Q, R and S read a 00 parameter as
//     the slot's value. G, O and T keep memories of their own; H and U keep
//     speed and depth apart.
//   - Fine slides act on the row's first tick only (DxF, DFx, EFx, EEx, FFx,
//     FEx), the others on the later ticks; with fast volume slides (files
//     from ST3 3.00, or the header flag) D slides on the first tick too, and
//     so do D0F and DF0 always.
//   - Vibrato, tremolo and tremor act on the first tick too; the first tick
//     shows the wave where it stands, the later ones move it on. Tremolo is
//     half as deep as ProTracker's; the ramp waveform falls.
//   - Retrigger counts the ticks of Q since the channel's last note; tremor
//     counts through its on-off cycle across rows.
//   - A slide that takes the period to 0 cuts the note; periods above 32767
//     stop there, and pitches above period 64 play at 64.
//   - One pattern loop for the whole song, the next one starting after a
//     finished loop; the first nonzero SEx of a row sets its pattern delay;
//     SD0 never plays its cell; SC0 does nothing; SAx is ignored.
// Impulse Tracker's additions, which the players honour in S3M files from
// every tracker: T0x / T1x tempo slides (T00 repeats), S6x fine pattern
// delay, W global volume slides, Y panbrello, XA4 surround (played in the
// centre). S3M files saved by Impulse Tracker itself play by its rules, as
// the players do (Module::isImpulseTrackerS3m): notes in whole hertz
// (Periods), a memory per effect (D with K and L, E with F, then I, J, Q, S
// each alone; R per nibble), and a retrigger that counts down.
#include <algorithm>

#include "modplayer/EffectCodes.h"
#include "modplayer/Sequencer.h"

namespace mod {

namespace {

constexpr uint8_t high(uint8_t parameter) { return parameter >> 4; }
constexpr uint8_t low(uint8_t parameter) { return parameter & 0x0F; }

// ST3's effects that read a 00 parameter from the shared memory slot.
bool readsSharedMemory(uint8_t effect) {
    switch (effect) {
    case EffectS3mVolumeSlide:
    case EffectS3mPortamentoDown:
    case EffectS3mPortamentoUp:
    case EffectTremor:
    case EffectS3mArpeggio:
    case EffectS3mVibratoVolumeSlide:
    case EffectS3mTonePortamentoVolumeSlide:
    case EffectMultiRetrigger:
    case EffectTremolo:
    case EffectS3mExtended:
        return true;
    default:
        return false;
    }
}

// The memory a 00 parameter of `effect` reads; null where it has none.
uint8_t* memorySlot(S3mEffectState& state, uint8_t effect, bool impulseRules) {
    if (!impulseRules)
        return readsSharedMemory(effect) ? &state.lastParameter : nullptr;
    switch (effect) {
    case EffectS3mVolumeSlide:
    case EffectS3mVibratoVolumeSlide:
    case EffectS3mTonePortamentoVolumeSlide:
        return &state.volumeSlide;
    case EffectS3mPortamentoDown:
    case EffectS3mPortamentoUp:
        return &state.portamento;
    case EffectTremor:
        return &state.tremor;
    case EffectS3mArpeggio:
        return &state.arpeggio;
    case EffectMultiRetrigger:
        return &state.retrigger;
    case EffectS3mExtended:
        return &state.extended;
    default:
        return nullptr;
    }
}

// The parameter an effect plays with: 00 reads its memory; any other value
// fills it, and by ST3's rules the one slot that every effect fills.
uint8_t resolvedParameter(S3mEffectState& state, uint8_t effect, uint8_t parameter, bool impulseRules) {
    uint8_t* slot = memorySlot(state, effect, impulseRules);
    if (parameter == 0)
        return slot ? *slot : 0;
    if (slot)
        *slot = parameter;
    if (!impulseRules && effect != 0)
        state.lastParameter = parameter;
    return parameter;
}

// Dxy (and Wxy) on one tick: DxF and DFx (x > 0) slide x up or down on the
// first tick only; otherwise x0 slides up and 0y (or xy) down, on the later
// ticks and, where `slidesOnFirstTick`, on the first as well.
int32_t volumeSlideStep(uint8_t parameter, bool firstTick, bool slidesOnFirstTick) {
    uint8_t up = high(parameter), down = low(parameter);
    if (down == 0xF && up)
        return firstTick ? up : 0;
    if (up == 0xF && down)
        return firstTick ? -down : 0;
    if (firstTick && !slidesOnFirstTick)
        return 0;
    return down ? -down : up;
}

// Exx / Fxx on one tick, in period units: EFx slides x steps and EEx x
// quarter steps on the first tick only; otherwise xx steps on each later tick.
int32_t portamentoStep(uint8_t parameter, bool firstTick) {
    constexpr int32_t quarterStep = Periods::st3Fraction;
    if (high(parameter) == 0xF)
        return firstTick ? 4 * quarterStep * low(parameter) : 0;
    if (high(parameter) == 0xE)
        return firstTick ? quarterStep * low(parameter) : 0;
    return firstTick ? 0 : 4 * quarterStep * parameter;
}

// H counts its depth in steps of 4 period units, U in single units. ST3
// keeps the nibble and scales it by the effect that plays it, so H00 after
// U4F vibrates four times as deep (the reference player renders it so);
// Impulse Tracker keeps the depth in units, so K goes on as fine as it was.
void setVibrato(Oscillator& vibrato, uint8_t parameter, int32_t unitsPerStep, bool impulseRules) {
    if (high(parameter))
        vibrato.speed = high(parameter);
    if (low(parameter))
        vibrato.depth = uint8_t(low(parameter) * (impulseRules ? unitsPerStep : 1));
}

// S3x, S4x, S5x: the waveform from the low two bits; a new note always
// restarts the wave (the trackers know no bit to keep it going).
void setWaveform(Oscillator& oscillator, uint8_t value) { oscillator.setWaveform(value & 3); }

// The wave as ST3 plays it: its ramp falls through the cycle, the other way
// from ProTracker's.
int32_t waveValue(const Oscillator& oscillator) {
    return oscillator.waveform == Oscillator::RampDown ? -oscillator.value() : oscillator.value();
}

// The 64-step wave times `depth`, shifted down by `shift`; ST3's ramp falls.
int32_t scaledWave(const Oscillator& oscillator, int32_t depth, int32_t shift) {
    int32_t wave = oscillator.scaledFineValue(depth, shift);
    return oscillator.waveform == Oscillator::RampDown ? -wave : wave;
}

// Depth 15 (in steps) reaches 30 Amiga periods either way, as in ProTracker;
// ST3 works the offset out in quarter periods from its 64-step table.
void vibrateS3m(Channel& channel, bool firstTick, bool impulseRules) {
    int32_t depth = channel.vibrato.depth;
    if (!impulseRules && channel.effect != EffectS3mFineVibrato)
        depth *= 4;
    channel.vibratoOffset = scaledWave(channel.vibrato, depth, 7) * Periods::st3Fraction;
    if (!firstTick)
        channel.vibrato.advance();
}

// Rxy: ST3 takes speed and depth from the parameter whole (from the shared
// memory for R00); Impulse Tracker keeps each nibble until one replaces it.
void setTremolo(Oscillator& tremolo, uint8_t parameter, bool impulseRules) {
    if (!impulseRules || high(parameter))
        tremolo.speed = high(parameter);
    if (!impulseRules || low(parameter))
        tremolo.depth = low(parameter);
}

// ST3's tremolo is half as deep as ProTracker's: depth 15 moves the volume
// by 30 at most. The reference player works it out in quarter steps of
// volume.
void tremoloS3m(Channel& channel, bool firstTick) {
    channel.tremoloQuarters = scaledWave(channel.tremolo, 4 * channel.tremolo.depth, 7);
    if (!firstTick)
        channel.tremolo.advance();
}

// Ixy: x + 1 ticks sounding, then y + 1 ticks silent, counted on every tick
// of a row with tremor and carried from row to row.
void applyTremor(Channel& channel, uint8_t parameter) {
    int32_t on = high(parameter) + 1, off = low(parameter) + 1;
    uint8_t& ticks = channel.s3m.tremorTicks;
    if (ticks >= on + off)
        ticks = 0;
    if (ticks >= on)
        channel.volumeOffset = -64;  // silent, quarters and all
    ++ticks;
}

// Yxy: the panning swings by up to 8 * y either way, moving x 256ths of a
// cycle on every tick.
void applyPanbrello(Channel& channel) {
    Oscillator& panbrello = channel.panbrello;
    channel.s3m.panningOffset = waveValue(panbrello) * panbrello.depth / 4;
    panbrello.position = uint8_t(panbrello.position + panbrello.speed);
}

// S2x: the C4 speeds of ST3's finetune table.
constexpr int32_t finetuneC4Speeds[16] = {7895, 7941, 7985, 8046, 8107, 8169, 8232, 8280,
                                          8363, 8413, 8463, 8529, 8581, 8651, 8723, 8757};

constexpr int32_t slowestTempo = 32;
constexpr int32_t fastestTempo = 255;

}  // namespace

int32_t Sequencer::slidTempo(int32_t tempo, int32_t slide) {
    return std::clamp(tempo + slide, slowestTempo, fastestTempo);
}

// Effects that time or move the song. Runs first for every S3M cell, in play
// and in duration scans alike, so it also keeps the shared memory slot.
bool Sequencer::startS3mFlowEffect(Channel& channel, uint8_t effect, uint8_t parameter) {
    S3mEffectState& state = channel.s3m;
    parameter = resolvedParameter(state, effect, parameter, impulseTrackerS3m);
    bool firstPass = rowRepeat == 0;
    switch (effect) {
    case EffectS3mSetSpeed:
        if (firstPass && parameter)
            ticksPerRow = parameter;
        return true;
    case EffectS3mSetTempo:
        state.tempo = parameter ? parameter : state.tempo;
        if (firstPass && state.tempo >= slowestTempo)
            beatsPerMinute = state.tempo;
        else if (firstPass && state.tempo)
            tempoSlide += high(state.tempo) ? low(state.tempo) : -low(state.tempo);
        return true;
    case EffectS3mExtended:
        return startS3mFlowExtended(high(parameter), low(parameter));
    default:
        return false;
    }
}

bool Sequencer::startS3mFlowExtended(uint8_t command, uint8_t value) {
    bool firstPass = rowRepeat == 0;
    switch (command) {
    case S3mExtendedPatternLoop: {
        if (!firstPass)
            return true;
        // ST3 keeps one loop for the whole song: channel 0's loop fields
        // hold it. A finished loop starts the next one on the row after.
        Channel& loop = channels[0];
        if (value == 0)
            loop.loopRow = rowIndex;
        else if (loop.loopCount == 0)
            loop.loopCount = value, loopJumpRow = loop.loopRow;
        else if (--loop.loopCount > 0)
            loopJumpRow = loop.loopRow;
        else
            loop.loopRow = rowIndex + 1;
        return true;
    }
    case S3mExtendedPatternDelay:
        if (firstPass && requestedDelay < 0 && value > 0)
            requestedDelay = value;
        return true;
    case S3mExtendedFinePatternDelay:
        if (firstPass)
            extraTicks += value;
        return true;
    default:
        return false;
    }
}

// ---- First tick ------------------------------------------------------------

void Sequencer::startS3mEffect(Channel& channel) {
    channel.s3m.panningOffset = 0;
    channel.parameter = resolvedParameter(channel.s3m, channel.effect, channel.parameter, impulseTrackerS3m);
    uint8_t parameter = channel.parameter;
    if (startFlowEffect(channel, channel.effect, parameter))
        return;
    bool fastSlides = module->fastVolumeSlides || parameter == 0x0F || parameter == 0xF0;
    switch (channel.effect) {
    case EffectS3mVolumeSlide:
        channel.addVolume(volumeSlideStep(parameter, true, fastSlides));
        break;
    case EffectS3mPortamentoDown:
        slideS3mPeriod(channel, portamentoStep(parameter, true));
        break;
    case EffectS3mPortamentoUp:
        slideS3mPeriod(channel, -portamentoStep(parameter, true));
        break;
    case EffectTonePortamento:
        remembered(channel.memory.tonePortamento, parameter);
        break;
    case EffectVibrato:
    case EffectS3mFineVibrato:
        setVibrato(channel.vibrato, parameter, channel.effect == EffectVibrato ? 4 : 1, impulseTrackerS3m);
        vibrateS3m(channel, true, impulseTrackerS3m);
        break;
    case EffectTremor:
        applyTremor(channel, parameter);
        break;
    case EffectS3mVibratoVolumeSlide:
        vibrateS3m(channel, true, impulseTrackerS3m);
        channel.addVolume(volumeSlideStep(parameter, true, fastSlides));
        break;
    case EffectS3mTonePortamentoVolumeSlide:
        channel.addVolume(volumeSlideStep(parameter, true, fastSlides));
        break;
    case EffectSampleOffset:
        remembered(channel.memory.sampleOffset, parameter);
        if (channel.noteOnRow)
            startAtOffset(channel, uint32_t(channel.memory.sampleOffset) * 256);
        break;
    case EffectMultiRetrigger:
        retriggerS3mNote(channel);
        break;
    case EffectTremolo:
        setTremolo(channel.tremolo, parameter, impulseTrackerS3m);
        tremoloS3m(channel, true);
        break;
    case EffectS3mExtended:
        startS3mExtended(channel, high(parameter), low(parameter));
        break;
    case EffectSetGlobalVolume:
        if (parameter <= 64)
            globalLevel = parameter;
        break;
    case EffectS3mGlobalVolumeSlide:
        remembered(channel.s3m.globalVolumeSlide, parameter);
        globalLevel = std::clamp(globalLevel + volumeSlideStep(channel.s3m.globalVolumeSlide, true, false), 0, 64);
        break;
    case EffectS3mSetPanning:
        if (parameter <= 0x80)
            channel.panning = uint8_t(std::min(parameter * 2, 255));
        else if (parameter == 0xA4)  // surround: no such thing in stereo, so the centre
            channel.panning = 128;
        break;
    case EffectS3mPanbrello:
        if (high(parameter))
            channel.panbrello.speed = high(parameter);
        if (low(parameter))
            channel.panbrello.depth = low(parameter);
        applyPanbrello(channel);
        break;
    default:  // J and G act after the first tick; A, B, C, T are flow
        break;
    }
}

void Sequencer::startS3mExtended(Channel& channel, uint8_t command, uint8_t value) {
    switch (command) {
    case S3mExtendedGlissando:
        channel.glissando = value != 0;
        break;
    case S3mExtendedSetFinetune:
        // Retunes the note that plays, not only the notes to come.
        channel.c4Speed = finetuneC4Speeds[value];
        if (channel.period > 0 && channel.note >= 0)
            channel.period = channel.tickPeriod = periods.notePeriod(channel.note, 0, channel.c4Speed);
        break;
    case S3mExtendedVibratoWaveform:
        setWaveform(channel.vibrato, value);
        break;
    case S3mExtendedTremoloWaveform:
        setWaveform(channel.tremolo, value);
        break;
    case S3mExtendedPanbrelloWaveform:
        setWaveform(channel.panbrello, value);
        break;
    case S3mExtendedSetPanning:
        channel.panning = uint8_t(value * 17);
        break;
    default:  // S0x, SAx, SFx: nothing; SCx, SDx: later ticks and readRow; SBx, SEx, S6x: flow
        break;
    }
}

// ---- Later ticks -------------------------------------------------------------

void Sequencer::tickS3mEffect(Channel& channel) {
    channel.s3m.panningOffset = 0;
    uint8_t parameter = channel.parameter;
    switch (channel.effect) {
    case EffectS3mVolumeSlide:
        channel.addVolume(volumeSlideStep(parameter, false, false));
        break;
    case EffectS3mPortamentoDown:
        slideS3mPeriod(channel, portamentoStep(parameter, false));
        break;
    case EffectS3mPortamentoUp:
        slideS3mPeriod(channel, -portamentoStep(parameter, false));
        break;
    case EffectTonePortamento:
        tonePortamentoS3m(channel);
        break;
    case EffectVibrato:
    case EffectS3mFineVibrato:
        vibrateS3m(channel, false, impulseTrackerS3m);
        break;
    case EffectTremor:
        applyTremor(channel, parameter);
        break;
    case EffectS3mArpeggio:
        applyArpeggio(channel, parameter);
        break;
    case EffectS3mVibratoVolumeSlide:
        vibrateS3m(channel, false, impulseTrackerS3m);
        channel.addVolume(volumeSlideStep(parameter, false, false));
        break;
    case EffectS3mTonePortamentoVolumeSlide:
        tonePortamentoS3m(channel);
        channel.addVolume(volumeSlideStep(parameter, false, false));
        break;
    case EffectMultiRetrigger:
        retriggerS3mNote(channel);
        break;
    case EffectTremolo:
        tremoloS3m(channel, false);
        break;
    case EffectS3mExtended:
        if (high(parameter) == S3mExtendedNoteCut && tickInRow == low(parameter))
            cutNote(channel);
        break;
    case EffectS3mGlobalVolumeSlide:
        globalLevel = std::clamp(globalLevel + volumeSlideStep(channel.s3m.globalVolumeSlide, false, false), 0, 64);
        break;
    case EffectS3mPanbrello:
        applyPanbrello(channel);
        break;
    default:  // T's slide is the song's, once a tick (playLaterTick)
        break;
    }
}

// ---- Building blocks -----------------------------------------------------------

// With glissando on, the slide moves a period of its own and the channel
// keeps the semitone at or above it, after the slide as well.
void Sequencer::tonePortamentoS3m(Channel& channel) {
    S3mEffectState& state = channel.s3m;
    if (!channel.glissando)
        return tonePortamento(channel);
    if (channel.period != state.glissandoNote || state.glissandoPeriod <= 0)
        state.glissandoPeriod = channel.period;  // a slide from the pitch that plays
    channel.period = state.glissandoPeriod;
    tonePortamento(channel);
    state.glissandoPeriod = channel.period;
    channel.period = state.glissandoNote = channel.tickPeriod;
}

void Sequencer::slideS3mPeriod(Channel& channel, int32_t delta) {
    if (channel.period <= 0 || delta == 0)
        return;
    channel.period = channel.tickPeriod = std::min(channel.period + delta, periods.maximum());
    if (channel.period <= 0)
        cutNote(channel);
}

// Qxy: the sample starts again every y ticks and the volume changes by x.
// ST3 counts the ticks of Q since the channel's last note and retriggers on
// each multiple of y (y = 0 as 1); Impulse Tracker counts y ticks down from
// the last retrigger, or from a note beside the Q.
void Sequencer::retriggerS3mNote(Channel& channel) {
    int32_t every = low(channel.parameter);
    int32_t& ticks = channel.s3m.retriggerTicks;
    bool retrigger = false;
    if (!impulseTrackerS3m) {
        retrigger = ticks > 0 && ticks % std::max(every, 1) == 0;
        ++ticks;
    } else if (tickInRow == 0 && channel.noteOnRow) {
        ticks = every;
    } else if (ticks == 0 || --ticks == 0) {
        retrigger = true;
        ticks = every;
    }
    if (retrigger && channel.playing) {
        triggerSample(channel, 0);
        channel.setVolumeInQuarters(retriggeredLevel(channel.volumeInQuarters(), high(channel.parameter)));
    }
}

}  // namespace mod
