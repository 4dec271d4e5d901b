// DeflateStream: every framing and level is read back by the system zlib
// and by our InflateStream; the bytes the framings fix are checked exactly.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "core/deflate/Checksum.h"
#include "core/deflate/tests/DeflateTestSupport.h"
#include "core/tests/support/TestSupport.h"

TEST(DeflateStreamTest, zlibAndOurInflateReadBackEveryFramingAndLevel) {
    Bytes mixed = englishLikeText(40000, 5), noise = randomBytes(30000, 6);
    mixed.insert(mixed.end(), noise.begin(), noise.end());
    const struct { const char* name; Bytes bytes; } inputs[] = {
        {"empty", {}},
        {"one byte", {0x41}},
        {"zeros", Bytes(100000, 0)},
        {"runs", byteRuns(150000, 1)},
        {"text", englishLikeText(70000, 2)},
        {"random", randomBytes(150000, 3)},
        {"258-byte repeats", repeatedPattern(70000, 258)},
        {"259-byte repeats", repeatedPattern(70000, 259)},
        {"32 KiB repeats beyond the window", repeatedPattern(300000, 32768)},
        {"text then noise", mixed},
        {"codec payload", codecLikePayload(200000, 7)},
    };
    const size_t pieces[] = {1 << 20, 1, 7, 4095, 65537};
    int round = 0;
    for (const auto& input : inputs) {
        for (int32_t framing = FramingRaw; framing <= FramingGzip; ++framing) {
            for (int32_t level = 1; level <= 9; ++level, ++round) {
                // Single-byte writes only on the small inputs, to keep the test quick.
                size_t piece = pieces[round % 5] == 1 && input.bytes.size() > 20000 ? 3 : pieces[round % 5];
                SCOPED_TRACE(std::string(input.name) + ", framing " + std::to_string(framing) + ", level " +
                             std::to_string(level) + ", writes of " + std::to_string(piece));
                uint32_t checksum = 0;
                Bytes compressed = ourDeflate(input.bytes, framing, level, piece, &checksum), theirs, ours;
                ASSERT_FALSE(compressed.empty());
                if (input.bytes.empty() && framing >= FramingZlib)
                    continue;  // finished without data: deliberately no header (see framingBytesAreExact)
                ASSERT_TRUE(zlibInflate(compressed, framing, theirs));
                EXPECT_TRUE(theirs == input.bytes);
                ASSERT_TRUE(ourInflate(compressed, framing, ours, int32_t(piece % 70000 + 1)));
                EXPECT_TRUE(ours == input.bytes);
                if (framing == FramingRawCrc) {
                    EXPECT_EQ(checksum, crc32Update(0, input.bytes.data(), input.bytes.size()));
                }
            }
        }
    }
}

// The codec's payload is what the stream is for: at level 9 it must come out
// no larger than zlib's best on it (that it reads back is checked above).
TEST(DeflateStreamTest, codecPayloadIsNoLargerThanZlibLevel9s) {
    for (uint32_t seed : {1u, 2u}) {
        Bytes payload = codecLikePayload(1 << 20, seed);
        uLongf zlibSize = compressBound(uLong(payload.size()));
        Bytes zlib(zlibSize);
        ASSERT_EQ(compress2(zlib.data(), &zlibSize, payload.data(), uLong(payload.size()), 9), Z_OK);
        EXPECT_LE(ourDeflate(payload, FramingZlib, 9, 2052).size(), size_t(zlibSize)) << "seed " << seed;
    }
}

TEST(DeflateStreamTest, framingBytesAreExact) {
    // Finished without data: the final empty block and the trailer only.
    EXPECT_EQ(ourDeflate({}, FramingRaw), (Bytes{0x03, 0x00}));
    EXPECT_EQ(ourDeflate({}, FramingRawCrc), (Bytes{0x03, 0x00}));
    EXPECT_EQ(ourDeflate({}, FramingZlib), (Bytes{0x03, 0x00, 0x00, 0x00, 0x00, 0x01}));

    Bytes text = englishLikeText(5000, 9);
    Bytes zlib = ourDeflate(text, FramingZlib, 1);
    ASSERT_GE(zlib.size(), 6u);
    EXPECT_EQ(Bytes(zlib.begin(), zlib.begin() + 2), (Bytes{0x78, 0xDA}));  // whatever the level
    uint32_t adler = adler32Update(1, text.data(), text.size());
    EXPECT_EQ(Bytes(zlib.end() - 4, zlib.end()),
              (Bytes{uint8_t(adler >> 24), uint8_t(adler >> 16), uint8_t(adler >> 8), uint8_t(adler)}));

    MemoryStream output;
    {
        DeflateStream deflater(&output, FramingGzip);
        deflater.setGzipName("song.oxa");
        deflater.setGzipComment("hi");
        deflater.setGzipTime(0x01020304);
        ASSERT_TRUE(deflater.writeAll("abc", 3));
    }  // the destructor finishes the stream
    Bytes gzip = bytesOf(output);
    const Bytes header = {0x1F, 0x8B, 8, 8 + 16, 4, 3, 2, 1, 2,  255, 's',
                          'o',  'n',  'g', '.', 'o', 'x', 'a', 0, 'h', 'i', 0};
    ASSERT_GT(gzip.size(), header.size() + 8);
    EXPECT_EQ(Bytes(gzip.begin(), gzip.begin() + long(header.size())), header);
    uint32_t crc = crc32Update(0, "abc", 3);
    EXPECT_EQ(Bytes(gzip.end() - 8, gzip.end()),
              (Bytes{uint8_t(crc), uint8_t(crc >> 8), uint8_t(crc >> 16), uint8_t(crc >> 24), 3, 0, 0, 0}));
}

TEST(DeflateStreamTest, gzipToolTestsAndRestoresTheStoredName) {
    if (std::system("gzip --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "gzip not installed";
    std::string dir = temporaryDirectory();
    Bytes text = englishLikeText(200000, 12);
    MemoryStream output;
    DeflateStream deflater(&output, FramingGzip);
    deflater.setGzipName("restored.txt");
    ASSERT_TRUE(deflater.writeAll(text.data(), int32_t(text.size())) && deflater.flush());
    ASSERT_TRUE(writeWholeFile(dir + "/packed.gz", bytesOf(output)));
    EXPECT_EQ(0, std::system(("gzip -t '" + dir + "/packed.gz'").c_str()));
    ASSERT_EQ(0, std::system(("cd '" + dir + "' && gzip -N -d packed.gz").c_str()));
    EXPECT_TRUE(readWholeFile(dir + "/restored.txt") == text);
}

TEST(DeflateStreamTest, failedOutputWriteFailsTheStream) {
    Bytes data = randomBytes(200000, 13);
    MemoryStream output;
    output.setWriteLimit(1000);
    DeflateStream deflater(&output, FramingZlib), withoutOutput(nullptr, FramingZlib);
    EXPECT_FALSE(deflater.writeAll(data.data(), int32_t(data.size())) && deflater.flush());
    EXPECT_FALSE(withoutOutput.writeAll(data.data(), 10));
    EXPECT_FALSE(withoutOutput.flush());
}
