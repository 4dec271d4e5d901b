// BitWriter: the token loop's append and flushBytes against put, bit for bit,
// mixed with the header writes that use put, alignment and whole bytes.
#include <gtest/gtest.h>

#include <random>

#include "core/MemoryStream.h"
#include "core/deflate/BitWriter.h"
#include "core/deflate/tests/DeflateTestSupport.h"

namespace {

// Writes the same fields through put() only, or with runs of fields (at most
// 48 bits, a match's worth) through append() and flushBytes().
Bytes written(bool appending, uint32_t seed) {
    std::mt19937 random(seed);
    MemoryStream output;
    BitWriter writer;
    writer.setOutput(&output);
    for (int step = 0; step < 20000; ++step) {
        int action = int(random() % 100);
        if (action == 0) {
            writer.alignToByte();
            uint8_t bytes[3] = {uint8_t(step), 0xA5, uint8_t(step >> 8)};
            writer.putBytes(bytes, sizeof bytes);
            continue;
        }
        int fields = 1 + int(random() % 4), budget = 48;
        if (appending)
            writer.flushBytes();
        for (int f = 0; f < fields; ++f) {
            int width = std::min(budget, int(random() % 16));
            budget -= width;
            uint32_t value = uint32_t(random()) & ((1u << width) - 1);
            if (appending)
                writer.append(value, width);
            else
                writer.put(value, width);
        }
        if (appending)
            writer.flushBytes();
    }
    writer.alignToByte();
    writer.drain();
    EXPECT_FALSE(writer.failed());
    return bytesOf(output);
}

}  // namespace

TEST(BitWriterTest, appendAndFlushWriteWhatPutWrites) {
    for (uint32_t seed : {1u, 2u, 3u}) {
        Bytes expected = written(false, seed);
        EXPECT_GT(expected.size(), 16384u) << "the buffer should have drained a few times";
        EXPECT_TRUE(written(true, seed) == expected) << seed;
    }
}
