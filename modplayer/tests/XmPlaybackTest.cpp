// XM playback by FT2's rules on songs built in the test, a few rows each:
// instrument envelopes with sustain, loop and key off, fadeout, auto-vibrato
// sweep, the volume column, multi-retrigger, key off timing, and linear
// against Amiga frequencies. Whole songs are compared with the reference
// player by bench/compare-modules.sh; these pin the details tick by tick.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <initializer_list>
#include <utility>
#include <vector>

#include "modplayer/Sequencer.h"
#include "modplayer/tests/SongBuilder.h"

using namespace mod;

namespace {

constexpr uint8_t c4 = 48;

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

using Observe = std::function<int32_t(const Channel&)>;

// Channel 0's observed value on every tick of rows `firstRow`..`lastRow` (speed 6).
std::vector<int32_t> ticks(const Module& module, int32_t firstRow, int32_t lastRow, const Observe& observe) {
    Sequencer sequencer;
    EXPECT_TRUE(sequencer.start(module, 0));
    std::vector<int32_t> values;
    while (sequencer.row() <= lastRow) {
        int32_t row = sequencer.row();
        if (!sequencer.playTick())
            break;
        if (row >= firstRow)
            values.push_back(observe(sequencer.channel(0)));
    }
    return values;
}

int32_t envelopeVolume(const Channel& channel) { return channel.envelopeVolume; }
int32_t fadeout(const Channel& channel) { return channel.fadeoutVolume / 1024; }
int32_t volume(const Channel& channel) { return channel.output.volume / 1024; }
int32_t period(const Channel& channel) { return channel.tickPeriod + channel.vibratoOffset; }
int32_t autoVibrato(const Channel& channel) { return channel.autoVibratoOffset; }
int32_t trigger(const Channel& channel) { return channel.output.trigger; }

}  // namespace

TEST(XmPlayback, InstrumentsAndEffectsTickByTick) {
    using Setup = std::function<void(SongBuilder&, ModuleInstrument&)>;
    const struct {
        const char* what;
        Setup setup;
        int32_t firstRow, lastRow;
        Observe observe;
        std::vector<int32_t> expected;
    } cases[] = {
        {"volume envelope holds on its sustain until key off, then goes on",
         [](SongBuilder& b, ModuleInstrument& i) {
             i.volumeEnvelope = envelope({{0, 64}, {2, 32}, {6, 0}}, envelopeOn | envelopeSustain, 1);
             b.note(0, 1, 0, noteKeyOff, 0);
         },
         0, 1, envelopeVolume, {64, 48, 32, 32, 32, 32, 24, 16, 8, 0, 0, 0}},
        {"envelope loop goes back to its start on reaching its end",
         [](SongBuilder&, ModuleInstrument& i) {
             i.volumeEnvelope = envelope({{0, 0}, {2, 64}, {4, 0}}, envelopeOn | envelopeLoop, 0, 1, 2);
         },
         0, 0, envelopeVolume, {0, 32, 64, 32, 64, 32}},
        {"a sustain on the loop end holds until key off; released, the envelope leaves the loop",
         [](SongBuilder& b, ModuleInstrument& i) {
             i.volumeEnvelope = envelope({{0, 0}, {2, 64}, {4, 16}, {8, 48}},
                                         envelopeOn | envelopeLoop | envelopeSustain, 2, 1, 2);
             b.note(0, 1, 0, noteKeyOff, 0);
         },
         0, 1, envelopeVolume, {0, 32, 64, 40, 16, 16, 24, 32, 40, 48, 48, 48}},
        {"fadeout after key off, twice the instrument's value of 65536 per tick",
         [](SongBuilder& b, ModuleInstrument& i) {
             i.volumeEnvelope = envelope({{0, 64}}, envelopeOn);
             i.fadeout = 8192;
             b.note(0, 1, 0, noteKeyOff, 0);
         },
         1, 1, fadeout, {48, 32, 16, 0, 0, 0}},
        {"key off without a volume envelope cuts the volume", [](SongBuilder& b, ModuleInstrument&) {
             b.note(0, 1, 0, noteKeyOff, 0); },
         1, 1, volume, {0, 0, 0, 0, 0, 0}},
        {"Kxx releases the key on tick xx", [](SongBuilder& b, ModuleInstrument&) {
             b.effect(0, 0, 0, EffectKeyOff, 2); },
         0, 0, volume, {32, 32, 0, 0, 0, 0}},
        {"an instrument number alone after key off restores the volume and the key",
         [](SongBuilder& b, ModuleInstrument&) {
             b.note(0, 1, 0, noteKeyOff, 0);
             b.note(0, 2, 0, noNote, 1);
         },
         1, 2, volume, {0, 0, 0, 0, 0, 0, 32, 32, 32, 32, 32, 32}},
        {"auto-vibrato sweeps its depth up over the sweep's ticks (square, rate 64)",
         [](SongBuilder&, ModuleInstrument& i) {
             i.vibratoType = 1;
             i.vibratoDepth = 8;
             i.vibratoSweep = 4;
             i.vibratoRate = 64;
         },
         0, 0, autoVibrato, {-2, 4, 6, -8, -8, 8}},
        {"volume column: slide down after the first tick", [](SongBuilder& b, ModuleInstrument&) {
             b.cell(0, 0, 0).volume = volumeSlideDown | 2; },
         0, 0, volume, {32, 30, 28, 26, 24, 22}},
        {"volume column: fine slide up once, then set volume", [](SongBuilder& b, ModuleInstrument&) {
             b.cell(0, 0, 0).volume = volumeFineUp | 4;
             b.cell(0, 1, 0).volume = volumeSetBase + 10;
         },
         0, 1, volume, {36, 36, 36, 36, 36, 36, 10, 10, 10, 10, 10, 10}},
        {"volume column: tone portamento at x * 16, sharing 3xx's memory",
         [](SongBuilder& b, ModuleInstrument&) {
             b.note(0, 1, 0, c4 + 2, 0);
             b.cell(0, 1, 0).volume = volumeTonePortamento | 2;
             b.effect(0, 2, 0, EffectTonePortamento, 0);
         },
         1, 2, period, {4608, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480, 4480}},
        {"volume column: vibrato with its own speed and depth", [](SongBuilder& b, ModuleInstrument&) {
             b.cell(0, 0, 0).volume = volumeVibratoSpeed | 8;
             b.cell(0, 1, 0).volume = volumeVibrato | 8;
         },
         1, 1, period, {4608, 4608, 4608 + 45, 4608 + 63, 4608 + 45, 4608}},
        {"Rxy: retrigger every 2 ticks from the row's start", [](SongBuilder& b, ModuleInstrument&) {
             b.effect(0, 0, 0, EffectMultiRetrigger, 0x02); },
         0, 0, trigger, {1, 1, 0, 1, 0, 1}},
        {"Rxy: x = 7 halves the volume on each retrigger", [](SongBuilder& b, ModuleInstrument&) {
             b.effect(0, 0, 0, EffectMultiRetrigger, 0x71); },
         0, 0, volume, {32, 16, 8, 4, 2, 1}},
        {"Txy: on x + 1 ticks, off y + 1, counted after the first tick", [](SongBuilder& b, ModuleInstrument&) {
             b.effect(0, 0, 0, EffectTremor, 0x11); },
         0, 0, volume, {32, 32, 32, 0, 0, 32}},
        {"E90 retriggers on the first tick, E93 on every third", [](SongBuilder& b, ModuleInstrument&) {
             b.effect(0, 1, 0, EffectExtended, 0x90);
             b.effect(0, 2, 0, EffectExtended, 0x93);
         },
         1, 2, trigger, {1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0}},
    };
    for (const auto& c : cases) {
        SongBuilder builder(FormatXm, 2, 1, 8);
        builder.sample(4096, 127, 0, 0, 4096);  // volume 32, looped
        builder.note(0, 0, 0, c4);
        c.setup(builder, builder.module.instruments[0]);
        EXPECT_EQ(ticks(builder.song(), c.firstRow, c.lastRow, c.observe), c.expected) << c.what;
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
