// Tests of the XM loader on a song built in memory, field by field.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <tuple>
#include <vector>

#include "core/Heap.h"
#include "core/MemoryStream.h"
#include "modplayer/EffectCodes.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/XmFormat.h"

using namespace mod;

namespace {

using Bytes = std::vector<uint8_t>;

void put(Bytes& out, uint32_t value, int width) {
    for (int i = 0; i < width; ++i)
        out.push_back(uint8_t(value >> 8 * i));
}

void putText(Bytes& out, const char* text, size_t size) {
    size_t length = std::min(std::strlen(text), size);
    out.insert(out.end(), text, text + length);
    out.resize(out.size() + size - length, 0);
}

// A record whose size field says `size`: cut to it, or padded with zeros
// (up to 64 KiB; larger claims outrun the file).
void putRecord(Bytes& out, Bytes record, uint32_t size) {
    record.resize(std::min<uint32_t>(size, 1 << 16), 0);
    for (size_t i = 0; i < std::min<size_t>(4, record.size()); ++i)
        record[i] = uint8_t(size >> 8 * i);
    out.insert(out.end(), record.begin(), record.end());
}

struct Sample {
    std::vector<int16_t> frames;
    uint8_t type, volume, panning, loopStart, loopLength;  // loop in frames
    int8_t finetune, relativeNote;
    const char* name;
};

struct Instrument {
    const char* name;
    std::vector<Sample> samples;
    std::vector<uint8_t> envelopes;  // from the volume points to the fadeout
};

// One song with every kind of field: three patterns (packed cells, no rows,
// no packed data), an instrument with an 8-bit forward loop and a 16-bit
// ping-pong loop and two envelopes (the panning one broken in every way the
// loader repairs), one without samples, one with an empty sample. The
// public fields change what the file claims; -1 keeps the true value.
struct XmFileBuilder {
    const char* id = xmIdText;
    uint16_t version = xmVersion, channels = 3, rows = 4;
    uint32_t songHeaderSize = xmSongHeaderSize, patternHeaderSize = xmPatternHeaderSize;
    uint32_t instrumentHeaderSize = 263, sampleHeaderSize = xmSampleHeaderSize;
    int64_t songLength = -1, patterns = -1, instruments = -1, packedSize = -1, sampleCount = -1, sampleBytes = -1;

    static constexpr uint8_t cells[] = {
        49, 1, 0x50, 0x0C, 0x20,  // unpacked: all five fields
        0x81, 97,                 // key off
        0x80,                     // empty
        0x98, 0x0F, 0x06,         // effect and parameter only
        0x83, 96, 2,              // B-7, instrument 2
        0x8D, 98, 0x51, 0x24,     // no note, no volume command, no effect
        0x84, 0xC8,               // volume column: panning
        0x9F, 50, 2,              // cut off by the end of the data
    };

    Bytes build() const {
        Bytes out;
        putText(out, id, 17);
        putText(out, "Built Song     ", 20);
        out.push_back(0x1A);
        putText(out, "Test Tracker    ", 20);
        put(out, version, 2);
        const Bytes orders = {0, 1, 2, 0, 7};
        Bytes song(4);
        for (int64_t value : {claim(songLength, 5), int64_t(3), int64_t(channels), claim(patterns, 3),
                              claim(instruments, 3), int64_t(0), int64_t(0), int64_t(140)})
            put(song, uint32_t(value), 2);
        song.insert(song.end(), orders.begin(), orders.end());
        putRecord(out, song, songHeaderSize);
        putPattern(out, rows, Bytes(cells, cells + sizeof cells));
        putPattern(out, 0, {});
        putPattern(out, 5, {});
        Sample pluck{{0, 100, -100, 50, 7}, 1, 32, 200, 1, 2, -16, -12, "Pluck  "};
        Sample bell{{1000, -1000, 32767, -32768, 5}, 0x12, 64, 0, 1, 3, 127, 95, "Bell"};
        Sample nothing{{}, 0, 80, 255, 0, 0, -1, 0, "Nothing"};
        std::vector<uint8_t> silentEnvelopes(112, 0);
        silentEnvelopes[104] = 7;  // volume envelope on, without points
        const Instrument instruments[] = {{"Lead", {pluck, bell}, lead()}, {"Empty", {}, {}},
                                          {"Silent", {nothing}, silentEnvelopes}};
        for (const Instrument& instrument : instruments)
            putInstrument(out, instrument, &instrument == instruments);
        return out;
    }

    static int64_t claim(int64_t claimed, int64_t actual) { return claimed >= 0 ? claimed : actual; }

    void putPattern(Bytes& out, uint16_t rowCount, const Bytes& packed) const {
        Bytes header(5);
        put(header, rowCount, 2);
        put(header, uint32_t(packed.empty() ? 0 : claim(packedSize, int64_t(packed.size()))), 2);
        putRecord(out, header, patternHeaderSize);
        out.insert(out.end(), packed.begin(), packed.end());
    }

    // Volume points, panning points, counts, sustain and loop points, flags,
    // auto-vibrato and fadeout of the first instrument.
    static std::vector<uint8_t> lead() {
        Bytes e;
        for (uint32_t value : {0, 64, 10, 32, 20, 0})
            put(e, value, 2);
        e.resize(48, 0);
        for (uint32_t value : {0, 32, 5, 70, 3, 0, 8, 16})  // 70 is too high, 3 lies before 5
            put(e, value, 2);
        e.resize(96, 0);  // the other 8 points are (0, 0)
        e.insert(e.end(), {3, 13, 1, 0, 2, 12, 1, 3, 7, 7, 1, 2, 3, 4});
        put(e, 0x400, 2);
        return e;
    }

    void putInstrument(Bytes& out, const Instrument& instrument, bool first) const {
        Bytes header(4);
        putText(header, instrument.name, 22);
        header.push_back(0);
        put(header, uint32_t(claim(first ? sampleCount : -1, int64_t(instrument.samples.size()))), 2);
        put(header, sampleHeaderSize, 4);
        for (int note = 0; note < 96; ++note)
            header.push_back(note >= 48 && first ? 1 : 0);
        header.insert(header.end(), instrument.envelopes.begin(), instrument.envelopes.end());
        putRecord(out, header, instrument.samples.empty() ? 29 : instrumentHeaderSize);
        for (const Sample& s : instrument.samples) {
            int width = s.type & xmSixteenBit ? 2 : 1;
            Bytes sampleHeader;
            put(sampleHeader, uint32_t(claim(first ? sampleBytes : -1, int64_t(s.frames.size()) * width)), 4);
            put(sampleHeader, s.loopStart * width, 4);
            put(sampleHeader, s.loopLength * width, 4);
            sampleHeader.insert(sampleHeader.end(), {s.volume, uint8_t(s.finetune), s.type, s.panning,
                                                     uint8_t(s.relativeNote), 0});
            putText(sampleHeader, s.name, 22);
            sampleHeader.resize(std::clamp<uint32_t>(sampleHeaderSize, xmSampleHeaderSize, 1 << 16), 0);
            out.insert(out.end(), sampleHeader.begin(), sampleHeader.end());
        }
        for (const Sample& s : instrument.samples)  // each value as the difference to the one before
            for (size_t i = 0; i < s.frames.size(); ++i)
                put(out, uint16_t(s.frames[i] - (i ? s.frames[i - 1] : 0)), s.type & xmSixteenBit ? 2 : 1);
    }
};

bool load(Module& module, const Bytes& bytes, int32_t format = FormatXm, int32_t variant = 0, bool knowsSize = true) {
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    stream.setSeekable(knowsSize);  // unseekable: the stream cannot tell its size
    return loadModule(module, stream, format, variant);
}

template <typename T>
std::vector<T> list(const Array<T>& array) {
    return std::vector<T>(array.begin(), array.end());
}

std::vector<std::tuple<int, int, int, int, int>> cellsOf(const ModulePattern& pattern) {
    std::vector<std::tuple<int, int, int, int, int>> out;
    for (const PatternRow& row : pattern)
        for (const PatternCell& c : row)
            out.emplace_back(c.note, c.instrument, c.volume, c.effect, c.parameter);
    return out;
}

std::vector<std::pair<int, int>> pointsOf(const Envelope& envelope) {
    std::vector<std::pair<int, int>> out;
    for (const EnvelopePoint& p : envelope.points)
        out.emplace_back(p.position, p.value);
    return out;
}

}  // namespace

TEST(XmLoader, EveryFieldOfABuiltSongIsRead) {
    Module module;
    ASSERT_TRUE(load(module, XmFileBuilder().build(), FormatAutomatic));
    EXPECT_EQ(std::tuple(module.formatType, module.playbackMode, module.usesAmigaPeriods, module.globalVolume),
              std::tuple(int32_t(FormatXm), int32_t(ModeXm), uint8_t(1), uint8_t(255)));
    EXPECT_STREQ(module.title.c_str(), "Built Song");
    EXPECT_STREQ(module.trackerName.c_str(), "Test Tracker");
    EXPECT_EQ(std::tuple(module.initialSpeed, module.initialTempo), std::tuple(uint8_t(6), uint8_t(140)));
    EXPECT_EQ(std::tuple(module.songLength, module.restartPosition, module.channelCount), std::tuple(5, 3, 3));
    EXPECT_EQ(list(module.orders), (std::vector<uint16_t>{0, 1, 2, 0, 7}));
    EXPECT_EQ(list(module.channelPanning), (std::vector<uint8_t>{128, 128, 128}));
    EXPECT_EQ(list(module.channelMap), (std::vector<int32_t>{0, 1, 2}));

    // Packed cells, no rows, no packed data; order 7 names no pattern and is passed over.
    ASSERT_EQ(module.patterns.count(), 3);
    EXPECT_EQ(module.substitutePattern, -1);
    using Cells = std::vector<std::tuple<int, int, int, int, int>>;
    const std::tuple<int, int, int, int, int> empty = {noNote, 0, 0, 0, 0};
    Cells expected = {
        {48, 1, 0x50, EffectSetVolume, 0x20}, {noteKeyOff, 0, 0, 0, 0}, {noNote, 0, 0, 0, 0},
        {noNote, 0, 0, EffectSetSpeedTempo, 6}, {95, 2, 0, 0, 0}, empty,
        {noNote, 0, volumeSetPanning | 8, 0, 0}, {49, 2, 0, 0, 0}};
    expected.resize(12, empty);
    EXPECT_EQ(cellsOf(module.patterns[0]), expected);
    EXPECT_EQ(cellsOf(module.patterns[1]), Cells());
    EXPECT_EQ(cellsOf(module.patterns[2]), Cells(3 * 5, empty));

    // Instruments: the volume envelope as stored, the panning one clamped to
    // 12 points that never go back, values at most 64, sustain beyond the
    // points off; an envelope without points is off.
    ASSERT_EQ(module.instruments.count(), 3);
    const ModuleInstrument& lead = module.instruments[0];
    EXPECT_STREQ(lead.name.c_str(), "Lead");
    EXPECT_EQ(list(lead.sampleIndices), (std::vector<uint16_t>{0, 1}));
    for (int note = 0; note < 128; ++note)
        EXPECT_EQ(lead.noteToSample[note], note >= 48 && note < 96 ? 1 : 0) << note;
    const Envelope& volume = lead.volumeEnvelope;
    EXPECT_EQ(pointsOf(volume), (std::vector<std::pair<int, int>>{{0, 64}, {10, 32}, {20, 0}}));
    EXPECT_EQ(std::tuple(volume.flags, volume.sustainPoint, volume.loopStartPoint, volume.loopEndPoint),
              std::tuple(uint8_t(7), uint8_t(1), uint8_t(0), uint8_t(2)));
    std::vector<std::pair<int, int>> panning = {{0, 32}, {5, 64}, {5, 0}, {8, 16}};
    panning.resize(12, {8, 0});
    EXPECT_EQ(pointsOf(lead.panningEnvelope), panning);
    EXPECT_EQ(lead.panningEnvelope.flags, envelopeOn | envelopeLoop);
    EXPECT_EQ(std::tuple(lead.vibratoType, lead.vibratoSweep, lead.vibratoDepth, lead.vibratoRate, lead.fadeout),
              std::tuple(uint8_t(1), uint8_t(2), uint8_t(3), uint8_t(4), uint16_t(0x400)));
    EXPECT_STREQ(module.instruments[1].name.c_str(), "Empty");
    EXPECT_TRUE(module.instruments[1].sampleIndices.isEmpty());
    EXPECT_EQ(list(module.instruments[2].sampleIndices), (std::vector<uint16_t>{2}));
    EXPECT_EQ(module.instruments[2].volumeEnvelope.flags, 0);

    // Samples: settings, delta-decoded PCM, the forward loop as stored and
    // the ping-pong loop unrolled (frames 1..3 forwards, then 3..1).
    ASSERT_EQ(module.samples.count(), 3);
    const std::tuple<const char*, int, int, int, int> settings[] = {
        {"Pluck", 127, -16, -12, 200}, {"Bell", 255, 127, 95, 0}, {"Nothing", 255, -1, 0, 255}};
    for (int i = 0; i < 3; ++i) {
        const ModuleSample& s = module.samples[i];
        EXPECT_STREQ(s.name.c_str(), std::get<0>(settings[i]));
        EXPECT_EQ(std::tuple(int(s.volume), int(s.finetune), s.extraA, int(s.extraB)),
                  std::tuple(std::get<1>(settings[i]), std::get<2>(settings[i]), std::get<3>(settings[i]),
                             std::get<4>(settings[i])));
    }
    const SampleData& pluck = *module.samples[0].data;
    EXPECT_EQ(std::tuple(pluck.length, pluck.loopStart, pluck.loopEnd, pluck.loopType),
              std::tuple(5u, 1u, 3u, int32_t(LoopForward)));
    EXPECT_EQ(list(pluck.pcm), (std::vector<int16_t>{0, 25600, -25600, 25600}));  // played frames, then the loop start
    const SampleData& bell = *module.samples[1].data;
    EXPECT_EQ(std::tuple(bell.length, bell.loopStart, bell.loopEnd, bell.loopType),
              std::tuple(7u, 1u, 7u, int32_t(LoopForward)));
    EXPECT_EQ(list(bell.pcm), (std::vector<int16_t>{1000, -1000, 32767, -32768, -32768, 32767, -1000, -1000}));
    EXPECT_FALSE(module.samples[2].data);

    ASSERT_TRUE(load(module, XmFileBuilder().build(), FormatXm, ModeS3m));
    EXPECT_EQ(module.playbackMode, ModeS3m);
}

// Record sizes other than the usual load the same song; claims beyond what
// the format allows or the file holds fail, on streams that know their size
// and on streams that do not, without allocating what the claim asks for.
TEST(XmLoader, OddRecordSizesLoadAndHostileClaimsFailEarly) {
    const struct { const char* what; std::function<void(XmFileBuilder&)> change; bool loads; } cases[] = {
        {"lower-case id text", [](XmFileBuilder& b) { b.id = xmIdTextLowerCase; }, true},
        {"song header cut after the orders used", [](XmFileBuilder& b) { b.songHeaderSize = xmOrdersOffset + 5; },
         true},
        {"every record with extra bytes", [](XmFileBuilder& b) {
             b.songHeaderSize = 400, b.patternHeaderSize = 20, b.instrumentHeaderSize = 300, b.sampleHeaderSize = 64; },
         true},
        {"sample header size 0 counts as 40", [](XmFileBuilder& b) { b.sampleHeaderSize = 0; }, true},
        {"version 0x0103", [](XmFileBuilder& b) { b.version = 0x0103; }, false},
        {"id text in capitals", [](XmFileBuilder& b) { b.id = "EXTENDED MODULE: "; }, false},
        {"song header size 3", [](XmFileBuilder& b) { b.songHeaderSize = 3; }, false},
        {"song header of 4 GiB", [](XmFileBuilder& b) { b.songHeaderSize = 0xFFFFFFFF; }, false},
        {"song length 257", [](XmFileBuilder& b) { b.songLength = 257; }, false},
        {"no channels", [](XmFileBuilder& b) { b.channels = 0; }, false},
        {"65 channels", [](XmFileBuilder& b) { b.channels = 65; }, false},
        {"256 patterns, 3 stored", [](XmFileBuilder& b) { b.patterns = 256; }, false},
        {"pattern headers of 4 GiB", [](XmFileBuilder& b) { b.patternHeaderSize = 0xFFFFFFFF; }, false},
        {"257 rows", [](XmFileBuilder& b) { b.rows = 257; }, false},
        {"packed data beyond the file", [](XmFileBuilder& b) { b.packedSize = 0xFFFF; }, false},
        {"255 instruments, 3 stored", [](XmFileBuilder& b) { b.instruments = 255; }, false},
        {"16 samples, 2 stored", [](XmFileBuilder& b) { b.sampleCount = 16; }, false},
        {"instrument header of 4 GiB", [](XmFileBuilder& b) { b.instrumentHeaderSize = 0xFFFFFFFF; }, false},
        {"instrument header size 3", [](XmFileBuilder& b) { b.instrumentHeaderSize = 3; }, false},
        {"sample headers of 4 GiB", [](XmFileBuilder& b) { b.sampleHeaderSize = 0xFFFFFFFF; }, false},
        {"64 MiB of PCM", [](XmFileBuilder& b) { b.sampleBytes = 64 << 20; }, false},
    };
    Module reference;
    ASSERT_TRUE(load(reference, XmFileBuilder().build()));
    for (const auto& c : cases)
        for (bool knowsSize : {true, false}) {
            XmFileBuilder b;
            c.change(b);
            Module module;
            uint64_t peakBefore = processHeap().statistics().peakAllocSize;  // our heap, outside the sanitizers
            ASSERT_EQ(load(module, b.build(), FormatXm, 0, knowsSize), c.loads) << c.what << ", sized " << knowsSize;
            EXPECT_LT(processHeap().statistics().peakAllocSize - peakBefore, 4u << 20) << c.what;
            if (!c.loads) {
                EXPECT_EQ(module.formatType, FormatNone) << c.what;
                continue;
            }
            EXPECT_EQ(cellsOf(module.patterns[0]), cellsOf(reference.patterns[0])) << c.what;
            EXPECT_EQ(list(module.samples[1].data->pcm), list(reference.samples[1].data->pcm)) << c.what;
            EXPECT_EQ(module.samples.count(), 3) << c.what;
        }
}

TEST(XmLoader, EveryPrefixFailsAndNonXmLeavesTheModuleAlone) {
    Bytes whole = XmFileBuilder().build();
    for (size_t length = 0; length < whole.size(); ++length) {
        Module module;
        EXPECT_FALSE(load(module, Bytes(whole.begin(), whole.begin() + length))) << length;
        EXPECT_EQ(module.formatType, FormatNone) << length;
    }
    Module module;
    ASSERT_TRUE(load(module, whole));
    whole[xmVersionOffset] = 0x03;
    EXPECT_FALSE(load(module, whole));
    EXPECT_EQ(std::pair(module.formatType, module.samples.count()), std::pair(int32_t(FormatXm), 3));
}
