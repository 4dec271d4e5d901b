// Tests of WaveSink: writing at the file's rate and through the converter.
#include <gtest/gtest.h>

#include <cstring>

#include "MemoryStream.h"
#include "SampleFormat.h"
#include "WavBuilder.h"
#include "WaveSink.h"

namespace {

std::vector<uint8_t> dataOf(const MemoryStream& stream) {
    return std::vector<uint8_t>(stream.data() + 44, stream.data() + stream.length());
}

// Writes `input` (Int16 stereo) in calls of `perCall` frames; returns the data written.
std::vector<uint8_t> writeThroughSink(uint32_t inputRate, uint32_t fileRate, const std::vector<uint8_t>& input,
                                      int32_t perCall) {
    MemoryStream stream;
    WaveSink sink;
    EXPECT_TRUE(sink.create(&stream, Int16, fileRate, 2, 1));
    EXPECT_TRUE(sink.setInputFormat(inputRate, Int16, 2));
    const int32_t frames = int32_t(input.size() / 4);
    for (int32_t at = 0; at < frames; at += perCall) {
        uint32_t written = 0;
        EXPECT_TRUE(sink.write(input.data() + at * 4, std::min(perCall, frames - at), written));
    }
    EXPECT_TRUE(sink.close());
    return dataOf(stream);
}

}  // namespace

TEST(WaveSink, atTheFileRateFramesAreWrittenUnchanged) {
    const auto mono = randomBytes(2 * 3000, 31);
    MemoryStream stream;
    WaveSink sink;
    ASSERT_TRUE(sink.create(&stream, Int16, 22050, 1, 1));
    ASSERT_TRUE(sink.setInputFormat(22050, Int16, 1));
    uint32_t written = 0;
    ASSERT_TRUE(sink.write(mono.data(), 3000, written));
    EXPECT_EQ(written, 3000u);
    ASSERT_TRUE(sink.close());
    EXPECT_EQ(dataOf(stream), mono);
    EXPECT_FALSE(sink.setInputFormat(0, Int16, 1));
    EXPECT_FALSE(sink.setInputFormat(22050, Int16, 0));
}

TEST(WaveSink, aLowerInputRateIsConvertedKeepingTheRemainder) {
    const auto input = randomBytes(4 * 4000, 32);
    MemoryStream stream;
    WaveSink sink;
    ASSERT_TRUE(sink.create(&stream, Int16, 44100, 2, 1));
    ASSERT_TRUE(sink.setInputFormat(22050, Int16, 2));
    uint32_t written = 0;
    ASSERT_TRUE(sink.write(input.data(), 1000, written));
    EXPECT_GE(written, 1995u);
    EXPECT_LE(written, 2000u);
    ASSERT_TRUE(sink.close());

    // Small writes give a prefix of what one large write gives.
    const auto once = writeThroughSink(22050, 44100, input, 4000);
    EXPECT_GE(once.size(), 4u * 7990);
    for (int32_t perCall : {1, 3, 100}) {
        const auto pieces = writeThroughSink(22050, 44100, input, perCall);
        const size_t common = std::min(pieces.size(), once.size());
        EXPECT_GE(common, once.size() - 4 * 4);
        EXPECT_TRUE(std::equal(pieces.begin(), pieces.begin() + common, once.begin())) << "per call " << perCall;
    }
    // Lowering the rate works the same way.
    EXPECT_NEAR(double(writeThroughSink(48000, 44100, input, 333).size()) / 4, 4000.0 * 44100 / 48000, 4.0);
}
