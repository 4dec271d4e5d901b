// Tests of the MOD loader and the loader dispatch on modules built in memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

#include "core/MemoryStream.h"
#include "modplayer/ModFormat.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/XmFormat.h"

using namespace mod;

namespace {

// A MOD file assembled field by field, by default with one sample of 16
// bytes. Samples are unnamed and unlooped; sample i holds the bytes i, i+1, ...
struct ModFileBuilder {
    struct Sample { uint16_t lengthWords = 0; uint8_t finetune = 0, volume = 64; };
    char tag[5] = "M.K.";
    int channels = 4;
    uint8_t songLength = 1;
    uint8_t orders[128] = {};
    Sample samples[31] = {{8}};
    std::vector<uint8_t> patternBytes;

    void setCell(int pattern, int row, int channel, uint16_t period, uint8_t instrument, uint8_t effect,
                 uint8_t parameter) {
        size_t at = ((size_t(pattern) * 64 + row) * channels + channel) * 4;
        patternBytes.resize(std::max(patternBytes.size(), at + 4));
        const uint8_t cell[4] = {uint8_t((instrument & 0xF0) | (period >> 8)), uint8_t(period),
                                 uint8_t((instrument << 4) | effect), parameter};
        std::copy(cell, cell + 4, patternBytes.begin() + at);
    }

    // The tagged layout, or the untagged one with 15 sample headers.
    std::vector<uint8_t> build(bool tagged = true) const {
        int slots = tagged ? 31 : 15;
        std::vector<uint8_t> out(20, 'T');
        for (int i = 0; i < slots; ++i) {
            out.resize(out.size() + 22);  // name
            const Sample& s = samples[i];  // loop start 0, loop length 1 word: no loop
            out.insert(out.end(), {uint8_t(s.lengthWords >> 8), uint8_t(s.lengthWords), s.finetune, s.volume});
            out.insert(out.end(), {0, 0, 0, 1});
        }
        out.insert(out.end(), {songLength, 127});
        out.insert(out.end(), orders, orders + 128);
        if (tagged)
            out.insert(out.end(), tag, tag + 4);
        std::vector<uint8_t> patterns = patternBytes;
        patterns.resize((1 + *std::max_element(orders, orders + 128)) * 256 * size_t(channels));
        out.insert(out.end(), patterns.begin(), patterns.end());
        for (int i = 0; i < slots; ++i)
            for (int b = 0; b < samples[i].lengthWords * 2; ++b)
                out.push_back(uint8_t(i + b));
        return out;
    }
};

bool load(Module& module, const std::vector<uint8_t>& bytes, int32_t format = FormatMod, int32_t variant = 0) {
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    return loadModule(module, stream, format, variant);
}

}  // namespace

TEST(ModFormat, ChannelTagsAndPeriodNotes) {
    const struct { const char* tag; int32_t channels; } tags[] = {
        {"M.K.", 4}, {"M!K!", 4}, {"OKTA", 8}, {"OCTA", 8}, {"FLT4", 4}, {"FLT8", 8}, {"TDZ3", 3},
        {"6CHN", 6}, {"9CHN", 9}, {"08CN", 8}, {"08CH", 8}, {"01CN", 1}, {"10CH", 10}, {"32CN", 32},
        {"33CH", 0}, {"00CH", 0}, {"FLT0", 0}, {"M.K ", 0}, {"m.k.", 0}, {"\0\0\0\0", 0},
    };
    for (const auto& c : tags)
        EXPECT_EQ(modChannelsForTag(reinterpret_cast<const uint8_t*>(c.tag)), c.channels) << c.tag;
    const struct { uint32_t period; int note; } periods[] = {
        {0, 255}, {428, 48}, {427, 48}, {429, 48}, {440, 48}, {441, 47}, {4095, 9}, {4064, 9},
        {3952, 9}, {3951, 10}, {1712, 24}, {16, 104}, {1, 104}, {906, 35}, {907, 35},
    };
    for (const auto& c : periods)
        EXPECT_EQ(modNoteForPeriod(c.period), c.note) << c.period;
}

TEST(ModLoader, ChannelsModesAndPanning) {
    const struct { const char* tag; int32_t variant, channels, mode; std::vector<uint8_t> panning; } cases[] = {
        {"M.K.", 0, 4, ModeMod31, {48, 208, 208, 48}},
        {"6CHN", 0, 6, ModeMod31, {48, 208, 208, 48, 48, 208}},
        {"FLT8", ModeXm, 8, ModeXm, {128, 128, 128, 128, 128, 128, 128, 128}},
    };
    for (const auto& c : cases) {
        ModFileBuilder builder;
        std::memcpy(builder.tag, c.tag, 4);
        builder.channels = c.channels;
        builder.orders[100] = 60;  // beyond the song, still counted
        Module module;
        ASSERT_TRUE(load(module, builder.build(), FormatMod, c.variant)) << c.tag;
        EXPECT_EQ(std::pair(module.channelCount, module.playbackMode), std::pair(c.channels, c.mode)) << c.tag;
        EXPECT_EQ(std::vector<uint8_t>(module.channelPanning.begin(), module.channelPanning.end()), c.panning);
        EXPECT_EQ(module.patterns.count(), 61) << c.tag;
        EXPECT_EQ(module.patterns[60][63].count(), c.channels) << c.tag;
    }
}

TEST(ModLoader, CellsAndSampleHeadersAreConverted) {
    const struct { uint8_t effect, parameter, storedEffect; } cells[] = {
        {1, 0, 0}, {2, 0, 0}, {10, 0, 0}, {5, 0, 3}, {6, 0, 4}, {1, 5, 1}, {5, 1, 5},
        {10, 0x10, 10}, {12, 0, 12}, {13, 0, 13}, {0, 0, 0}, {15, 6, 15},
    };
    const struct { uint8_t volume, storedVolume, finetune; int8_t storedFinetune; } samples[] = {
        {70, 255, 0x00, 0}, {64, 255, 0x07, 112}, {32, 127, 0x0F, -16}, {0, 0, 0xF8, -128}, {1, 3, 0x01, 16},
    };
    ModFileBuilder builder;
    for (int row = 0; row < 12; ++row)
        builder.setCell(0, row, 1, 428, 0x1F, cells[row].effect, cells[row].parameter);
    for (int slot = 0; slot < 5; ++slot)
        builder.samples[slot] = {4, samples[slot].finetune, samples[slot].volume};
    Module module;
    ASSERT_TRUE(load(module, builder.build()));
    for (int row = 0; row < 12; ++row) {
        const PatternCell& cell = module.patterns[0][row][1];
        EXPECT_EQ(std::pair(cell.effect, cell.parameter), std::pair(cells[row].storedEffect, cells[row].parameter));
    }
    EXPECT_TRUE(module.patterns[0][12][1].isEmpty());
    ASSERT_EQ(module.samples.count(), 5);
    for (int slot = 0; slot < 5; ++slot) {
        const ModuleSample& sample = module.samples[slot];
        EXPECT_EQ(std::tuple(sample.volume, sample.finetune, sample.data->pcm[3]),
                  std::tuple(samples[slot].storedVolume, samples[slot].storedFinetune, int16_t((slot + 3) * 256)));
    }
}

TEST(ModLoader, FifteenSampleFormIsReadWithoutTag) {
    ModFileBuilder builder;
    for (int i = 0; i < 15; ++i)
        builder.samples[i].lengthWords = uint16_t(i + 1);
    builder.songLength = 3;
    builder.orders[1] = 2;
    builder.setCell(2, 5, 3, 214, 15, 12, 40);
    Module module;
    ASSERT_TRUE(load(module, builder.build(false), FormatAutomatic));
    EXPECT_EQ(std::pair(module.channelCount, module.playbackMode), std::pair(4, int32_t(ModeMod15)));
    EXPECT_EQ(std::pair(module.songLength, module.patterns.count()), std::pair(3, 3));
    EXPECT_EQ(module.patterns[2][5][3].note, 60);
    EXPECT_EQ(module.patterns[2][5][3].instrument, 15);
    ASSERT_EQ(module.instruments.count(), 31);
    EXPECT_EQ(module.samples.count(), 15);
    for (int i = 0; i < 15; ++i) {
        ASSERT_EQ(module.instruments[i].sampleIndices.count(), 1) << i;
        EXPECT_EQ(module.samples[module.instruments[i].sampleIndices[0]].data->length, uint32_t(2 * (i + 1))) << i;
    }
}

TEST(ModLoader, UnknownTagIsReadAsTheFifteenSampleForm) {
    ModFileBuilder builder;
    std::memcpy(builder.tag, "ABCD", 4);
    for (int slot = 15; slot < 31; ++slot)  // read again as orders: keep them small
        builder.samples[slot].volume = 0;
    std::vector<uint8_t> bytes = builder.build();
    bytes.resize(bytes.size() + 4096);  // room for what the old layout expects
    Module module;
    ASSERT_TRUE(load(module, bytes));
    EXPECT_EQ(std::pair(module.channelCount, module.playbackMode), std::pair(4, int32_t(ModeMod15)));
    // Sample slot 16 onwards of the tagged header became orders and patterns.
    EXPECT_EQ(module.songLength, bytes[470]);
    EXPECT_EQ(module.orders[0], bytes[472]);
    MemoryStream unseekable(bytes.data(), int32_t(bytes.size()));
    unseekable.setSeekable(false);
    EXPECT_FALSE(loadModule(module, unseekable, FormatAutomatic, 0));
}

TEST(ModLoader, ShortFilesFail) {
    std::vector<uint8_t> whole = ModFileBuilder().build();
    for (size_t length = 0; length < whole.size(); ++length) {  // cut in a header, a pattern or a sample
        Module module;
        EXPECT_FALSE(load(module, std::vector<uint8_t>(whole.begin(), whole.begin() + length))) << length;
        EXPECT_EQ(module.formatType, FormatNone) << length;
    }
    Module module;
    EXPECT_TRUE(load(module, whole));
}

TEST(ModuleLoader, BadFormatTypesFailAndUnloadResets) {
    std::vector<uint8_t> bytes = ModFileBuilder().build();
    Module module;
    ASSERT_TRUE(load(module, bytes, FormatAutomatic));
    SharedRef<SampleData> held = module.samples[0].data;
    for (int32_t format : {-1, 6, 99, int32_t(FormatS3m), int32_t(FormatXm)})
        EXPECT_FALSE(load(module, bytes, format) || module.formatType != FormatMod) << format;
    EXPECT_FALSE(load(module, bytes, FormatUnload));
    EXPECT_EQ(std::pair(module.formatType, module.samples.count()), std::pair(int32_t(FormatNone), 0));
    EXPECT_EQ(held->referenceCount(), 1);
}

// An untagged MOD of zeros (600-byte header, one 1024-byte pattern) whose
// first bytes come close to an XM header: automatic detection ends in the
// MOD loader, which takes any 600 bytes.
TEST(ModuleLoader, NearXmHeadersEndInTheModLoader) {
    const struct { const char* what; const char* id; uint16_t version; } cases[] = {
        {"zeros", "", 0},
        {"id text one byte off", "Extended Module; ", xmVersion},
        {"an XM whose song header is broken", xmIdText, xmVersion},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> bytes(1624, 0);
        std::memcpy(bytes.data(), c.id, std::strlen(c.id));
        bytes[xmVersionOffset] = uint8_t(c.version);
        bytes[xmVersionOffset + 1] = uint8_t(c.version >> 8);
        Module module;
        EXPECT_TRUE(load(module, bytes, FormatAutomatic) && module.formatType == FormatMod) << c.what;
        EXPECT_EQ(module.playbackMode, ModeMod15) << c.what;
    }
}
