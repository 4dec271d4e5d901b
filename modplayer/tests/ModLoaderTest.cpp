// Tests of the MOD loader and the loader dispatch on modules built in memory.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "MemoryStream.h"
#include "ModFileBuilder.h"
#include "ModFormat.h"
#include "ModuleLoader.h"

using namespace mod;

namespace {

bool load(Module& module, const std::vector<uint8_t>& bytes, int32_t format = FormatMod,
          int32_t variant = 0) {
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    return loadModule(module, stream, format, variant);
}

ModFileBuilder builderWithOneSample() {
    ModFileBuilder builder;
    std::strcpy(builder.title, "built song");
    std::strcpy(builder.samples[0].name, "first");
    builder.samples[0].lengthWords = 8;
    return builder;
}

}  // namespace

TEST(ModFormat, ChannelTagsGiveTheirCounts) {
    const struct { const char* tag; int32_t channels; } cases[] = {
        {"M.K.", 4}, {"M!K!", 4}, {"OKTA", 8}, {"OCTA", 8}, {"FLT4", 4}, {"FLT8", 8},
        {"TDZ3", 3}, {"6CHN", 6}, {"9CHN", 9}, {"08CN", 8}, {"08CH", 8}, {"01CN", 1},
        {"10CH", 10}, {"32CN", 32}, {"33CH", 0}, {"00CH", 0}, {"FLT0", 0}, {"M.K ", 0},
        {"m.k.", 0}, {"\0\0\0\0", 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(modChannelsForTag(reinterpret_cast<const uint8_t*>(c.tag)), c.channels) << c.tag;
}

TEST(ModFormat, PeriodsMapToTheNearestNote) {
    const struct { uint32_t period; int note; } cases[] = {
        {0, 255}, {428, 48}, {427, 48}, {429, 48}, {440, 48}, {441, 47}, {4095, 9}, {4064, 9},
        {3952, 9}, {3951, 10}, {1712, 24}, {16, 104}, {1, 104}, {906, 35}, {907, 35},
    };
    for (const auto& c : cases)
        EXPECT_EQ(modNoteForPeriod(c.period), c.note) << c.period;
}

TEST(ModLoader, TaggedFilesTakeTheirChannelCount) {
    for (const char* tag : {"M.K.", "08CN", "08CH", "OCTA", "FLT4", "6CHN"}) {
        ModFileBuilder builder = builderWithOneSample();
        std::memcpy(builder.tag, tag, 4);
        builder.channels = modChannelsForTag(reinterpret_cast<const uint8_t*>(tag));
        Module module;
        ASSERT_TRUE(load(module, builder.build())) << tag;
        EXPECT_EQ(module.channelCount, builder.channels);
        EXPECT_EQ(module.playbackMode, ModeMod31);
        ASSERT_EQ(module.patterns[0].count(), 64);
        EXPECT_EQ(module.patterns[0][63].count(), builder.channels);
        EXPECT_EQ(module.instruments.count(), 31);
        EXPECT_EQ(module.channelMap.count(), builder.channels);
    }
}

TEST(ModLoader, CellsAreDecodedAndParameterlessEffectsRewritten) {
    const struct { uint8_t effect, parameter, storedEffect; } cases[] = {
        {1, 0, 0}, {2, 0, 0}, {10, 0, 0}, {5, 0, 3}, {6, 0, 4}, {1, 5, 1}, {5, 1, 5},
        {10, 0x10, 10}, {12, 0, 12}, {13, 0, 13}, {0, 0, 0}, {15, 6, 15},
    };
    ModFileBuilder builder = builderWithOneSample();
    int row = 0;
    for (const auto& c : cases)
        builder.setCell(0, row++, 1, 428, 0x1F, c.effect, c.parameter);
    Module module;
    ASSERT_TRUE(load(module, builder.build()));
    row = 0;
    for (const auto& c : cases) {
        const PatternCell& cell = module.patterns[0][row++][1];
        EXPECT_EQ(cell.effect, c.storedEffect) << int(c.effect);
        EXPECT_EQ(cell.parameter, c.parameter);
        EXPECT_EQ(cell.note, 48);
        EXPECT_EQ(cell.instrument, 31);
        EXPECT_EQ(cell.volume, 0);
    }
    EXPECT_TRUE(module.patterns[0][row][1].isEmpty());
}

TEST(ModLoader, SampleHeadersBecomeSamples) {
    const struct { uint8_t volume, storedVolume, finetune; int8_t storedFinetune; } cases[] = {
        {70, 255, 0x00, 0}, {64, 255, 0x07, 112}, {32, 127, 0x0F, -16},
        {0, 0, 0xF8, -128}, {1, 3, 0x01, 16},
    };
    ModFileBuilder builder;
    int slot = 0;
    for (const auto& c : cases) {
        builder.samples[slot].lengthWords = 4;
        builder.samples[slot].volume = c.volume;
        builder.samples[slot++].finetune = c.finetune;
    }
    builder.samples[0].loopStartWords = 1;
    builder.samples[0].loopLengthWords = 2;   // looped: frames 2..6
    builder.samples[1].loopLengthWords = 1;   // one word: not looped
    Module module;
    ASSERT_TRUE(load(module, builder.build()));
    ASSERT_EQ(module.samples.count(), 5);
    for (slot = 0; slot < 5; ++slot) {
        const ModuleSample& sample = module.samples[slot];
        EXPECT_EQ(sample.volume, cases[slot].storedVolume);
        EXPECT_EQ(sample.finetune, cases[slot].storedFinetune);
        EXPECT_EQ(sample.extraA, -1);
        EXPECT_EQ(sample.data->length, 8u);
        EXPECT_EQ(sample.data->pcm[3], int16_t(int8_t(slot + 3) * 256));
        ASSERT_EQ(module.instruments[slot].sampleIndices.count(), 1);
        EXPECT_EQ(module.instruments[slot].sampleIndices[0], slot);
    }
    EXPECT_TRUE(module.samples[0].data->isLooped());
    EXPECT_EQ(module.samples[0].data->loopStart, 2u);
    EXPECT_EQ(module.samples[0].data->loopEnd, 6u);
    EXPECT_FALSE(module.samples[1].data->isLooped());
    EXPECT_EQ(module.instruments[5].sampleIndices.count(), 0);
}

TEST(ModLoader, ModuleFieldsAndPanning) {
    ModFileBuilder builder = builderWithOneSample();
    std::strcpy(builder.tag, "6CHN");
    builder.channels = 6;
    builder.songLength = 2;
    builder.orders[1] = 1;
    builder.orders[100] = 60;  // beyond the song, still read
    Module module;
    ASSERT_TRUE(load(module, builder.build()));
    EXPECT_EQ(module.formatType, FormatMod);
    EXPECT_EQ(module.usesAmigaPeriods, 1);
    EXPECT_EQ(module.patterns.count(), 61);
    EXPECT_EQ(module.orders.count(), 128);
    EXPECT_EQ(module.songLength, 2);
    EXPECT_EQ(module.restartPosition, 0);
    EXPECT_STREQ(module.title.c_str(), "built song");
    EXPECT_STREQ(module.trackerName.c_str(), "Unknown (Amiga Module)");
    const uint8_t panning[6] = {48, 208, 208, 48, 48, 208};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(module.channelPanning[i], panning[i]);

    ASSERT_TRUE(load(module, builder.build(), FormatMod, ModeXm));
    EXPECT_EQ(module.playbackMode, ModeXm);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(module.channelPanning[i], 128);
}

TEST(ModLoader, FifteenSampleFormIsReadWithoutTag) {
    ModFileBuilder builder;
    std::strcpy(builder.title, "old song");
    for (int i = 0; i < 15; ++i) {
        builder.samples[i].lengthWords = uint16_t(i + 1);
        builder.samples[i].name[0] = char('a' + i);
    }
    builder.songLength = 3;
    builder.orders[1] = 2;
    builder.setCell(2, 5, 3, 214, 15, 12, 40);
    Module module;
    ASSERT_TRUE(load(module, builder.buildUntagged(), FormatAutomatic));
    EXPECT_EQ(module.channelCount, 4);
    EXPECT_EQ(module.playbackMode, ModeMod15);
    EXPECT_EQ(module.songLength, 3);
    EXPECT_EQ(module.orders[1], 2);
    EXPECT_EQ(module.patterns.count(), 3);
    EXPECT_EQ(module.patterns[2][5][3].note, 60);
    EXPECT_EQ(module.patterns[2][5][3].instrument, 15);
    EXPECT_STREQ(module.title.c_str(), "old song");
    ASSERT_EQ(module.instruments.count(), 31);
    ASSERT_EQ(module.samples.count(), 15);
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(module.samples[i].data->length, uint32_t(2 * (i + 1)));
        EXPECT_EQ(module.samples[i].name[0], uint32_t('a' + i));
        EXPECT_EQ(module.instruments[i].sampleIndices.count(), 1);
    }
    EXPECT_EQ(module.instruments[15].sampleIndices.count(), 0);
}

TEST(ModLoader, UnknownTagIsReadAsTheFifteenSampleForm) {
    ModFileBuilder builder = builderWithOneSample();
    std::memcpy(builder.tag, "ABCD", 4);
    for (int slot = 15; slot < 31; ++slot)  // read again as orders: keep them small
        builder.samples[slot] = ModFileBuilder::Sample{{}, 0, 0, 0, 0, 0};
    std::vector<uint8_t> bytes = builder.build();
    bytes.resize(bytes.size() + 4096);  // room for what the old layout expects
    Module module;
    ASSERT_TRUE(load(module, bytes));
    EXPECT_EQ(module.channelCount, 4);
    EXPECT_EQ(module.playbackMode, ModeMod15);
    EXPECT_EQ(module.channelMap.count(), 4);
    // Sample slot 16 onwards of the tagged header became orders and patterns.
    EXPECT_EQ(module.songLength, bytes[470]);
    EXPECT_EQ(module.orders[0], bytes[472]);
}

TEST(ModLoader, ShortOrBrokenFilesFail) {
    ModFileBuilder builder = builderWithOneSample();
    std::vector<uint8_t> whole = builder.build();
    std::vector<uint8_t> untagged = builder.buildUntagged();
    const struct { const char* what; std::vector<uint8_t> bytes; } cases[] = {
        {"empty", {}},
        {"599 bytes", std::vector<uint8_t>(untagged.begin(), untagged.begin() + 599)},
        {"600-byte old header", std::vector<uint8_t>(untagged.begin(), untagged.begin() + 600)},
        {"1083 bytes", std::vector<uint8_t>(whole.begin(), whole.begin() + 1083)},
        {"header only", std::vector<uint8_t>(whole.begin(), whole.begin() + 1084)},
        {"pattern cut", std::vector<uint8_t>(whole.begin(), whole.begin() + 1084 + 1023)},
        {"sample cut", std::vector<uint8_t>(whole.begin(), whole.end() - 1)},
    };
    for (const auto& c : cases) {
        Module module;
        EXPECT_FALSE(load(module, c.bytes)) << c.what;
        EXPECT_EQ(module.formatType, FormatNone) << c.what;
    }
    Module module;
    EXPECT_TRUE(load(module, whole));
    EXPECT_EQ(module.samples[0].data->length, 16u);
}

TEST(ModLoader, UnknownTagNeedsASeekableStream) {
    ModFileBuilder builder;
    std::vector<uint8_t> bytes = builder.buildUntagged();
    bytes.resize(4096);
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    stream.setSeekable(false);
    Module module;
    EXPECT_FALSE(loadMod(module, stream, 0));
}

TEST(ModuleLoader, DispatchByFormatType) {
    std::vector<uint8_t> bytes = builderWithOneSample().build();
    Module module;
    ASSERT_TRUE(load(module, bytes, FormatAutomatic));
    EXPECT_EQ(module.formatType, FormatMod);
    SharedRef<SampleData> held = module.samples[0].data;
    EXPECT_EQ(held->referenceCount(), 2);

    for (int32_t format : {-1, 6, 99}) {
        EXPECT_FALSE(load(module, bytes, format));
        EXPECT_EQ(module.formatType, FormatMod) << "untouched by format " << format;
    }
    EXPECT_FALSE(load(module, bytes, FormatS3m));
    EXPECT_FALSE(load(module, bytes, FormatXm));
    EXPECT_EQ(module.formatType, FormatMod);

    EXPECT_FALSE(load(module, bytes, FormatUnload));
    EXPECT_EQ(module.formatType, FormatNone);
    EXPECT_EQ(module.samples.count(), 0);
    EXPECT_EQ(module.instruments.count(), 0);
    EXPECT_TRUE(module.title.isEmpty());
    EXPECT_EQ(module.initialSpeed, 6);
    EXPECT_EQ(module.initialTempo, 125);
    EXPECT_EQ(module.substitutePattern, -1);
    EXPECT_EQ(held->referenceCount(), 1);

    MemoryStream unseekable(bytes.data(), int32_t(bytes.size()));
    unseekable.setSeekable(false);
    EXPECT_FALSE(loadModule(module, unseekable, FormatAutomatic, 0));
}
