// DeflateStream: every framing and level is read back by the system zlib
// and by our InflateStream; the bytes the framings fix are checked exactly.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "Checksum.h"
#include "DeflateTestSupport.h"
#include "TestSupport.h"

namespace {

struct Input {
    std::string name;
    Bytes bytes;
};

std::vector<Input> generatedInputs() {
    Bytes mixed = englishLikeText(40000, 5);
    Bytes noise = randomBytes(30000, 6);
    mixed.insert(mixed.end(), noise.begin(), noise.end());
    Bytes pcm = pcmLike(90000, 8);
    mixed.insert(mixed.end(), pcm.begin(), pcm.end());
    return {
        {"empty", {}},
        {"one byte", {0x41}},
        {"two bytes", {0x41, 0x41}},
        {"zeros", Bytes(100000, 0)},
        {"runs", byteRuns(150000, 1)},
        {"text", englishLikeText(70000, 2)},
        {"random", randomBytes(150000, 3)},
        {"258-byte repeats", repeatedPattern(70000, 258)},
        {"259-byte repeats", repeatedPattern(70000, 259)},
        {"32 KiB repeats beyond the window", repeatedPattern(300000, 32768)},
        {"pcm", pcmLike(200000, 4)},
        {"text, noise and pcm", mixed},
    };
}

int zlibWindowBits(int32_t framing) {
    return framing == FramingZlib ? 15 : framing == FramingGzip ? 31 : -15;
}

}  // namespace

TEST(DeflateStreamTest, zlibAndOurInflateReadBackEveryFramingAndLevel) {
    std::vector<Input> inputs = generatedInputs();
    const size_t pieces[] = {1 << 20, 1, 7, 4095, 65537};
    int round = 0;
    for (const Input& input : inputs) {
        for (int32_t framing = FramingRaw; framing <= FramingGzip; ++framing) {
            for (int32_t level = 1; level <= 9; ++level, ++round) {
                // Single-byte writes only on the small inputs, to keep the test quick.
                size_t piece = pieces[round % 5];
                if (piece == 1 && input.bytes.size() > 20000)
                    piece = 3;
                SCOPED_TRACE(input.name + ", framing " + std::to_string(framing) + ", level " +
                             std::to_string(level) + ", writes of " + std::to_string(piece));
                MemoryStream output;
                DeflateStream deflater(&output, framing);
                deflater.setLevel(level);
                for (size_t at = 0; at < input.bytes.size(); at += piece)
                    ASSERT_TRUE(deflater.writeAll(input.bytes.data() + at,
                                                  int32_t(std::min(piece, input.bytes.size() - at))));
                ASSERT_TRUE(deflater.flush());
                Bytes compressed(output.data(), output.data() + output.length());
                if (input.bytes.empty() && framing >= FramingZlib)
                    continue;  // finished without data: deliberately no header (see zlibFramingBytes)

                Bytes theirs, ours;
                ASSERT_TRUE(zlibInflate(compressed, zlibWindowBits(framing), theirs));
                EXPECT_TRUE(theirs == input.bytes);
                ASSERT_TRUE(ourInflate(compressed, framing, ours, int32_t(piece % 70000 + 1)));
                EXPECT_TRUE(ours == input.bytes);
                if (framing == FramingRawCrc) {
                    EXPECT_EQ(deflater.checksum(), crc32Update(0, input.bytes.data(), input.bytes.size()));
                }
            }
        }
    }
}

TEST(DeflateStreamTest, zlibFramingBytes) {
    Bytes empty = ourDeflate({}, FramingZlib);
    EXPECT_EQ(empty, (Bytes{0x03, 0x00, 0x00, 0x00, 0x00, 0x01}));  // no header without data

    Bytes text = englishLikeText(5000, 9);
    Bytes compressed = ourDeflate(text, FramingZlib, 1);
    ASSERT_GE(compressed.size(), 6u);
    EXPECT_EQ(compressed[0], 0x78);
    EXPECT_EQ(compressed[1], 0xDA);  // whatever the level
    uint32_t adler = adler32Update(1, text.data(), text.size());
    const uint8_t* tail = compressed.data() + compressed.size() - 4;
    EXPECT_EQ(uint32_t(tail[0] << 24 | tail[1] << 16 | tail[2] << 8 | tail[3]), adler);

    // Without framing the stream is bare blocks: the final empty block only.
    EXPECT_EQ(ourDeflate({}, FramingRaw), (Bytes{0x03, 0x00}));
    EXPECT_EQ(ourDeflate({}, FramingRawCrc), (Bytes{0x03, 0x00}));
}

TEST(DeflateStreamTest, gzipHeaderCarriesNameCommentAndTime) {
    MemoryStream output;
    {
        DeflateStream deflater(&output, FramingGzip);
        deflater.setGzipName("song.oxa");
        deflater.setGzipComment("hi");
        deflater.setGzipTime(0x01020304);
        ASSERT_TRUE(deflater.writeAll("abc", 3));
    }  // the destructor finishes the stream
    const uint8_t expected[] = {0x1F, 0x8B, 8, 8 + 16, 4, 3, 2, 1, 2, 255,
                                's', 'o', 'n', 'g', '.', 'o', 'x', 'a', 0, 'h', 'i', 0};
    ASSERT_GT(output.length(), int32_t(sizeof expected));
    EXPECT_EQ(0, std::memcmp(output.data(), expected, sizeof expected));
    Bytes restored;
    EXPECT_TRUE(zlibInflate(Bytes(output.data(), output.data() + output.length()), 31, restored));
    EXPECT_EQ(restored, (Bytes{'a', 'b', 'c'}));
}

TEST(DeflateStreamTest, gzipToolTestsAndRestoresTheStoredName) {
    if (std::system("gzip --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "gzip not installed";
    std::string dir = temporaryDirectory();
    Bytes text = englishLikeText(200000, 12);
    MemoryStream output;
    {
        DeflateStream deflater(&output, FramingGzip);
        deflater.setGzipName("restored.txt");
        ASSERT_TRUE(deflater.writeAll(text.data(), int32_t(text.size())));
        ASSERT_TRUE(deflater.flush());
    }
    ASSERT_TRUE(writeWholeFile(dir + "/packed.gz", Bytes(output.data(), output.data() + output.length())));
    EXPECT_EQ(0, std::system(("gzip -t '" + dir + "/packed.gz'").c_str()));
    ASSERT_EQ(0, std::system(("cd '" + dir + "' && gzip -N -d packed.gz").c_str()));
    EXPECT_TRUE(readWholeFile(dir + "/restored.txt") == text);
}

TEST(DeflateStreamTest, failedOutputWriteFailsTheStream) {
    Bytes data = randomBytes(200000, 13);
    MemoryStream output;
    output.setWriteLimit(1000);
    DeflateStream deflater(&output, FramingZlib);
    uint32_t count = 0;
    bool wrote = deflater.write(data.data(), int32_t(data.size()), count);
    EXPECT_FALSE(wrote && deflater.flush());

    DeflateStream withoutOutput(nullptr, FramingZlib);
    EXPECT_FALSE(withoutOutput.write(data.data(), 10, count));
    EXPECT_FALSE(withoutOutput.flush());
}

TEST(DeflateStreamTest, level9IsCloseToZlib9OnRealFiles) {
    REQUIRE_CORPUS();
    for (const char* name : {"deflate/gpl3.txt", "deflate/speech.wav", "wav/sox_f32_stereo_44100_music.wav"}) {
        Bytes input = readWholeFile(corpusPath(name));
        size_t ours = ourDeflate(input, FramingZlib).size();
        size_t theirs = zlibDeflate(input, 9, 15).size();
        EXPECT_LE(double(ours), double(theirs) * 1.02) << name << ": " << ours << " vs " << theirs;
    }
}
