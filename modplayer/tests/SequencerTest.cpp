// Tests of the sequencer on songs built in the test, a few rows each: what
// it computes tick by tick for the effects and instrument settings that are
// easy to get wrong (MOD, S3M by both trackers' rules, XM by FT2's), how it
// moves through rows and orders and where it ends, and the frequencies of
// both XM period systems. Whole songs are compared with the reference player
// by bench/compare-modules.sh; these pin the details.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "modplayer/ModulePlayer.h"
#include "modplayer/PlayerTables.h"
#include "modplayer/Sequencer.h"
#include "modplayer/tests/SongBuilder.h"

using namespace mod;

namespace {

enum Observed { Period, Volume, Trigger, StartFrame, Swap, EnvelopeVolume, Fadeout, AutoVibrato };

int32_t observe(const Channel& channel, Observed what) {
    switch (what) {
    case Period:
        return channel.tickPeriod + channel.vibratoOffset;
    case Volume:
        return channel.output.volume / 1024;  // 0..64 at full global volume
    case Trigger:
        return channel.output.trigger;
    case StartFrame:
        return channel.output.trigger ? int32_t(channel.output.startFrame) : -1;
    case Swap:  // 1: at the loop's end; 2: at once
        return channel.output.swap ? 1 : channel.output.switchNow ? 2 : 0;
    case EnvelopeVolume:
        return channel.envelopeVolume;
    case Fadeout:
        return channel.fadeoutVolume / 1024;
    case AutoVibrato:
        return channel.autoVibratoOffset;
    }
    return 0;
}

// Channel 0's value on `count` ticks from the start of row `row` (speed 6).
std::vector<int32_t> ticksFrom(const Module& module, int32_t row, size_t count, Observed what) {
    Sequencer sequencer;
    EXPECT_TRUE(sequencer.start(module, 0));
    std::vector<int32_t> values;
    while (values.size() < count) {
        int32_t playing = sequencer.row();
        if (!sequencer.playTick())
            break;
        if (playing >= row)
            values.push_back(observe(sequencer.channel(0), what));
    }
    return values;
}

constexpr uint8_t c4 = 48;  // period 1712 in quarter Amiga periods, 4608 linear

int32_t amiga(int32_t note) {
    buildPlayerTables();
    return amigaPeriods[note];
}

// S3M periods count sixteenths of a quarter period: C-4 at 8363 Hz is 1712 * 16.
constexpr int32_t st3C4 = 1712 * 16;

Envelope envelope(std::initializer_list<std::pair<int, int>> points, uint8_t flags, uint8_t sustain = 0,
                  uint8_t loopStart = 0, uint8_t loopEnd = 0) {
    Envelope result;
    for (auto [position, value] : points)
        result.points.add({uint16_t(position), int16_t(value)});
    result.flags = flags;
    result.sustainPoint = sustain;
    result.loopStartPoint = loopStart;
    result.loopEndPoint = loopEnd;
    return result;
}

using SongChange = std::function<void(SongBuilder&)>;

void impulseTracker(SongBuilder& b) { b.module.trackerName = "Impulse Tracker 2.14"; }
void fastVolumeSlides(SongBuilder& b) { b.module.fastVolumeSlides = 1; }
void sampleAt11200Hz(SongBuilder& b) { b.sample(64, 255, 0, 0, 0, {}, 11200); }  // instrument 3

// A cell of channel 0 in pattern 0.
struct Cell {
    int32_t row;
    uint8_t note, instrument, effect = 0, parameter = 0, volume = 0;
};

}  // namespace

TEST(Sequencer, EffectsTickByTick) {
    const uint8_t _ = noNote, E = EffectExtended, S = EffectS3mExtended;
    const struct {
        const char* what;
        int32_t format;
        std::vector<Cell> cells;
        int32_t row;  // the first observed
        Observed observed;
        std::vector<int32_t> expected;
        SongChange setup = nullptr;
    } cases[] = {
        {"arpeggio: base, +x, +y from the row's start", FormatMod, {{0, c4, 1, EffectArpeggio, 0x37}}, 0, Period,
         {1712, amiga(51), amiga(55), 1712, amiga(51), amiga(55)}},
        {"XM arpeggio counts its ticks down from the speed", FormatXm, {{0, c4, 1, EffectArpeggio, 0x37}}, 0, Period,
         {4608, 4608 - 7 * 64, 4608 - 3 * 64, 4608, 4608 - 7 * 64, 4608 - 3 * 64}},
        {"portamento up: 4 units a step after the first tick", FormatMod, {{0, c4, 1, EffectPortamentoUp, 0x10}}, 0,
         Period, {1712, 1648, 1584, 1520, 1456, 1392}},
        {"portamento up stops at ProTracker's B-3", FormatMod, {{0, 71, 1, EffectPortamentoUp, 0x01}}, 0, Period,
         {amiga(71), 452, 452, 452, 452, 452}},
        {"tone portamento stops on its target", FormatMod, {{0, c4, 1}, {1, c4 + 2, 0, EffectTonePortamento, 0x10}},
         1, Period, {1712, 1648, 1584, amiga(50), amiga(50), amiga(50)}},
        {"tone portamento with glissando moves in semitones", FormatMod,
         {{0, c4, 1, E, 0x31}, {1, c4 + 2, 0, EffectTonePortamento, 0x08}}, 1, Period,
         {1712, amiga(49), amiga(49), amiga(49), amiga(50), amiga(50)}},
        {"tone portamento memory (300)", FormatMod,
         {{0, c4 + 2, 1, EffectTonePortamento, 0x08}, {1, c4, 0, EffectTonePortamento, 0x00}}, 1, Period,
         {amiga(50), amiga(50) + 32, amiga(50) + 64, amiga(50) + 96, amiga(50) + 128, amiga(50) + 160}},
        {"vibrato sine: period up first, zero on the row's first tick", FormatMod, {{0, c4, 1, EffectVibrato, 0x88}},
         0, Period, {1712, 1712, 1712 + 45, 1712 + 63, 1712 + 45, 1712}},
        {"vibrato ramp (E41) rises through the cycle", FormatMod, {{0, _, 0, E, 0x41}, {1, c4, 1, EffectVibrato, 0x88}},
         1, Period, {1712, 1712, 1712 + 16, 1712 + 32, 1712 + 48, 1712 - 63}},
        {"vibrato square (E42)", FormatMod, {{0, _, 0, E, 0x42}, {1, c4, 1, EffectVibrato, 0x88}}, 1, Period,
         {1712, 1712 + 63, 1712 + 63, 1712 + 63, 1712 + 63, 1712 - 63}},
        {"vibrato keeps its phase across notes after E44", FormatMod,
         {{0, _, 0, E, 0x44}, {1, c4, 1, EffectVibrato, 0x88}, {2, c4, 1, EffectVibrato, 0x00}}, 2, Period,
         {1712, 1712 - 45, 1712 - 63, 1712 - 45, 1712, 1712 + 45}},
        {"tremolo on the volume", FormatMod, {{0, c4, 1, EffectTremolo, 0x88}}, 0, Volume, {32, 32, 54, 63, 54, 32}},
        {"volume slide down", FormatMod, {{0, c4, 1, EffectVolumeSlide, 0x04}}, 0, Volume, {32, 28, 24, 20, 16, 12}},
        {"volume slide: up wins over down, stops at 64", FormatMod, {{0, c4, 1, EffectVolumeSlide, 0xF4}}, 0, Volume,
         {32, 47, 62, 64, 64, 64}},
        {"XM volume slide memory (A00)", FormatXm,
         {{0, c4, 1, EffectVolumeSlide, 0x02}, {1, _, 0, EffectVolumeSlide, 0x00}}, 1, Volume,
         {22, 20, 18, 16, 14, 12}},
        {"fine volume up once", FormatMod, {{0, c4, 1, E, 0xA4}}, 0, Volume, {36, 36, 36, 36, 36, 36}},
        {"retrigger every 2 ticks", FormatMod, {{0, c4, 1, E, 0x92}}, 0, Trigger, {1, 0, 1, 0, 1, 0}},
        {"note cut at tick 2", FormatMod, {{0, c4, 1, E, 0xC2}}, 0, Volume, {32, 32, 0, 0, 0, 0}},
        {"note delay starts the note at its tick", FormatMod, {{0, c4, 1, E, 0xD3}}, 0, Trigger, {0, 0, 0, 1, 0, 0}},
        {"note delay beyond the speed never starts the note", FormatMod, {{0, c4, 1, E, 0xD6}}, 0, Trigger,
         {0, 0, 0, 0, 0, 0}},
        {"sample offset 9xx starts xx * 256 frames in", FormatMod, {{0, c4, 1, EffectSampleOffset, 0x04}}, 0,
         StartFrame, {1024, -1, -1, -1, -1, -1}},
        {"sample offset memory (900)", FormatMod,
         {{0, c4, 1, EffectSampleOffset, 0x03}, {1, c4, 1, EffectSampleOffset, 0x00}}, 1, StartFrame,
         {768, -1, -1, -1, -1, -1}},
        {"ProTracker: a note without an instrument starts where 9xx left the start, twice on after a note",
         FormatMod, {{0, c4, 1, EffectSampleOffset, 0x04}, {1, c4, 0}}, 1, StartFrame, {2048, -1, -1, -1, -1, -1}},
        {"ProTracker: 9xx without a note moves the start once", FormatMod,
         {{0, c4, 1}, {1, _, 0, EffectSampleOffset, 0x04}, {2, c4, 0}}, 2, StartFrame, {1024, -1, -1, -1, -1, -1}},
        {"sample offset past the end of a looped sample: the loop start", FormatMod,
         {{0, c4, 2, EffectSampleOffset, 0x20}}, 0, StartFrame, {100, -1, -1, -1, -1, -1}},
        {"sample offset past the end of an unlooped sample: silence", FormatMod,
         {{0, c4, 1, EffectSampleOffset, 0x20}}, 0, Volume, {0, 0, 0, 0, 0, 0}},
        {"finetune E5F applies to the note beside it (ProTracker's C-2 at finetune -1)", FormatMod,
         {{0, c4, 1, E, 0x5F}}, 0, Period, {431 * 4, 431 * 4, 431 * 4, 431 * 4, 431 * 4, 431 * 4}},
        {"MOD: an instrument alone hands its sample to the voice", FormatMod, {{0, c4, 1}, {1, _, 2}}, 1, Swap,
         {1, 0, 0, 0, 0, 0}},
        {"MOD: the same instrument alone swaps nothing", FormatMod, {{0, c4, 1}, {1, _, 1}}, 1, Swap,
         {0, 0, 0, 0, 0, 0}},
        {"ST3: an instrument alone keeps the sample", FormatS3m, {{0, c4, 1}, {1, _, 2}}, 1, Swap, {0, 0, 0, 0, 0, 0}},
        {"XM: an instrument alone keeps the sample", FormatXm, {{0, c4, 1}, {1, _, 2}}, 1, Swap, {0, 0, 0, 0, 0, 0}},
        {"Impulse Tracker's S3M: an instrument alone switches the sample at once", FormatS3m,
         {{0, c4, 1}, {1, _, 2}}, 1, Swap, {2, 0, 0, 0, 0, 0}, impulseTracker},

        {"S3M D04 slides after the first tick", FormatS3m, {{0, c4, 1, EffectS3mVolumeSlide, 0x04}}, 0, Volume,
         {32, 28, 24, 20, 16, 12}},
        {"S3M fast volume slides act on the first tick too", FormatS3m, {{0, c4, 1, EffectS3mVolumeSlide, 0x04}}, 0,
         Volume, {28, 24, 20, 16, 12, 8}, fastVolumeSlides},
        {"S3M D0F slides on every tick", FormatS3m, {{0, c4, 1, EffectS3mVolumeSlide, 0x0F}}, 0, Volume,
         {17, 2, 0, 0, 0, 0}},
        {"S3M DF4 slides down once", FormatS3m, {{0, c4, 1, EffectS3mVolumeSlide, 0xF4}}, 0, Volume,
         {28, 28, 28, 28, 28, 28}},
        {"S3M D4F slides up once", FormatS3m, {{0, c4, 1, EffectS3mVolumeSlide, 0x4F}}, 0, Volume,
         {36, 36, 36, 36, 36, 36}},
        {"S3M EF2: fine portamento down once", FormatS3m, {{0, c4, 1, EffectS3mPortamentoDown, 0xF2}}, 0, Period,
         {st3C4 + 128, st3C4 + 128, st3C4 + 128, st3C4 + 128, st3C4 + 128, st3C4 + 128}},
        {"S3M EE2: extra-fine portamento, a quarter of a step", FormatS3m,
         {{0, c4, 1, EffectS3mPortamentoDown, 0xE2}}, 0, Period,
         {st3C4 + 32, st3C4 + 32, st3C4 + 32, st3C4 + 32, st3C4 + 32, st3C4 + 32}},
        {"S3M F02 after the first tick", FormatS3m, {{0, c4, 1, EffectS3mPortamentoUp, 0x02}}, 0, Period,
         {st3C4, st3C4 - 128, st3C4 - 256, st3C4 - 384, st3C4 - 512, st3C4 - 640}},
        {"S3M portamento to period 0 cuts the note", FormatS3m, {{0, 84, 1, EffectS3mPortamentoUp, 0x7F}}, 0, Volume,
         {32, 0, 0, 0, 0, 0}},
        {"ST3's shared memory: D00 takes the last parameter of any effect", FormatS3m,
         {{0, c4, 1, EffectS3mPortamentoDown, 0x40}, {1, _, 0, EffectS3mVolumeSlide, 0x00}}, 1, Volume,
         {32, 36, 40, 44, 48, 52}},
        {"Impulse Tracker's S3M: D00 takes D's own memory", FormatS3m,
         {{0, c4, 1, EffectS3mPortamentoDown, 0x40}, {1, _, 0, EffectS3mVolumeSlide, 0x00}}, 1, Volume,
         {32, 32, 32, 32, 32, 32}, impulseTracker},
        {"ST3 period of G-3 at 11200 Hz", FormatS3m, {{0, 43, 3}}, 0, Period,
         {27232, 27232, 27232, 27232, 27232, 27232}, sampleAt11200Hz},
        {"Impulse Tracker's S3M: notes in whole hertz (G-3 at 11200 Hz: 8390 Hz)", FormatS3m, {{0, 43, 3}}, 0, Period,
         {27304, 27304, 27304, 27304, 27304, 27304}, [](SongBuilder& b) { impulseTracker(b), sampleAt11200Hz(b); }},
        {"Impulse Tracker's S3M: arpeggio on whole-hertz semitones (G-4, D-5 at 11200 Hz)", FormatS3m,
         {{0, 55, 3, EffectS3mArpeggio, 0x07}}, 0, Period, {13651, 13651, 9111, 13651, 13651, 9111},
         [](SongBuilder& b) { impulseTracker(b), b.sample(64, 255, 0, 0, 64, {}, 11200); }},
        {"S3M vibrato shows where it stands on the first tick", FormatS3m,
         {{0, c4, 1, EffectVibrato, 0x48}, {1, _, 0, EffectVibrato, 0x00}}, 1, Period,
         {st3C4 + 928, st3C4 + 928, st3C4 + 720, st3C4 + 384, st3C4, st3C4 - 384}},
        {"ST3: H00 after U4F vibrates four times as deep", FormatS3m,
         {{0, c4, 1, EffectS3mFineVibrato, 0x4F}, {1, _, 0, EffectVibrato, 0}}, 1, Period,
         {st3C4 + 1744, st3C4 + 1744, st3C4 + 1344, st3C4 + 720, st3C4, st3C4 - 720}},
        {"S3M glissando: the semitone reached stays after the slide", FormatS3m,
         {{0, c4, 1, S, 0x11}, {1, c4 + 4, 0, EffectTonePortamento, 0x03}}, 2, Period,
         {1616 * 16, 1616 * 16, 1616 * 16, 1616 * 16, 1616 * 16, 1616 * 16}},
        {"S3M tremor I21: on 3 ticks, off 2", FormatS3m, {{0, c4, 1, EffectTremor, 0x21}}, 0, Volume,
         {32, 32, 32, 0, 0, 32}},
        {"S3M retrigger Q61: every tick, volume times 10/16 in quarter steps", FormatS3m,
         {{0, c4, 1, EffectMultiRetrigger, 0x61, volumeSetBase + 41}}, 0, Volume, {41, 25, 15, 9, 6, 3}},
        {"ST3 retrigger counts the ticks of Q since the note", FormatS3m,
         {{0, c4, 1}, {1, _, 0, EffectMultiRetrigger, 0x03}}, 1, Trigger, {0, 0, 0, 1, 0, 0}},
        {"Impulse Tracker's retrigger counts down from its last one", FormatS3m,
         {{0, c4, 1}, {1, _, 0, EffectMultiRetrigger, 0x03}}, 1, Trigger, {1, 0, 0, 1, 0, 0}, impulseTracker},
        {"S3M SC0 cuts nothing", FormatS3m, {{0, c4, 1, S, 0xC0}}, 0, Volume, {32, 32, 32, 32, 32, 32}},
        {"S3M SD0 never plays its cell", FormatS3m, {{0, c4, 1, S, 0xD0}}, 0, Trigger, {0, 0, 0, 0, 0, 0}},

        {"XM volume envelope holds on its sustain until key off, then goes on", FormatXm,
         {{0, c4, 1}, {1, noteKeyOff, 0}}, 0, EnvelopeVolume, {64, 48, 32, 32, 32, 32, 24, 16, 8, 0, 0, 0},
         [](SongBuilder& b) {
             b.module.instruments[0].volumeEnvelope =
                 envelope({{0, 64}, {2, 32}, {6, 0}}, envelopeOn | envelopeSustain, 1);
         }},
        {"XM envelope loop goes back to its start on reaching its end", FormatXm, {{0, c4, 1}}, 0, EnvelopeVolume,
         {0, 32, 64, 32, 64, 32}, [](SongBuilder& b) {
             b.module.instruments[0].volumeEnvelope =
                 envelope({{0, 0}, {2, 64}, {4, 0}}, envelopeOn | envelopeLoop, 0, 1, 2);
         }},
        {"XM sustain on the loop end holds until key off; released, the envelope leaves the loop", FormatXm,
         {{0, c4, 1}, {1, noteKeyOff, 0}}, 0, EnvelopeVolume, {0, 32, 64, 40, 16, 16, 24, 32, 40, 48, 48, 48},
         [](SongBuilder& b) {
             b.module.instruments[0].volumeEnvelope = envelope(
                 {{0, 0}, {2, 64}, {4, 16}, {8, 48}}, envelopeOn | envelopeLoop | envelopeSustain, 2, 1, 2);
         }},
        {"XM fadeout after key off, twice the instrument's value of 65536 per tick", FormatXm,
         {{0, c4, 1}, {1, noteKeyOff, 0}}, 1, Fadeout, {48, 32, 16, 0, 0, 0}, [](SongBuilder& b) {
             b.module.instruments[0].volumeEnvelope = envelope({{0, 64}}, envelopeOn);
             b.module.instruments[0].fadeout = 8192;
         }},
        {"XM key off without a volume envelope cuts the volume", FormatXm, {{0, c4, 1}, {1, noteKeyOff, 0}}, 1,
         Volume, {0, 0, 0, 0, 0, 0}},
        {"XM Kxx releases the key on tick xx", FormatXm, {{0, c4, 1, EffectKeyOff, 2}}, 0, Volume,
         {32, 32, 0, 0, 0, 0}},
        {"XM: an instrument number alone after key off restores the volume and the key", FormatXm,
         {{0, c4, 1}, {1, noteKeyOff, 0}, {2, _, 1}}, 1, Volume, {0, 0, 0, 0, 0, 0, 32, 32, 32, 32, 32, 32}},
        {"XM auto-vibrato sweeps its depth up over the sweep's ticks (square, rate 64)", FormatXm, {{0, c4, 1}}, 0,
         AutoVibrato, {-2, 4, 6, -8, -8, 8}, [](SongBuilder& b) {
             ModuleInstrument& i = b.module.instruments[0];
             i.vibratoType = 1, i.vibratoDepth = 8, i.vibratoSweep = 4, i.vibratoRate = 64;
         }},
        {"XM volume column: fine slide up once, then set volume", FormatXm,
         {{0, c4, 1, 0, 0, volumeFineUp | 4}, {1, _, 0, 0, 0, volumeSetBase + 10}}, 0, Volume,
         {36, 36, 36, 36, 36, 36, 10, 10, 10, 10, 10, 10}},
        {"XM volume column: slide down after the first tick", FormatXm, {{0, c4, 1, 0, 0, volumeSlideDown | 2}}, 0,
         Volume, {32, 30, 28, 26, 24, 22}},
        {"XM volume column: vibrato with its own speed and depth", FormatXm,
         {{0, c4, 1, 0, 0, volumeVibratoSpeed | 8}, {1, _, 0, 0, 0, volumeVibrato | 8}}, 1, Period,
         {4608, 4608, 4608 + 45, 4608 + 63, 4608 + 45, 4608}},
        {"XM volume column: tone portamento at x * 16, sharing 3xx's memory", FormatXm,
         {{0, c4, 1}, {1, c4 + 2, 0, 0, 0, volumeTonePortamento | 2}, {2, _, 0, EffectTonePortamento, 0}}, 1, Period,
         {4608, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480}},
        {"XM Rxy: retrigger every 2 ticks from the row's start", FormatXm, {{0, c4, 1, EffectMultiRetrigger, 0x02}}, 0,
         Trigger, {1, 1, 0, 1, 0, 1}},
        {"XM Rxy: x = 7 halves the volume on each retrigger", FormatXm, {{0, c4, 1, EffectMultiRetrigger, 0x71}}, 0,
         Volume, {32, 16, 8, 4, 2, 1}},
        {"XM Rxy: x = 6 takes 10/16 of the volume in quarter steps, keeping the quarters", FormatXm,
         {{0, c4, 1, EffectMultiRetrigger, 0x61}, {1, _, 0, EffectVolumeSlide, 0x10}}, 0, Volume,
         {32, 20, 12, 7, 4, 2, 2, 3, 4, 5, 6, 7}},
        {"XM tremolo acts on the first tick too, where its wave stands", FormatXm,
         {{0, c4, 1, EffectTremolo, 0x48}, {1, _, 0, EffectTremolo, 0x48}}, 1, Volume, {61, 61, 54, 43, 32, 21}},
        {"XM vibrato: an instrument number alone keeps its wave going, a note restarts it", FormatXm,
         {{0, c4, 1, EffectVibrato, 0x88}, {1, _, 1, EffectVibrato, 0x88}, {2, c4, 0, EffectVibrato, 0x88}}, 1, Period,
         {4563, 4563, 4545, 4563, 4608, 4653, 4608, 4608, 4653, 4671, 4653, 4608}},
        {"XM Rxy counts on from E9x's ticks since its last retrigger", FormatXm,
         {{0, c4, 1}, {1, _, 0, E, 0x93}, {2, _, 0, EffectMultiRetrigger, 0x03}}, 2, Trigger, {0, 1, 0, 0, 1, 0}},
        {"XM Txy: on x + 1 ticks, off y + 1, counted after the first tick", FormatXm,
         {{0, c4, 1, EffectTremor, 0x11}}, 0, Volume, {32, 32, 32, 0, 0, 32}},
        {"XM E90 retriggers on the first tick, E93 on every third", FormatXm,
         {{0, c4, 1}, {1, _, 0, E, 0x90}, {2, _, 0, E, 0x93}}, 1, Trigger, {1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0}},
    };
    for (const auto& c : cases) {
        SongBuilder builder(c.format);
        builder.sample(4096, 127);                // instrument 1: volume 32, unlooped
        builder.sample(2048, 127, 0, 100, 2000);  // instrument 2: looped
        if (c.setup)
            c.setup(builder);
        for (const Cell& cell : c.cells) {
            builder.note(0, cell.row, 0, cell.note, cell.instrument, cell.effect, cell.parameter);
            builder.cell(0, cell.row, 0).volume = cell.volume;
        }
        EXPECT_EQ(ticksFrom(builder.song(), c.row, c.expected.size(), c.observed), c.expected) << c.what;
    }
}

namespace {

// The (order, row) of every row the song plays, in order, until it ends
// (at most `limit` rows).
std::vector<std::pair<int32_t, int32_t>> rowsPlayed(const Module& module, int32_t subsong = 0, int32_t limit = 4000) {
    Sequencer sequencer;
    std::vector<std::pair<int32_t, int32_t>> rows;
    if (!sequencer.start(module, subsong))
        return rows;
    while (int32_t(rows.size()) < limit) {
        std::pair<int32_t, int32_t> at = {sequencer.orderPosition(), sequencer.row()};
        bool rowStart = sequencer.tick() == 0;
        if (!sequencer.playTick())
            break;
        if (rowStart)
            rows.push_back(at);
    }
    return rows;
}

using Rows = std::vector<std::pair<int32_t, int32_t>>;

Rows run(int32_t order, int32_t from, int32_t to) {
    Rows rows;
    for (int32_t r = from; r <= to; ++r)
        rows.push_back({order, r});
    return rows;
}

Rows operator+(Rows a, const Rows& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace

TEST(Sequencer, RowsAndOrdersUntilTheEnd) {
    using Setup = std::function<void(SongBuilder&)>;
    const struct {
        const char* what;
        Setup setup;
        std::vector<uint16_t> orders;
        Rows expected;
        int32_t format = FormatMod;
    } cases[] = {
        {"a jump back to itself ends the song at the first revisit",
         [](SongBuilder& b) { b.effect(0, 3, 1, EffectPositionJump, 0); }, {0}, run(0, 0, 3)},
        {"pattern loop: E60 marks, E62 repeats twice; replays are no revisits",
         [](SongBuilder& b) {
             b.effect(0, 1, 0, EffectExtended, 0x60);
             b.effect(0, 2, 0, EffectExtended, 0x62);
             b.effect(0, 4, 1, EffectPositionJump, 0);
         },
         {0}, run(0, 0, 2) + run(0, 1, 2) + run(0, 1, 4)},
        {"a loop counted again by a pattern delay never ends, yet the song does",
         [](SongBuilder& b) {
             b.effect(0, 0, 0, EffectExtended, 0x60);
             b.effect(0, 2, 0, EffectExtended, 0x62);
             b.effect(0, 2, 1, EffectExtended, 0xE1);
         },
         // Row 2 plays twice each pass, and counts 2 -> 1, then 0 and anew
         // 2, then 1 -> 0 ... until the counts come round again.
         {0}, run(0, 0, 2) + run(0, 2, 2) + run(0, 0, 2) + run(0, 2, 2) + run(0, 0, 2) + run(0, 2, 2)},
        {"pattern break goes to the decimal row of the next order",
         [](SongBuilder& b) { b.effect(0, 2, 0, EffectPatternBreak, 0x12); }, {0, 0}, run(0, 0, 2) + run(1, 12, 15)},
        {"a jump after a break in a later channel starts at row 0",
         [](SongBuilder& b) {
             b.effect(0, 2, 0, EffectPatternBreak, 0x05);
             b.effect(0, 2, 1, EffectPositionJump, 2);
         },
         {0, 0, 0}, run(0, 0, 2) + run(2, 0, 2)},
        {"a break after a jump names the row",
         [](SongBuilder& b) {
             b.effect(0, 2, 0, EffectPositionJump, 2);
             b.effect(0, 2, 1, EffectPatternBreak, 0x05);
         },
         {0, 0, 0}, run(0, 0, 2) + run(2, 5, 15)},
        {"order 255 ends and 254 is skipped in mode 4",
         [](SongBuilder& b) { b.module.playbackMode = ModeS3m; }, {0, 254, 0, 255, 0},
         run(0, 0, 15) + run(2, 0, 15)},
        {"orders naming missing patterns play the substitute",
         [](SongBuilder& b) { b.module.substitutePattern = 0; }, {0, 9}, run(0, 0, 15) + run(1, 0, 15)},
        {"F00 is no stop for MOD", [](SongBuilder& b) { b.effect(0, 1, 0, EffectSetSpeedTempo, 0); }, {0},
         run(0, 0, 15)},
        {"F00 ends an XM song after its row", [](SongBuilder& b) { b.effect(0, 1, 0, EffectSetSpeedTempo, 0); }, {0},
         run(0, 0, 1), FormatXm},
        {"ST3: one pattern loop for all channels; the next starts after a finished one",
         [](SongBuilder& b) {
             b.effect(0, 1, 1, EffectS3mExtended, 0xB0);
             b.effect(0, 2, 0, EffectS3mExtended, 0xB0);
             b.effect(0, 3, 1, EffectS3mExtended, 0xB1);
             b.effect(0, 4, 0, EffectS3mExtended, 0xB1);
         },
         {0}, run(0, 0, 3) + run(0, 2, 4) + run(0, 4, 15), FormatS3m},
        {"S3M: the first channel's SEx sets the delay",
         [](SongBuilder& b) {
             b.effect(0, 1, 0, EffectS3mExtended, 0xE1);
             b.effect(0, 1, 1, EffectS3mExtended, 0xE3);
         },
         {0}, run(0, 0, 1) + run(0, 1, 15), FormatS3m},
    };
    for (const auto& c : cases) {
        SongBuilder builder(c.format, 4, 1, 16);
        builder.sample(64);
        builder.note(0, 0, 3, c4);
        c.setup(builder);
        EXPECT_EQ(rowsPlayed(builder.song(c.orders)), c.expected) << c.what;
    }
}

TEST(Sequencer, PatternDelayRepeatsTheRowAndItsNoteDelay) {
    const struct {
        const char* what;
        int32_t format;
        int32_t delayRow;
        std::vector<int32_t> triggerTicks;
    } cases[] = {
        // Three passes of six ticks on row 0, the note at tick 2 of each.
        {"MOD: the delayed note starts in every pass", FormatMod, 0, {2, 8, 14}},
        {"XM: the delayed note starts in every pass", FormatXm, 0, {2, 8, 14}},
        {"XM: a delay on the next row starts no note", FormatXm, 1, {2}},
        {"MOD: a delay on the next row starts no note", FormatMod, 1, {2}},
    };
    for (const auto& c : cases) {
        SongBuilder builder(c.format, 4, 1, 16);
        builder.sample(64);
        builder.note(0, 0, 0, c4, 1, EffectExtended, 0xD2);
        builder.effect(0, c.delayRow, 1, EffectExtended, 0xE2);
        builder.effect(0, c.delayRow + 1, 1, EffectPositionJump, 0);
        Sequencer sequencer;
        ASSERT_TRUE(sequencer.start(builder.song(), 0));
        std::vector<int32_t> triggers;
        for (int32_t tick = 0; sequencer.playTick(); ++tick)
            if (sequencer.channel(0).output.trigger)
                triggers.push_back(tick);
        EXPECT_EQ(triggers, c.triggerTicks) << c.what;
    }
}

TEST(Sequencer, SubsongStartsAtItsOwnPosition) {
    SongBuilder builder(FormatMod, 4, 2, 16);
    builder.sample(64);
    builder.note(0, 0, 0, c4);
    builder.effect(0, 15, 0, EffectPositionJump, 0);  // the first song loops on itself
    builder.note(1, 0, 0, c4 + 12);
    Module& module = builder.song({0, 1});
    ASSERT_EQ(module.subsongs.count(), 2);
    EXPECT_EQ(rowsPlayed(module, 1), run(1, 0, 15));
    EXPECT_EQ(rowsPlayed(module, 0), run(0, 0, 15));
    EXPECT_TRUE(rowsPlayed(module, 2).empty());
}

TEST(Sequencer, TicksLastRateTimesTwoAndAHalfOverTempo) {
    SongBuilder builder(FormatMod, 4, 1, 64);
    builder.sample(64);
    builder.effect(0, 0, 0, EffectSetSpeedTempo, 97);  // 1136.6 frames a tick at 44100 Hz
    builder.effect(0, 0, 1, EffectSetSpeedTempo, 3);
    builder.effect(0, 32, 0, EffectSetSpeedTempo, 0xC2);
    Module& module = builder.song();
    // Whole frames a tick: 1136 at tempo 97 and 568 at tempo 194.
    EXPECT_NEAR(subsongDuration(module, 0), (32 * 3 * 1136 + 32 * 3 * 568) / 44100.0, 1e-9);
    for (uint32_t rate : {44100u, 48000u, 8000u}) {
        ModulePlayer player;
        PlayerSettings settings;
        settings.sampleRate = rate;
        ASSERT_TRUE(player.start(module, 0, settings));
        std::vector<int16_t> out(size_t(rate) * 2 * 4);
        int32_t frames = player.render(out.data(), int32_t(out.size() / 2));
        const int32_t ticks = 32 * 3;
        EXPECT_EQ(frames, ticks * Sequencer::framesPerTick(rate, 97) + ticks * Sequencer::framesPerTick(rate, 194))
            << rate;
        EXPECT_NEAR(subsongDuration(module, 0, rate), double(frames) / rate, 1e-9) << rate;
        EXPECT_TRUE(player.ended());
        EXPECT_EQ(player.render(out.data(), 100), 0);
    }
}

// T05 slows tempo 125 by 5 on each tick after the row's first; S62 adds two
// ticks to the row; the frames played and the duration scan agree on it.
TEST(Sequencer, S3mTempoSlideAndFinePatternDelay) {
    SongBuilder builder(FormatS3m, 2, 1, 4);
    builder.sample(64);
    builder.module.initialSpeed = 4;
    builder.effect(0, 1, 0, EffectS3mSetTempo, 0x05);
    builder.effect(0, 1, 1, EffectS3mExtended, 0x62);
    Module& module = builder.song();
    int64_t slid = 0;
    for (int32_t tempo = 125, tick = 0; tick < 6; ++tick, tempo -= 5)
        slid += Sequencer::framesPerTick(44100, tick == 0 ? 125 : tempo);
    int64_t expected = 4 * 882 + slid + 2 * 4 * Sequencer::framesPerTick(44100, 100);
    EXPECT_NEAR(subsongDuration(module, 0), expected / 44100.0, 1e-9);
    ModulePlayer player;
    ASSERT_TRUE(player.start(module, 0, PlayerSettings()));
    std::vector<int16_t> out(size_t(expected + 100) * 2);
    EXPECT_EQ(player.render(out.data(), int32_t(expected + 100)), expected);
}

TEST(Sequencer, LoopingPlaysOnPastTheEnd) {
    SongBuilder builder(FormatMod, 4, 1, 4);
    builder.sample(64, 255, 0, 0, 64);
    builder.note(0, 0, 0, c4);
    ModulePlayer player;
    ASSERT_TRUE(player.start(builder.song(), 0, PlayerSettings()));
    player.setLooping(true);
    std::vector<int16_t> out(44100 * 2 * 3);  // 3 s of a 0.48 s song
    EXPECT_EQ(player.render(out.data(), 44100 * 3), 44100 * 3);
    EXPECT_FALSE(player.ended());
}

// Random cells over random songs: every one renders to a definite end, as
// long as its duration says, with nothing out of bounds on the way.
TEST(Sequencer, GeneratedSongsRenderToTheirEnd) {
    std::mt19937 random(20240611);
    for (int32_t song = 0; song < 1000; ++song) {
        int32_t format = song % 3 == 0 ? FormatXm : song % 3 == 1 ? FormatMod : FormatS3m;
        SongBuilder builder(format, 1 + int32_t(random() % 8), 1 + int32_t(random() % 3), 1 + int32_t(random() % 24));
        builder.sample(1 + int32_t(random() % 3000), uint8_t(random()), int8_t(random()));
        builder.sample(200, 255, 0, int32_t(random() % 200), 200);
        builder.sample(0);
        for (ModulePattern& pattern : builder.module.patterns)
            for (PatternRow& row : pattern)
                for (PatternCell& cell : row)
                    if (random() % 3 == 0)
                        cell = {uint8_t(random() % 8 ? random() % 130 : 253 + random() % 3), uint8_t(random() % 5),
                                uint8_t(random()), uint8_t(random() % 8 ? random() % 16 : random() % 0x3D),
                                uint8_t(random())};
        std::vector<uint16_t> orders;
        for (uint32_t i = 0, n = 1 + random() % 6; i < n; ++i)
            orders.push_back(uint16_t(random() % 4));
        Module& module = builder.song(orders);
        module.initialTempo = uint8_t(32 + random() % 224);
        for (int32_t subsong = 0; subsong < module.subsongs.count(); ++subsong) {
            double seconds = subsongDuration(module, subsong, 8000);
            ModulePlayer player;
            PlayerSettings settings;
            settings.sampleRate = 8000;
            settings.channels = 1 + song % 2;
            ASSERT_TRUE(player.start(module, subsong, settings));
            std::vector<int16_t> out(4096 * 2);
            int64_t frames = 0;
            for (int32_t n; (n = player.render(out.data(), 4096)) > 0 && frames < 8000 * 3600;)
                frames += n;
            EXPECT_TRUE(player.ended()) << "song " << song;
            EXPECT_NEAR(double(frames), seconds * 8000, 2.0) << "song " << song;
        }
    }
}

// C-4 plays at 8363 Hz in both systems; a relative note moves it by
// semitones, the finetune by 1/128 semitone (in FT2's steps of 8). The
// Amiga table's periods are ProTracker's, a little off equal temperament.
TEST(XmPlayback, LinearAndAmigaFrequenciesAgree) {
    const struct {
        int32_t relativeNote, finetune;
        double hertz;
    } cases[] = {{0, 0, 8363.0},   {12, 0, 16726.0}, {-12, 0, 4181.5}, {0, -128, 8363.0 / std::pow(2.0, 1.0 / 12)},
                 {0, 64, 8363.0 * std::pow(2.0, 64.0 / 1536)}, {0, 71, 8363.0 * std::pow(2.0, 64.0 / 1536)},
                 {7, -8, 8363.0 * std::pow(2.0, 7.0 / 12 - 8.0 / 1536)}};
    for (bool amiga : {false, true})
        for (const auto& c : cases) {
            SongBuilder builder(FormatXm, 2, 1, 4);
            builder.module.usesAmigaPeriods = amiga;
            builder.sample(4096, 255, int8_t(c.finetune), 0, 4096, {}, c.relativeNote);
            builder.note(0, 0, 0, c4);
            Sequencer sequencer;
            ASSERT_TRUE(sequencer.start(builder.song(), 0));
            ASSERT_TRUE(sequencer.playTick());
            double hertz = double(sequencer.channel(0).output.frequency) / 65536;
            EXPECT_NEAR(hertz, c.hertz, c.hertz * (amiga ? 0.003 : 0.0005))
                << (amiga ? "Amiga" : "linear") << " relative " << c.relativeNote << " finetune " << c.finetune;
        }
}
