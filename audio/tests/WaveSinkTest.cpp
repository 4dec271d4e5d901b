// Tests of WaveSink: writing at the file's rate and through the converter.
#include <gtest/gtest.h>

#include <algorithm>

#include "audio/WaveSink.h"
#include "audio/tests/WavBuilder.h"

namespace {

// Writes Int16 `input` of `channels` channels in calls of `perCall` frames
// into a file at `fileRate`; returns the data written.
Bytes writeThroughSink(uint32_t inputRate, uint32_t fileRate, int32_t channels, const Bytes& input, int32_t perCall) {
    MemoryStream stream;
    WaveSink sink;
    EXPECT_TRUE(sink.create(&stream, Int16, fileRate, channels, 1));
    EXPECT_TRUE(sink.setInputFormat(inputRate, Int16, channels));
    const int32_t frameBytes = 2 * channels, frames = int32_t(input.size()) / frameBytes;
    for (int32_t at = 0; at < frames; at += perCall) {
        uint32_t written = 0;
        EXPECT_TRUE(sink.write(input.data() + at * frameBytes, std::min(perCall, frames - at), written));
    }
    EXPECT_TRUE(sink.close());
    return Bytes(stream.data() + 44, stream.data() + stream.length());
}

}  // namespace

TEST(WaveSink, atTheFileRateFramesAreWrittenUnchanged) {
    const auto mono = randomBytes(2 * 3000, 31);
    EXPECT_EQ(writeThroughSink(22050, 22050, 1, mono, 3000), mono);
    EXPECT_EQ(writeThroughSink(22050, 22050, 1, mono, 7), mono);
    WaveSink sink;
    EXPECT_FALSE(sink.setInputFormat(0, Int16, 1));
    EXPECT_FALSE(sink.setInputFormat(22050, Int16, 0));
}

TEST(WaveSink, aLowerInputRateIsConvertedKeepingTheRemainder) {
    const auto input = randomBytes(4 * 4000, 32);
    // Small writes give a prefix of what one large write gives.
    const auto once = writeThroughSink(22050, 44100, 2, input, 4000);
    EXPECT_GE(once.size(), 4u * 7990);
    EXPECT_LE(once.size(), 4u * 8000);
    for (int32_t perCall : {1, 3, 100}) {
        const auto pieces = writeThroughSink(22050, 44100, 2, input, perCall);
        const size_t common = std::min(pieces.size(), once.size());
        EXPECT_GE(common, once.size() - 4 * 4);
        EXPECT_TRUE(std::equal(pieces.begin(), pieces.begin() + common, once.begin())) << "per call " << perCall;
    }
    // Lowering the rate works the same way.
    EXPECT_NEAR(double(writeThroughSink(48000, 44100, 2, input, 333).size()) / 4, 4000.0 * 44100 / 48000, 4.0);
}
