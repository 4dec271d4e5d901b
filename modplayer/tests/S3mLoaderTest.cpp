// Tests of the S3M loader on modules assembled byte by byte in the test.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "core/MemoryStream.h"
#include "modplayer/EffectCodes.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/S3mFormat.h"

using namespace mod;

namespace {

using Bytes = std::vector<uint8_t>;

void putWord(Bytes& out, size_t at, uint32_t value) {
    out[at] = uint8_t(value);
    out[at + 1] = uint8_t(value >> 8);
}

void putDoubleWord(Bytes& out, size_t at, uint32_t value) {
    putWord(out, at, value & 0xFFFF);
    putWord(out, at + 2, value >> 16);
}

// One packed pattern entry; -1 leaves a field out.
Bytes entry(int channel, int note, int instrument, int volume = -1, int command = -1, int parameter = 0) {
    Bytes out = {uint8_t(channel | (note >= 0 ? s3mEntryHasNote : 0) | (volume >= 0 ? s3mEntryHasVolume : 0) |
                         (command >= 0 ? s3mEntryHasEffect : 0))};
    if (note >= 0)
        out.insert(out.end(), {uint8_t(note), uint8_t(instrument)});
    if (volume >= 0)
        out.push_back(uint8_t(volume));
    if (command >= 0)
        out.insert(out.end(), {uint8_t(command), uint8_t(parameter)});
    return out;
}

// Rows of entries, each row closed by its 0 byte, and empty rows after them
// up to the 64 every pattern has.
Bytes rows(const std::vector<std::vector<Bytes>>& entries) {
    Bytes out;
    for (const std::vector<Bytes>& row : entries) {
        for (const Bytes& e : row)
            out.insert(out.end(), e.begin(), e.end());
        out.push_back(0);
    }
    out.resize(out.size() + s3mRowsPerPattern - entries.size());
    return out;
}

// An S3M file assembled field by field: header, tables, instrument headers,
// patterns, then sample data, each part on a paragraph boundary.
struct S3mFileBuilder {
    struct Instrument {
        uint8_t type = s3mSampleInstrument, flags = 0, volume = 64;
        uint32_t length = 4, loopStart = 0, loopEnd = 0, c4Speed = 8363;
        std::string name = "sample";
        Bytes data = Bytes(4, 0x90);  // as stored
    };
    std::string title = "Built";
    uint16_t flags = 0, version = 0x1320, sampleFormat = 2;
    uint8_t globalVolume = 64, speed = 6, tempo = 125, masterVolume = 0xB0;
    Bytes channels = {0, 8};  // the rest unused
    Bytes panningTable;       // written when not empty
    Bytes orders = {0};
    std::vector<Instrument> instruments = {Instrument()};
    std::vector<Bytes> patterns = {rows({{entry(0, 0x40, 1)}})};  // packed rows; empty: not stored
    uint16_t lengthShortfall = 0;  // bytes the length words leave out, as some trackers wrote them
    // Where build() put each instrument header, pattern and sample.
    mutable std::vector<size_t> instrumentAt, patternAt, dataAt;

    static void align(Bytes& out) { out.resize((out.size() + 15) / 16 * 16); }

    Bytes build() const {
        Bytes out(s3mHeaderSize);
        std::memcpy(out.data(), title.data(), title.size());
        out[28] = 0x1A;
        out[s3mFileTypeOffset] = s3mModuleFileType;
        const uint32_t words[] = {uint32_t(orders.size()), uint32_t(instruments.size()), uint32_t(patterns.size()),
                                  flags, version, sampleFormat};
        for (int i = 0; i < 6; ++i)
            putWord(out, s3mOrderCountOffset + 2 * i, words[i]);
        std::memcpy(&out[s3mSignatureOffset], "SCRM", 4);
        out[s3mGlobalVolumeOffset] = globalVolume;
        out[s3mSpeedOffset] = speed;
        out[s3mTempoOffset] = tempo;
        out[s3mMasterVolumeOffset] = masterVolume;
        out[s3mPanningTableOffset] = panningTable.empty() ? 0 : s3mPanningTablePresent;
        for (int i = 0; i < s3mChannelSlots; ++i)
            out[s3mChannelSettingsOffset + i] = i < int(channels.size()) ? channels[i] : s3mChannelUnused;
        out.insert(out.end(), orders.begin(), orders.end());
        size_t pointers = out.size();
        out.resize(out.size() + 2 * (instruments.size() + patterns.size()));
        out.insert(out.end(), panningTable.begin(), panningTable.end());
        instrumentAt.clear(), patternAt.clear(), dataAt.clear();
        for (size_t i = 0; i < instruments.size(); ++i) {
            align(out);
            instrumentAt.push_back(out.size());
            putWord(out, pointers + 2 * i, uint32_t(out.size() / 16));
            out.resize(out.size() + s3mInstrumentHeaderSize);
        }
        for (size_t i = 0; i < patterns.size(); ++i) {
            align(out);
            patternAt.push_back(patterns[i].empty() ? 0 : out.size());
            putWord(out, pointers + 2 * (instruments.size() + i), uint32_t(patternAt.back() / 16));
            if (!patterns[i].empty()) {
                out.resize(out.size() + 2);
                putWord(out, out.size() - 2, uint32_t(patterns[i].size() + 2 - lengthShortfall));
                out.insert(out.end(), patterns[i].begin(), patterns[i].end());
            }
        }
        for (size_t i = 0; i < instruments.size(); ++i) {
            align(out);
            dataAt.push_back(out.size());
            writeInstrument(out, instrumentAt[i], instruments[i], out.size());
            out.insert(out.end(), instruments[i].data.begin(), instruments[i].data.end());
        }
        return out;
    }

    static void writeInstrument(Bytes& out, size_t at, const Instrument& instrument, size_t dataAt) {
        out[at + s3mInstrumentTypeOffset] = instrument.type;
        out[at + s3mSampleDataOffset] = uint8_t(dataAt / 16 >> 16);
        putWord(out, at + s3mSampleDataOffset + 1, uint32_t(dataAt / 16));
        putDoubleWord(out, at + s3mSampleLengthOffset, instrument.length);
        putDoubleWord(out, at + s3mLoopStartOffset, instrument.loopStart);
        putDoubleWord(out, at + s3mLoopEndOffset, instrument.loopEnd);
        out[at + s3mVolumeOffset] = instrument.volume;
        out[at + s3mSampleFlagsOffset] = instrument.flags;
        putDoubleWord(out, at + s3mC4SpeedOffset, instrument.c4Speed);
        std::memcpy(&out[at + s3mInstrumentNameOffset], instrument.name.data(), instrument.name.size());
        std::memcpy(&out[at + 76], "SCRS", 4);
    }
};

bool load(Module& module, const Bytes& bytes, int32_t format = FormatS3m, int32_t variant = 0) {
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    return loadModule(module, stream, format, variant);
}

std::vector<int16_t> pcmOf(const ModuleSample& sample) {
    return std::vector<int16_t>(sample.data->pcm.begin(), sample.data->pcm.end());
}

}  // namespace

TEST(S3mLoader, EveryFieldOfABuiltModule) {
    S3mFileBuilder builder;
    builder.title = "Built song";
    builder.version = 0x1321;
    builder.globalVolume = 32;
    builder.speed = 0;
    builder.tempo = 150;
    // Left, right, unused, disabled, AdLib, right: six channels, two of them silent.
    builder.channels = {0, 8, 255, 0x81, 16, 9};
    builder.orders = {1, 254, 0, 255, 1};
    S3mFileBuilder::Instrument looped;  // unsigned 8-bit, loop 2..5
    looped.length = 6, looped.loopStart = 2, looped.loopEnd = 5, looped.flags = s3mSampleLooped;
    looped.volume = 70, looped.c4Speed = 0, looped.name = "looped";
    looped.data = {0x80, 0x81, 0x7F, 0x00, 0xFF, 0x90};
    S3mFileBuilder::Instrument stereo;  // unsigned 16-bit: left frames 1, 2, 3, then right -1, -2, -3
    stereo.length = 3, stereo.flags = s3mSampleStereo | s3mSample16Bit, stereo.volume = 32, stereo.c4Speed = 22050;
    stereo.data = {0x01, 0x80, 0x02, 0x80, 0x03, 0x80, 0xFF, 0x7F, 0xFE, 0x7F, 0xFD, 0x7F};
    S3mFileBuilder::Instrument adlib;
    adlib.type = 2, adlib.name = "adlib", adlib.data = {};
    S3mFileBuilder::Instrument message;
    message.type = 0, message.length = 0, message.name = "a line of text", message.data = {};
    builder.instruments = {looped, stereo, adlib, message};
    Bytes packed = rows({{entry(0, 0x40, 1, 32, 1, 3), entry(1, 254, 0), entry(2, 0x40, 1), entry(3, -1, 0, -1, 3, 0),
                          entry(5, 0x50, 2, 70, 13, 5), entry(7, 0x40, 1)},
                         {entry(1, 0x9B, 0, 160, 7, 0), entry(4, 0x30, 3), entry(4, -1, 0, 20)},
                         {entry(0, 0x0C, 0, 0, 27, 9), entry(5, 0x40, 2)}});
    builder.patterns = {{}, packed};
    // The length word ends inside the last entry: the rows are read to their end all the same.
    builder.lengthShortfall = 63;
    Module module;
    ASSERT_TRUE(load(module, builder.build()));

    EXPECT_EQ(std::tuple(module.formatType, module.playbackMode, module.usesAmigaPeriods),
              std::tuple(int32_t(FormatS3m), int32_t(ModeS3m), uint8_t(1)));
    EXPECT_STREQ(module.title.c_str(), "Built song");
    EXPECT_STREQ(module.trackerName.c_str(), "Scream Tracker 3.21");
    EXPECT_EQ(std::tuple(module.initialSpeed, module.initialTempo, module.globalVolume, module.fastVolumeSlides),
              std::tuple(uint8_t(6), uint8_t(150), uint8_t(127), uint8_t(0)));
    ASSERT_EQ(module.channelCount, 6);
    EXPECT_EQ(std::vector<uint8_t>(module.channelPanning.begin(), module.channelPanning.end()),
              std::vector<uint8_t>({51, 204, 128, 51, 128, 204}));
    EXPECT_EQ(std::vector<int32_t>(module.channelMap.begin(), module.channelMap.end()),
              std::vector<int32_t>({0, 1, 2, 3, 0, 1}));
    EXPECT_EQ(std::vector<uint16_t>(module.orders.begin(), module.orders.end()),
              std::vector<uint16_t>({1, 254, 0, 255, 1}));
    EXPECT_EQ(std::tuple(module.songLength, module.restartPosition), std::tuple(5, 0));
    // The song length counts the markers, so the song after the end marker is found.
    ASSERT_EQ(module.subsongs.count(), 2);
    EXPECT_EQ(module.subsongs[1].startPosition, 4);

    ASSERT_EQ(module.patterns.count(), 2);
    for (const ModulePattern& pattern : module.patterns) {
        ASSERT_EQ(pattern.count(), 64);
        for (const PatternRow& row : pattern)
            ASSERT_EQ(row.count(), 6);
    }
    auto cell = [&module](int row, int channel) {
        const PatternCell& c = module.patterns[1][row][channel];
        return std::tuple(int(c.note), int(c.instrument), int(c.volume), int(c.effect), int(c.parameter));
    };
    EXPECT_EQ(cell(0, 0), std::tuple(48, 1, volumeSetBase + 32, int(EffectS3mSetSpeed), 3));
    EXPECT_EQ(cell(0, 1), std::tuple(int(noteCut), 0, 0, 0, 0));
    EXPECT_EQ(cell(0, 2), std::tuple(255, 0, 0, 0, 0)) << "unused channel";
    EXPECT_EQ(cell(0, 3), std::tuple(255, 0, 0, 0, 0)) << "disabled channel: its break never happens";
    EXPECT_EQ(cell(0, 5), std::tuple(60, 2, volumeSetBase + 64, 0, 0)) << "M is not an S3M effect";
    EXPECT_EQ(cell(1, 1), std::tuple(119, 0, volumeSetPanning | 8, int(EffectTonePortamento), 0)) << "panning 32 of 64";
    EXPECT_EQ(cell(1, 4), std::tuple(36, 3, volumeSetBase + 20, 0, 0)) << "AdLib channel, named twice";
    EXPECT_EQ(cell(2, 0), std::tuple(255, 0, volumeSetBase, 0, 0)) << "semitone 12 and command 27";
    EXPECT_EQ(cell(2, 5), std::tuple(48, 2, 0, 0, 0)) << "entry beyond the length word";
    for (int row = 3; row < 64; ++row)
        for (int channel = 0; channel < 6; ++channel)
            EXPECT_TRUE(module.patterns[1][row][channel].isEmpty() && module.patterns[0][row][channel].isEmpty());

    ASSERT_EQ(module.instruments.count(), 4);
    ASSERT_EQ(module.samples.count(), 4);
    const char* names[] = {"looped", "sample", "adlib", "a line of text"};
    const std::tuple<uint8_t, int32_t> volumesAndRates[] = {{255, 8363}, {127, 22050}, {255, 8363}, {255, 8363}};
    for (int i = 0; i < 4; ++i) {
        const ModuleInstrument& instrument = module.instruments[i];
        ASSERT_EQ(instrument.sampleIndices.count(), 1);
        const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
        EXPECT_STREQ(instrument.name.c_str(), names[i]);
        EXPECT_STREQ(sample.name.c_str(), names[i]);
        EXPECT_EQ(std::tuple(sample.volume, sample.extraA), volumesAndRates[i]) << i;
        EXPECT_EQ(std::tuple(sample.finetune, sample.extraB), std::tuple(int8_t(0), int16_t(-1))) << i;
        EXPECT_EQ(std::vector<uint8_t>(instrument.noteToSample, instrument.noteToSample + 128),
                  std::vector<uint8_t>(128));
        EXPECT_EQ(instrument.volumeEnvelope.points.count() + instrument.panningEnvelope.points.count(), 0);
        EXPECT_EQ(sample.data.get() != nullptr, i < 2) << i;
    }
    const SampleData& mono = *module.samples[0].data;
    EXPECT_EQ(std::tuple(mono.length, mono.loopStart, mono.loopEnd, mono.channels, mono.sampleRate),
              std::tuple(6u, 2u, 5u, uint8_t(1), 8363u));
    EXPECT_TRUE(mono.isLooped());
    // The frames up to the loop's end, then the loop start again for interpolation.
    EXPECT_EQ(pcmOf(module.samples[0]), std::vector<int16_t>({0, 256, -256, -32768, 32512, -256}));
    const SampleData& both = *module.samples[1].data;
    EXPECT_EQ(std::tuple(both.length, both.channels, both.sampleRate, both.isLooped()),
              std::tuple(3u, uint8_t(2), 22050u, false));
    EXPECT_EQ(pcmOf(module.samples[1]), std::vector<int16_t>({1, -1, 2, -2, 3, -3, 0, 0}));
}

TEST(S3mLoader, HeaderSettings) {
    const struct {
        const char* what;
        std::function<void(S3mFileBuilder&)> change;
        std::string trackerName;
        uint8_t fastSlides, globalVolume, speed, tempo;
        std::vector<uint8_t> panning;
        int32_t variant = 0, mode = ModeS3m;
    } cases[] = {
        {"Scream Tracker 3.00 slides fast", [](S3mFileBuilder& b) { b.version = 0x1300; },
         "Scream Tracker 3.00", 1, 255, 6, 125, {51, 204}},
        {"later versions by the flag", [](S3mFileBuilder& b) { b.version = 0x1301, b.flags = 64; },
         "Scream Tracker 3.01", 1, 255, 6, 125, {51, 204}},
        {"other trackers", [](S3mFileBuilder& b) { b.version = 0x3214, b.flags = 0x3F; },
         "Impulse Tracker 2.14", 0, 255, 6, 125, {51, 204}},
        {"unknown tracker", [](S3mFileBuilder& b) { b.version = 0xA123; },
         "Unknown (S3M version A123)", 0, 255, 6, 125, {51, 204}},
        {"global volume above 64, no speed, no tempo", [](S3mFileBuilder& b) {
             b.globalVolume = 200, b.speed = 0, b.tempo = 0; },
         "Scream Tracker 3.20", 0, 255, 6, 125, {51, 204}},
        {"slowest tempo", [](S3mFileBuilder& b) { b.globalVolume = 1, b.speed = 31, b.tempo = 20; },
         "Scream Tracker 3.20", 0, 3, 31, 32, {51, 204}},
        {"panning table", [](S3mFileBuilder& b) {
             b.channels = {0, 8, 0, 24}, b.panningTable = Bytes(32, 0), b.panningTable[0] = 0x2F,
             b.panningTable[2] = 0x20, b.panningTable[3] = 0x17; },
         "Scream Tracker 3.20", 0, 255, 6, 125, {255, 204, 0, 128}},
        {"mono centres all", [](S3mFileBuilder& b) { b.masterVolume = 0x30, b.panningTable = Bytes(32, 0x2F); },
         "Scream Tracker 3.20", 0, 255, 6, 125, {128, 128}},
        {"no channel in use", [](S3mFileBuilder& b) { b.channels = {}; }, "Scream Tracker 3.20", 0, 255, 6, 125, {}},
        {"caller's variant", [](S3mFileBuilder&) {}, "Scream Tracker 3.20", 0, 255, 6, 125, {51, 204}, 6, 6},
    };
    for (const auto& c : cases) {
        S3mFileBuilder builder;
        c.change(builder);
        Module module;
        ASSERT_TRUE(load(module, builder.build(), FormatS3m, c.variant)) << c.what;
        EXPECT_STREQ(module.trackerName.c_str(), c.trackerName.c_str()) << c.what;
        EXPECT_EQ(std::tuple(module.fastVolumeSlides, module.globalVolume, module.initialSpeed, module.initialTempo),
                  std::tuple(c.fastSlides, c.globalVolume, c.speed, c.tempo)) << c.what;
        EXPECT_EQ(std::vector<uint8_t>(module.channelPanning.begin(), module.channelPanning.end()), c.panning)
            << c.what;
        EXPECT_EQ(module.channelCount, int32_t(c.panning.size())) << c.what;
        EXPECT_EQ(module.patterns[0][0].count(), int32_t(c.panning.size())) << c.what;
        EXPECT_EQ(module.playbackMode, c.mode) << c.what;
    }
}

TEST(S3mLoader, SignedSamples) {
    S3mFileBuilder builder;
    builder.sampleFormat = s3mSignedSamples;
    S3mFileBuilder::Instrument wide;
    wide.flags = s3mSample16Bit, wide.length = 2, wide.data = {0x00, 0x80, 0xFF, 0x7F};
    builder.instruments[0].data = {0x80, 0x7F, 0x00, 0xFF};
    builder.instruments.push_back(wide);
    Module module;
    ASSERT_TRUE(load(module, builder.build()));
    EXPECT_EQ(pcmOf(module.samples[0]), std::vector<int16_t>({-32768, 32512, 0, -256, 0}));
    EXPECT_EQ(pcmOf(module.samples[1]), std::vector<int16_t>({-32768, 32767, 0}));
}

// Damage done to a good file, and what the loader must say about it.
TEST(S3mLoader, DamagedFilesFail) {
    using Damage = std::function<void(S3mFileBuilder&, Bytes&)>;
    auto rebuild = [](std::function<void(S3mFileBuilder&)> change) {
        return [change](S3mFileBuilder& b, Bytes& bytes) { change(b), bytes = b.build(); };
    };
    const struct { const char* what; Damage damage; bool signatureKept = true; } cases[] = {
        {"signature", [](S3mFileBuilder&, Bytes& bytes) { bytes[s3mSignatureOffset + 3] = 'N'; }, false},
        {"file type", [](S3mFileBuilder&, Bytes& bytes) { bytes[s3mFileTypeOffset] = 17; }, false},
        {"short header", [](S3mFileBuilder&, Bytes& bytes) { bytes.resize(s3mHeaderSize - 1); }, false},
        {"65535 orders", [](S3mFileBuilder&, Bytes& bytes) { putWord(bytes, s3mOrderCountOffset, 65535); }},
        {"65535 patterns", [](S3mFileBuilder&, Bytes& bytes) { putWord(bytes, s3mPatternCountOffset, 65535); }},
        {"instrument beyond the end", [](S3mFileBuilder&, Bytes& bytes) { putWord(bytes, s3mHeaderSize + 1, 0xFFFF); }},
        {"two instruments share a header", [](S3mFileBuilder& b, Bytes& bytes) {
             b.instruments.push_back(b.instruments[0]), bytes = b.build();
             putWord(bytes, s3mHeaderSize + 3, uint32_t(b.instrumentAt[0] / 16)); }},
        {"pattern overlaps an instrument", [](S3mFileBuilder& b, Bytes& bytes) {
             putWord(bytes, s3mHeaderSize + 3, uint32_t(b.instrumentAt[0] / 16)); }},
        {"pattern runs past the end", [](S3mFileBuilder& b, Bytes& bytes) { putWord(bytes, b.patternAt[0], 0xFFFF); }},
        {"sample data overlaps a pattern", [](S3mFileBuilder& b, Bytes& bytes) {
             putWord(bytes, b.instrumentAt[0] + s3mSampleDataOffset + 1, uint32_t(b.patternAt[0] / 16)); }},
        {"4 GiB of PCM", rebuild([](S3mFileBuilder& b) { b.instruments[0].length = 0xFFFFFFFF; })},
        {"2 GiB of stereo 16-bit frames", rebuild([](S3mFileBuilder& b) {
             b.instruments[0].length = 0x20000000, b.instruments[0].flags = s3mSampleStereo | s3mSample16Bit; })},
        {"last sample cut short", [](S3mFileBuilder&, Bytes& bytes) { bytes.pop_back(); }},
    };
    for (const auto& c : cases) {
        S3mFileBuilder builder;
        Bytes bytes = builder.build();
        c.damage(builder, bytes);
        for (int32_t format : {FormatS3m, FormatAutomatic}) {
            if (format == FormatAutomatic && c.signatureKept)
                continue;  // a damaged S3M may still pass for the MOD layout that any bytes fit
            Module module;
            module.title = "kept";
            EXPECT_FALSE(load(module, bytes, format) && module.formatType == FormatS3m) << c.what;
            EXPECT_EQ(std::string(module.title.c_str()) == "kept", !c.signatureKept && format == FormatS3m) << c.what;
        }
    }
    MemoryStream unseekable;
    Bytes good = S3mFileBuilder().build();
    unseekable.writeAll(good.data(), int32_t(good.size()));
    unseekable.rewind();
    unseekable.setSeekable(false);
    Module module;
    EXPECT_FALSE(loadModule(module, unseekable, FormatS3m, 0));
}
