// SongBuilder: test-only helper that builds a Module in memory, shaped as a
// MOD, S3M or XM loader would leave it: a few patterns of cells, one
// instrument per sample, and the sub-song scan run at the end. Also the
// sample data it and the sample and mixer tests build.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "modplayer/EffectCodes.h"
#include "modplayer/Module.h"
#include "modplayer/SampleData.h"

namespace mod {

inline SampleFormat sampleFormat(uint8_t bits, uint8_t channels, int32_t length, int32_t loopType = LoopNone,
                                 int32_t loopStart = 0, int32_t loopEnd = 0) {
    return SampleFormat{44100, loopStart, loopEnd, length, bits, channels, loopType};
}

// Finalised data of `pcm`, 16-bit interleaved frames laid out as `format` says.
inline SampleData* finalisedSample(const SampleFormat& format, const std::vector<int16_t>& pcm) {
    SampleData* data = new SampleData;
    EXPECT_TRUE(data->setData(format, pcm.data(), int32_t(pcm.size() * 2), LittleEndianSamples, 1));
    EXPECT_TRUE(data->finalise());
    return data;
}

struct SongBuilder {
    Module module;

    explicit SongBuilder(int32_t format = FormatMod, int32_t channels = 4, int32_t patterns = 1, int32_t rows = 64) {
        module.formatType = format;
        module.playbackMode = format == FormatMod ? ModeMod31 : format == FormatS3m ? ModeS3m : ModeXm;
        module.usesAmigaPeriods = format != FormatXm;
        module.channelCount = channels;
        for (int32_t c = 0; c < channels; ++c) {
            module.channelPanning.add(uint8_t(c % 4 == 0 || c % 4 == 3 ? 48 : 208));
            module.channelMap.add(c);
        }
        for (int32_t p = 0; p < patterns; ++p) {
            ModulePattern pattern;
            pattern.resize(rows);
            for (PatternRow& row : pattern)
                row.resize(channels);
            module.patterns.add(pattern);
        }
    }

    PatternCell& cell(int32_t pattern, int32_t row, int32_t channel) { return module.patterns[pattern][row][channel]; }

    // A note (with instrument), an effect, or both.
    void note(int32_t pattern, int32_t row, int32_t channel, uint8_t note, uint8_t instrument = 1,
              uint8_t effect = 0, uint8_t parameter = 0) {
        PatternCell& c = cell(pattern, row, channel);
        c.note = note;
        c.instrument = instrument;
        c.effect = effect;
        c.parameter = parameter;
    }
    void effect(int32_t pattern, int32_t row, int32_t channel, uint8_t effect, uint8_t parameter) {
        PatternCell& c = cell(pattern, row, channel);
        c.effect = effect;
        c.parameter = parameter;
    }

    // A sample of `frames` 16-bit mono frames (a slow ramp unless given),
    // looped over [loopStart, loopEnd) when loopEnd > loopStart, as
    // instrument number instruments.count().
    void sample(int32_t frames, uint8_t volume = 255, int8_t finetune = 0, int32_t loopStart = 0,
                int32_t loopEnd = 0, std::vector<int16_t> pcm = {}, int32_t extraA = -1, int16_t extraB = -1) {
        if (pcm.empty())
            for (int32_t i = 0; i < frames; ++i)
                pcm.push_back(int16_t(i * 16));
        ModuleSample entry;
        entry.data = finalisedSample(
            sampleFormat(16, 1, frames, loopEnd > loopStart ? LoopForward : LoopNone, loopStart, loopEnd), pcm);
        entry.volume = volume;
        entry.finetune = finetune;
        entry.extraA = extraA;
        entry.extraB = extraB;
        ModuleInstrument instrument;
        instrument.sampleIndices.add(uint16_t(module.samples.count()));
        module.samples.add(entry);
        module.instruments.add(instrument);
    }

    Module& song(const std::vector<uint16_t>& orders = {0}) {
        for (uint16_t order : orders)
            module.orders.add(order);
        module.songLength = int32_t(orders.size());
        module.scanSubsongs();
        return module;
    }
};

}  // namespace mod
