// Tests of sample conversion, loop repair and unrolling, loop wrapping and
// envelope evaluation.
#include <gtest/gtest.h>

#include <initializer_list>
#include <tuple>
#include <utility>
#include <vector>

#include "modplayer/Envelope.h"
#include "modplayer/SampleData.h"
#include "modplayer/tests/SongBuilder.h"

using namespace mod;

namespace {

std::vector<int16_t> pcmOf(const SampleData& data) {
    return std::vector<int16_t>(data.pcm.begin(), data.pcm.end());
}

// Runs of consecutive values, each inclusive and in either direction.
std::vector<int16_t> runs(std::initializer_list<std::pair<int, int>> ranges) {
    std::vector<int16_t> values;
    for (auto [from, to] : ranges)
        for (int v = from, step = from <= to ? 1 : -1; v != to + step; v += step)
            values.push_back(int16_t(v));
    return values;
}

// Finalised mono 16-bit data whose frame i holds the value i.
SharedRef<SampleData> countingSample(int32_t frames, int32_t loopType, int32_t loopStart, int32_t loopEnd) {
    return finalisedSample(sampleFormat(16, 1, frames, loopType, loopStart, loopEnd), runs({{0, frames - 1}}));
}

}  // namespace

TEST(SampleData, SetDataConvertsToSixteenBits) {
    const struct {
        const char* what; SampleFormat format; std::vector<uint8_t> bytes; int32_t byteOrder, signedFlag;
        std::vector<int16_t> expected;
    } cases[] = {
        {"8-bit signed", sampleFormat(8, 1, 4), {0x00, 0x7F, 0x80, 0xFF}, 1, 1, {0, 32512, -32768, -256}},
        {"8-bit unsigned", sampleFormat(8, 1, 3), {0x80, 0xFF, 0x00}, 1, 0, {0, 32512, -32768}},
        {"16-bit little", sampleFormat(16, 1, 2), {0x34, 0x12, 0xFF, 0xFF}, 1, 1, {0x1234, -1}},
        {"16-bit big", sampleFormat(16, 1, 2), {0x12, 0x34, 0x80, 0x00}, 2, 1, {0x1234, -32768}},
        {"16-bit unsigned", sampleFormat(16, 1, 2), {0x00, 0x80, 0x00, 0x00}, 1, 0, {0, -32768}},
        {"stereo, partial frame", sampleFormat(16, 2, 9), {1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6}, 1, 1, {1, 2, 3, 4}},
        {"length below the bytes", sampleFormat(8, 2, 1), {1, 2, 3, 4}, 1, 1, {256, 512}},
    };
    for (const auto& c : cases) {
        SampleData data;
        const int32_t byteCount = int32_t(c.bytes.size());
        ASSERT_TRUE(data.setData(c.format, c.bytes.data(), byteCount, c.byteOrder, c.signedFlag)) << c.what;
        EXPECT_EQ(pcmOf(data), c.expected) << c.what;
        EXPECT_EQ(data.length, c.expected.size() / c.format.channels) << c.what;
    }
    uint8_t bytes[8] = {};
    SampleData data;
    for (SampleFormat format :
         {sampleFormat(12, 1, 4), sampleFormat(16, 3, 4), sampleFormat(16, 0, 4), sampleFormat(8, 1, -1)})
        EXPECT_FALSE(data.setData(format, bytes, 8, 1, 1)) << int(format.bitsPerSample) << int(format.channels);
    EXPECT_FALSE(data.setData(sampleFormat(8, 1, 4), bytes, -1, 1, 1));
    EXPECT_FALSE(data.setData(sampleFormat(8, 1, 4), nullptr, 4, 1, 1));
    EXPECT_TRUE(data.setData(sampleFormat(8, 1, 4), nullptr, 0, 1, 1) && data.finalise());
    EXPECT_EQ(data.length, 0u);
}

TEST(SampleData, FinaliseRepairsAndUnrollsLoops) {
    const struct {
        const char* what; int32_t frames, loopType, loopStart, loopEnd;
        int32_t finalType; uint32_t finalStart, finalEnd, finalLength; std::vector<int16_t> pcm;
    } cases[] = {
        {"ping-pong, turns repeated", 40, 2, 10, 20, 1, 10, 30, 30, runs({{0, 19}, {19, 10}, {10, 10}})},
        {"ping-pong, turns once", 40, 3, 10, 20, 1, 10, 28, 28, runs({{0, 19}, {18, 11}, {10, 10}})},
        {"ping-pong of one frame", 40, 3, 10, 11, 1, 10, 11, 11, runs({{0, 10}, {10, 10}})},
        {"forward", 40, 1, 10, 20, 1, 10, 20, 40, runs({{0, 19}, {10, 10}})},
        {"no loop", 8, 0, 2, 4, 0, 2, 4, 8, runs({{0, 7}, {0, 0}})},
        {"loop end past the length", 8, 1, 2, 50, 1, 2, 8, 8, runs({{0, 7}, {2, 2}})},
        {"empty loop switched off", 8, 1, 4, 4, 0, 4, 4, 8, runs({{0, 7}, {0, 0}})},
        {"reversed loop switched off", 8, 2, 6, 3, 0, 6, 3, 8, runs({{0, 7}, {0, 0}})},
        {"negative loop start", 8, 1, -5, 4, 1, 0, 4, 8, runs({{0, 3}, {0, 0}})},
    };
    for (const auto& c : cases) {
        SharedRef<SampleData> data = countingSample(c.frames, c.loopType, c.loopStart, c.loopEnd);
        EXPECT_EQ(std::tuple(data->loopType, data->loopStart, data->loopEnd, data->length),
                  std::tuple(c.finalType, c.finalStart, c.finalEnd, c.finalLength)) << c.what;
        EXPECT_EQ(pcmOf(*data), c.pcm) << c.what;
        EXPECT_TRUE(data->finalise() && pcmOf(*data) == c.pcm) << c.what << " (finalised twice)";
    }
    SharedRef<SampleData> stereo =
        finalisedSample(sampleFormat(16, 2, 4, LoopPingPong, 1, 3), {0, 100, 1, 101, 2, 102, 3, 103});
    EXPECT_EQ(pcmOf(*stereo), (std::vector<int16_t>{0, 100, 1, 101, 2, 102, 2, 102, 1, 101, 1, 101}));
}

TEST(SampleData, WrapPosition) {
    SharedRef<SampleData> looped = countingSample(40, LoopForward, 10, 20);
    SharedRef<SampleData> plain = countingSample(40, LoopNone, 0, 0);
    const struct { SampleData* data; uint32_t position, wrapped, result; } cases[] = {
        {looped.get(), 5, 5, 0}, {looped.get(), 19, 19, 0}, {looped.get(), 20, 10, 0}, {looped.get(), 25, 15, 0},
        {looped.get(), 30, 10, 1}, {looped.get(), 45, 15, 2}, {looped.get(), 1000000, 10, 99998},
        {plain.get(), 7, 7, 7}, {plain.get(), 50, 40, 40},
    };
    for (const auto& c : cases) {
        uint32_t position = c.position;
        EXPECT_EQ(c.data->wrapPosition(position), c.result) << c.position;
        EXPECT_EQ(position, c.wrapped) << c.position;
    }
}

TEST(Envelope, ValueAtTick) {
    const std::vector<EnvelopePoint> rise = {{0, 0}, {10, 64}}, late = {{4, 10}, {8, 30}};
    const std::vector<EnvelopePoint> peak = {{0, 0}, {10, 64}, {20, 0}};
    const struct { std::vector<EnvelopePoint> points; int32_t tick, value; } cases[] = {
        {{}, 5, 0}, {rise, 5, 32}, {rise, 99, 64}, {peak, 15, 32}, {peak, 25, 0},
        {late, 2, 30},  // before the first point: the last value
        {late, 4, 10}, {late, 6, 20}, {{{0, 64}, {3, 0}}, 1, 43},  // truncated toward zero
        {{{7, -20}}, 7, -20}, {{{7, -20}}, 3, -20},
    };
    for (const auto& c : cases) {
        Envelope envelope;
        for (const EnvelopePoint& point : c.points)
            envelope.points.add(point);
        EXPECT_EQ(envelope.valueAt(c.tick), c.value) << "tick " << c.tick;
    }
}
