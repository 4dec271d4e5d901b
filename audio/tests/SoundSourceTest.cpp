// Tests of SoundSource: zero fill, looping, converting reads and settings.
#include <gtest/gtest.h>

#include <cstring>

#include "MemoryStream.h"
#include "RateConverter.h"
#include "SampleFormat.h"
#include "SoundSource.h"
#include "WavBuilder.h"

namespace {

using OpenSource = OpenedWav<SoundSource>;

const std::vector<uint8_t> threeFrames = {1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0};  // Int16 stereo

}  // namespace

TEST(SoundSource, shortFileIsFilledWithZerosOrLoopedOnce) {
    const auto wav = WavBuilder().fmt(1, 2, 44100, 16).data(threeFrames).bytes();
    for (bool looping : {false, true}) {
        OpenSource open(wav);
        ASSERT_TRUE(open.ok);
        open.file.setLooping(looping);
        std::vector<uint8_t> buffer(8 * 4, 0xEE);
        uint32_t got = 0;
        ASSERT_TRUE(open.file.read(buffer.data(), 8, got));
        std::vector<uint8_t> expected = threeFrames;
        if (looping)
            expected.insert(expected.end(), threeFrames.begin(), threeFrames.end());
        EXPECT_EQ(got, looping ? 6u : 3u);
        expected.resize(8 * 4, 0);
        EXPECT_EQ(buffer, expected);
    }
}

TEST(SoundSource, convertingReadsReportFullCountsAndMatchTheConverter) {
    const auto samples = randomBytes(4 * 1500, 41);
    OpenSource open(WavBuilder().fmt(1, 2, 22050, 16).data(samples).bytes());
    ASSERT_TRUE(open.ok);
    ASSERT_TRUE(open.file.setOutputRate(44100));
    RateConverter reference;
    reference.setInputRate(22050);
    reference.setOutputRate(44100);
    reference.setFormat(Int16, 2);
    size_t used = 0;
    for (int call = 0; call < 10; ++call) {  // runs well past the end of the file
        std::vector<uint8_t> buffer(4 * 500);
        uint32_t got = 0;
        ASSERT_TRUE(open.file.read(buffer.data(), 500, got));
        EXPECT_EQ(got, 500u);
        if (call == 3) {  // the rate in use again: nothing is reset
            ASSERT_TRUE(open.file.setOutputRate(44100));
        }
        const int32_t need = reference.inputFramesFor(500);
        uint8_t* in = static_cast<uint8_t*>(reference.inputBuffer(need));
        const size_t available = std::min(size_t(need) * 4, samples.size() - used);
        std::memcpy(in, samples.data() + used, available);
        used += available;
        std::vector<uint8_t> expected(4 * 500);
        reference.process(expected.data(), 500);
        if (call < 5) {  // while the file lasts
            EXPECT_EQ(buffer, expected) << "call " << call;
        }
    }
}

TEST(SoundSource, settingsAndClosedSources) {
    OpenSource open(WavBuilder().fmt(1, 1, 8000, 16).data(threeFrames).bytes());
    ASSERT_TRUE(open.ok);
    EXPECT_TRUE(open.file.setOutputFormat(Float32, 1));
    EXPECT_FALSE(open.file.setOutputFormat(Int16, 0));
    EXPECT_EQ(open.file.outputSampleFormat(), uint32_t(Float32));
    EXPECT_EQ(open.file.outputChannelCount(), 1);
    EXPECT_FALSE(open.file.setOutputRate(0));
    ASSERT_TRUE(open.file.setOutputRate(8000));
    float buffer[8];
    uint32_t got = 0;
    ASSERT_TRUE(open.file.read(buffer, 8, got));
    EXPECT_EQ(got, 6u);
    EXPECT_EQ(buffer[0], 1.0f / 32768);
    ASSERT_TRUE(open.file.restart());
    EXPECT_TRUE(open.file.close());
    EXPECT_FALSE(open.file.read(buffer, 8, got));
    EXPECT_FALSE(open.file.restart());

    SoundSource never;
    MemoryStream garbage(threeFrames.data(), 12);
    EXPECT_FALSE(never.open(&garbage));
    EXPECT_FALSE(never.read(buffer, 8, got));
}
