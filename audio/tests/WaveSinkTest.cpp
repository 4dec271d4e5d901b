// Tests of WaveSink: writing at the file's rate and through the converter.
#include <gtest/gtest.h>

#include <algorithm>

#include "audio/WaveSink.h"
#include "audio/tests/WavBuilder.h"

namespace {

// Writes Int16 stereo `input` in calls of `perCall` frames into a file at
// `fileRate`; returns the data written.
Bytes writeThroughSink(uint32_t inputRate, uint32_t fileRate, const Bytes& input, int32_t perCall) {
    MemoryStream stream;
    WaveSink sink;
    EXPECT_TRUE(sink.create(&stream, Int16, fileRate, 2, 1));
    EXPECT_TRUE(sink.setInputFormat(inputRate, Int16, 2));
    const int32_t frames = int32_t(input.size()) / 4;
    for (int32_t at = 0; at < frames; at += perCall) {
        uint32_t written = 0;
        EXPECT_TRUE(sink.write(input.data() + at * 4, std::min(perCall, frames - at), written));
    }
    EXPECT_TRUE(sink.close());
    return Bytes(stream.data() + 44, stream.data() + stream.length());
}

}  // namespace

// At the file's rate frames go through unchanged; at another rate, small
// writes give a prefix of what one large write gives, the converter's
// unused input being kept for the next write.
TEST(WaveSink, writesAreUnchangedOrConvertedKeepingTheRemainder) {
    const auto input = randomBytes(4 * 4000, 32);
    for (int32_t perCall : {7, 4000})
        EXPECT_EQ(writeThroughSink(22050, 22050, input, perCall), input) << "per call " << perCall;

    const auto once = writeThroughSink(22050, 44100, input, 4000);
    EXPECT_GE(once.size(), 4u * 7990);
    EXPECT_LE(once.size(), 4u * 8000);
    for (int32_t perCall : {1, 3, 100}) {
        const auto pieces = writeThroughSink(22050, 44100, input, perCall);
        const size_t common = std::min(pieces.size(), once.size());
        EXPECT_GE(common, once.size() - 4 * 4);
        EXPECT_TRUE(std::equal(pieces.begin(), pieces.begin() + common, once.begin())) << "per call " << perCall;
    }
    EXPECT_NEAR(double(writeThroughSink(48000, 44100, input, 333).size()) / 4, 4000.0 * 44100 / 48000, 4.0);

    WaveSink sink;
    EXPECT_FALSE(sink.setInputFormat(0, Int16, 1));
    EXPECT_FALSE(sink.setInputFormat(22050, Int16, 0));
}
