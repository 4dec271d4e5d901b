// Tests of SoundSource: zero fill, looping, converting reads and settings.
#include <gtest/gtest.h>

#include "audio/RateConverter.h"
#include "audio/SoundSource.h"
#include "audio/tests/WavBuilder.h"

using OpenSource = OpenedWav<SoundSource>;

static const Bytes threeFrames = {1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0};  // Int16 stereo

TEST(SoundSource, shortFileIsFilledWithZerosOrLoopedOnce) {
    const auto wav = WavBuilder().fmt(1, 2, 44100, 16).data(threeFrames).bytes();
    for (bool looping : {false, true}) {
        OpenSource open(wav);
        ASSERT_TRUE(open.ok);
        open.file.setLooping(looping);
        Bytes buffer(8 * 4, 0xEE);
        uint32_t got = 0;
        ASSERT_TRUE(open.file.read(buffer.data(), 8, got));
        Bytes expected = threeFrames;
        if (looping)
            expected.insert(expected.end(), threeFrames.begin(), threeFrames.end());
        EXPECT_EQ(got, looping ? 6u : 3u);
        expected.resize(8 * 4, 0);
        EXPECT_EQ(buffer, expected);
    }
}

// Every call gives all frames asked, past the end of the file too; while the
// file lasts they are the converter's output on the file's frames.
TEST(SoundSource, convertingReadsReportFullCountsAndMatchTheConverter) {
    const auto samples = randomBytes(4 * 1500, 41);
    OpenSource open(WavBuilder().fmt(1, 2, 22050, 16).data(samples).bytes());
    ASSERT_TRUE(open.ok);
    ASSERT_TRUE(open.file.setOutputRate(44100));
    RateConverter reference;
    reference.setInputRate(22050);
    reference.setOutputRate(44100);
    reference.setFormat(Int16, 2);
    const Bytes expected = convertInCalls(reference, samples, 4, 2500, 500);
    Bytes played;
    for (int call = 0; call < 10; ++call) {
        Bytes buffer(4 * 500);
        uint32_t got = 0;
        ASSERT_TRUE(open.file.read(buffer.data(), 500, got));
        EXPECT_EQ(got, 500u);
        played.insert(played.end(), buffer.begin(), buffer.end());
        if (call == 3) {  // the rate in use again: nothing is reset
            ASSERT_TRUE(open.file.setOutputRate(44100));
        }
    }
    EXPECT_EQ(Bytes(played.begin(), played.begin() + 4 * 2500), expected);
}

TEST(SoundSource, settingsAndClosedSources) {
    OpenSource open(WavBuilder().fmt(1, 1, 8000, 16).data(threeFrames).bytes());
    ASSERT_TRUE(open.ok);
    EXPECT_TRUE(open.file.setOutputFormat(Float32, 1));
    EXPECT_FALSE(open.file.setOutputFormat(Int16, 0));  // leaves Float32 in place
    EXPECT_FALSE(open.file.setOutputRate(0));
    ASSERT_TRUE(open.file.setOutputRate(8000));
    float buffer[8];
    uint32_t got = 0;
    ASSERT_TRUE(open.file.read(buffer, 8, got));
    EXPECT_EQ(got, 6u);
    EXPECT_EQ(buffer[0], 1.0f / 32768);
    EXPECT_TRUE(open.file.close());
    EXPECT_FALSE(open.file.read(buffer, 8, got));
    EXPECT_FALSE(open.file.restart());
}
