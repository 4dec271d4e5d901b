// Tests of the mixing loops: every combination of output channels, sample
// frame, interpolation and ramp, scalar and vector, against a plain
// frame-by-frame reference, on stretches that cross loop and sample ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>
#include <vector>

#include "modplayer/Mixer.h"
#include "modplayer/SampleData.h"
#include "modplayer/tests/SongBuilder.h"

using namespace mod;

namespace {

// Looped over [loopStart, loopEnd) when that is not empty; random frames
// unless every sample is to be `constant`.
SampleData* makeSample(int32_t channels, int32_t frames, int32_t loopStart, int32_t loopEnd,
                       std::optional<int16_t> constant = {}) {
    std::mt19937 random(7);
    std::vector<int16_t> pcm(size_t(frames) * channels);
    for (int16_t& s : pcm)
        s = constant ? *constant : int16_t(random());
    int32_t loopType = loopEnd > loopStart ? LoopForward : LoopNone;
    return finalisedSample(sampleFormat(16, uint8_t(channels), frames, loopType, loopStart, loopEnd), pcm);
}

// The mix written out one output frame at a time, straight from the
// definitions: position in 32.32 frames, wrapped into the loop when it
// passes the end; linear interpolation with a 15-bit fraction; gains that
// step for `rampFrames` frames and then sit on their target.
std::vector<int32_t> referenceMix(const SampleData& data, Voice voice, int32_t frames, int32_t outChannels,
                                  bool interpolate) {
    std::vector<int32_t> out(size_t(frames) * outChannels);
    uint32_t end = data.isLooped() ? data.loopEnd : data.length;
    uint64_t position = voice.position;
    int32_t level[2] = {voice.level[0], voice.level[1]};
    for (int32_t i = 0; i < frames; ++i, position += voice.step) {
        uint32_t frame = uint32_t(position >> 32);
        if (frame >= end && !data.isLooped())
            break;
        if (frame >= end) {
            frame = data.loopStart + (frame - data.loopStart) % (data.loopEnd - data.loopStart);
            position = uint64_t(frame) << 32 | uint32_t(position);
        }
        for (int side = 0; side < 2; ++side)
            level[side] = i < voice.rampFrames ? level[side] + voice.rampStep[side] : voice.target[side];
        int32_t values[2] = {};
        for (int side = 0; side < data.channels; ++side) {
            int32_t a = data.pcm[int32_t(frame * data.channels + side)];
            int32_t b = data.pcm[int32_t((frame + 1) * data.channels + side)];
            int32_t fraction = int32_t(uint32_t(position) >> 17);
            values[side] = interpolate ? a + int32_t(std::floor((b - a) * double(fraction) / 32768)) : a;
        }
        if (data.channels == 1)
            values[1] = values[0];
        if (outChannels == 1) {
            int32_t mono = data.channels == 2 ? (values[0] + values[1]) >> 1 : values[0];
            out[i] += int32_t(std::floor(mono * double(level[0] >> 16) / (1 << (12 - accumulatorShift))));
        } else {
            for (int side = 0; side < 2; ++side)
                out[2 * i + side] +=
                    int32_t(std::floor(values[side] * double(level[side] >> 16) / (1 << (12 - accumulatorShift))));
        }
    }
    return out;
}

}  // namespace

TEST(Mixer, EveryLoopMatchesThePlainReference) {
    const struct {
        const char* what;
        int32_t frames, loopStart, loopEnd;
        uint64_t start, step;  // 32.32
        int32_t mixFrames;
    } cases[] = {
        {"unlooped, ends inside the stretch", 300, 0, 0, 0, 0x5A3C1234ull, 1200},
        {"forward loop crossed many times", 400, 120, 180, 3ull << 32, 0x1C0000000ull, 2000},
        {"steps longer than the loop", 64, 10, 13, 0, 0x7A0000001ull, 500},
        {"starting past the loop end", 100, 20, 60, 90ull << 32, 0x80000000ull, 300},
        {"one-frame loop at the end", 50, 49, 50, 40ull << 32, 0x123456789ull, 300},
    };
    // Every variant: vector or scalar loops, 1 or 2 output channels, mono or
    // stereo samples, nearest or linear, steady or ramped gains.
    for (const auto& c : cases)
        for (int32_t variant = 0; variant < 32; ++variant) {
            bool vector = variant & 1, interpolate = variant & 2, ramp = variant & 4;
            int32_t outChannels = 1 + (variant >> 3 & 1), sampleChannels = 1 + (variant >> 4 & 1);
            useVectorLoops(vector);
            SharedRef<SampleData> data = makeSample(sampleChannels, c.frames, c.loopStart, c.loopEnd);
            Voice voice;
            ASSERT_TRUE(voice.start(*data, uint32_t(c.start >> 32))) << c.what;
            voice.position = c.start;
            voice.step = c.step;
            voice.steer(3000, 1000, 0);
            voice.steer(500, 4096, ramp ? 777 : 0);
            std::vector<int32_t> expected = referenceMix(*data, voice, c.mixFrames, outChannels, interpolate);
            std::vector<int32_t> mixed(expected.size());
            // In uneven pieces, as ticks and chunks cut it.
            for (int32_t done = 0, piece = 1; done < c.mixFrames; done += piece, piece = piece * 3 + 1)
                mixVoice(voice, mixed.data() + done * outChannels, std::min(piece, c.mixFrames - done), outChannels,
                         interpolate);
            EXPECT_EQ(mixed, expected) << c.what << ", vector " << vector << ", out " << outChannels << ", sample "
                                       << sampleChannels << ", interpolate " << interpolate << ", ramp " << ramp;
            EXPECT_EQ(voice.active, data->isLooped()) << c.what;
        }
    useVectorLoops(true);
}

TEST(Mixer, ClipsTheSumToSixteenBits) {
    const int32_t unity = 1 << accumulatorShift;
    std::vector<int32_t> sums = {0, 5 * unity, -7 * unity, 40000 * unity, -40000 * unity, 32767 * unity + unity - 1};
    std::vector<int16_t> out(sums.size());
    clipToInt16(sums.data(), out.data(), int32_t(sums.size()));
    EXPECT_EQ(out, (std::vector<int16_t>{0, 5, -7, 32767, -32768, 32767}));
}

TEST(Mixer, FadeOutStopsTheVoiceAtTheRampEnd) {
    SharedRef<SampleData> data = makeSample(1, 1000, 0, 1000);
    Voice voice;
    ASSERT_TRUE(voice.start(*data, 0));
    voice.step = 1ull << 32;
    voice.steer(4096, 4096, 0);
    voice.stopAfterRamp = true;
    voice.steer(0, 0, 100);
    std::vector<int32_t> mixed(2 * 300);
    mixVoice(voice, mixed.data(), 300, 2, true);
    EXPECT_FALSE(voice.active);
    for (int32_t i = 200; i < 600; ++i)
        EXPECT_EQ(mixed[i], 0) << i;
}

// ProTracker's sample swap: the queued sample's loop takes over where the
// playing one reaches its loop end; with nothing queued the voice stops there.
TEST(Mixer, QueuedSampleTakesOverAtTheLoopEnd) {
    SharedRef<SampleData> playing = makeSample(1, 64, 0, 64, 1000), next = makeSample(1, 30, 10, 30, -2000);
    for (bool queueSample : {true, false}) {
        Voice voice;
        ASSERT_TRUE(voice.start(*playing, 40));
        voice.step = 1ull << 32;
        voice.steer(1 << 12, 1 << 12, 0);
        voice.hasQueued = true;
        voice.queued = queueSample ? next.get() : nullptr;
        std::vector<int32_t> mixed(200);
        mixVoice(voice, mixed.data(), 100, 2, false);
        for (int32_t i = 0; i < 100; ++i) {
            int32_t expected = i < 24 ? 1000 : queueSample ? -2000 : 0;
            ASSERT_EQ(mixed[2 * i] >> accumulatorShift, expected) << i << (queueSample ? " queued" : " stop");
        }
        EXPECT_EQ(voice.active, queueSample);
    }
}
