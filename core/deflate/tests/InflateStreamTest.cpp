// InflateStream: real streams made by other programs, an encrypted ZIP
// member, and damaged or hostile input that must fail cleanly.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

#include "core/deflate/BitWriter.h"
#include "core/deflate/Checksum.h"
#include "core/deflate/tests/DeflateTestSupport.h"
#include "core/tests/support/TestSupport.h"

namespace {

Bytes corpusFile(const std::string& name) { return readWholeFile(corpusPath("deflate/" + name)); }

// The ZIP key schedule: one update per plain byte.
void updateKeys(uint32_t keys[3], uint8_t plain) {
    keys[0] = crc32Step(keys[0], plain);
    keys[1] = (keys[1] + (keys[0] & 0xFF)) * 134775813u + 1;
    keys[2] = crc32Step(keys[2], uint8_t(keys[1] >> 24));
}

}  // namespace

// Every stream in the folder, named <original>.<tool>.<gz|zz|deflate>, read
// back whole through sources that trickle and in reads of several sizes.
TEST(InflateStreamTest, corpusStreamsInflateToTheirOriginals) {
    REQUIRE_CORPUS();
    int32_t streams = 0;
    for (const auto& entry : std::filesystem::directory_iterator(corpusPath("deflate"))) {
        std::filesystem::path name = entry.path().filename(), extension = name.extension();
        if (extension != ".gz" && extension != ".zz" && extension != ".deflate")
            continue;
        ++streams;
        Bytes original = corpusFile(name.stem().stem().string()), compressed = corpusFile(name.string());
        int32_t framing = extension == ".gz" ? FramingGzip : extension == ".zz" ? FramingZlib : FramingRaw;
        int32_t lastFraming = framing == FramingRaw ? FramingRawCrc : framing;  // raw: with and without the CRC
        for (; framing <= lastFraming; ++framing) {
            for (auto [piece, most] : {std::pair{1, 1 << 20}, {100, 5}, {65536, 1}, {65536, 1 << 20}}) {
                SCOPED_TRACE(name.string() + ", framing " + std::to_string(framing) + ", reads of " +
                             std::to_string(piece) + " from " + std::to_string(most));
                Bytes out;
                ASSERT_TRUE(ourInflate(compressed, framing, out, piece, most));
                EXPECT_TRUE(out == original);
            }
        }
    }
    EXPECT_EQ(streams, 18);
}

// zlib's streams in every block form, read from sources that hand out a few
// bytes at a time: the careful loop takes over whenever less than a word is
// buffered, mid-block and mid-match, and the fast loop resumes after it.
TEST(InflateStreamTest, peerStreamsInflateThroughSourcesOfEverySmallSize) {
    Bytes input = englishLikeText(20000, 31), noise = randomBytes(8000, 32), runs = byteRuns(30000, 33);
    input.insert(input.end(), noise.begin(), noise.end());
    input.insert(input.end(), runs.begin(), runs.end());
    const struct { const char* name; int level, strategy; } forms[] = {
        {"stored", 0, Z_DEFAULT_STRATEGY},  {"fixed", 9, Z_FIXED},   {"dynamic", 9, Z_DEFAULT_STRATEGY},
        {"literals only", 9, Z_HUFFMAN_ONLY}, {"runs", 9, Z_RLE},
    };
    for (const auto& form : forms) {
        z_stream z{};
        ASSERT_EQ(deflateInit2(&z, form.level, Z_DEFLATED, 15, 8, form.strategy), Z_OK);
        Bytes compressed(deflateBound(&z, uLong(input.size())));
        z.next_in = input.data();
        z.avail_in = uInt(input.size());
        z.next_out = compressed.data();
        z.avail_out = uInt(compressed.size());
        ASSERT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
        compressed.resize(z.total_out);
        deflateEnd(&z);
        for (int32_t most : {1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 16384 + 7}) {
            SCOPED_TRACE(std::string(form.name) + ", source gives at most " + std::to_string(most));
            Bytes out;
            ASSERT_TRUE(ourInflate(compressed, FramingZlib, out, 4096, most));
            EXPECT_TRUE(out == input);
        }
    }
}

TEST(InflateStreamTest, encryptedZipMemberOpensWithKeysFromThePassword) {
    REQUIRE_CORPUS();
    Bytes zip = corpusFile("zip_deflate_encrypted.zip");
    ASSERT_EQ(zip[8], 8);  // deflated
    size_t data = 30 + (zip[26] | zip[27] << 8) + (zip[28] | zip[29] << 8);  // after the name and extra field
    uint32_t keys[3] = {0x12345678u, 0x23456789u, 0x34567890u};
    for (char c : std::string("secret123"))
        updateKeys(keys, uint8_t(c));
    EXPECT_EQ(std::vector<uint32_t>(keys, keys + 3), (std::vector<uint32_t>{0xa5176716u, 0x36a52ad0u, 0xa912bf7au}));
    uint8_t plain = 0;
    for (size_t i = data; i < data + 12; ++i) {  // the encryption header
        uint32_t t = keys[2] | 2;
        plain = uint8_t(zip[i] ^ ((t * (t ^ 1)) >> 8));
        updateKeys(keys, plain);
    }
    EXPECT_EQ(plain, 0x18);  // high byte of the DOS time: the member has a data descriptor
    MemoryStream source(zip.data(), int32_t(zip.size()));
    ASSERT_TRUE(source.seek(int64_t(data + 12), SeekStart));
    InflateStream inflater(FramingRawCrc);
    ASSERT_TRUE(inflater.open(&source, keys, false));
    Bytes original = corpusFile("zip_src/bsd.txt"), out(original.size());
    ASSERT_TRUE(inflater.readExactly(out.data(), int32_t(out.size())));
    EXPECT_TRUE(out == original);
    EXPECT_EQ(inflater.checksum(), 0x7e4fbf86u);
}

TEST(InflateStreamTest, truncatedOrDamagedStreamsFail) {
    Bytes text = englishLikeText(30000, 21), out;
    for (int32_t framing = FramingRaw; framing <= FramingGzip; ++framing) {
        Bytes whole = ourDeflate(text, framing);
        // Raw streams have no trailer: the last byte may be padding only.
        size_t needed = framing <= FramingRawCrc ? whole.size() - 1 : whole.size();
        for (size_t cut = 0; cut < needed; cut += (cut < 64 || cut + 64 > needed) ? 1 : 97)
            EXPECT_FALSE(ourInflate(Bytes(whole.begin(), whole.begin() + long(cut)), framing, out))
                << "framing " << framing << " cut at " << cut;
        if (framing <= FramingRawCrc)
            continue;
        std::vector<size_t> damaged = {0, 1, 2};  // the header's first bytes, then every trailer byte
        for (size_t i = whole.size() - (framing == FramingZlib ? 4 : 8); i < whole.size(); ++i)
            damaged.push_back(i);
        for (size_t i : damaged) {
            Bytes bad = whole;
            bad[i] ^= i < 3 ? 0x01 : 0x10;
            EXPECT_FALSE(ourInflate(bad, framing, out)) << "framing " << framing << " byte " << i;
        }
    }
    Bytes gzip = ourDeflate(text, FramingGzip);
    gzip[3] = 32;  // reserved flag bit
    EXPECT_FALSE(ourInflate(gzip, FramingGzip, out));

    // Random damage anywhere past the header: the Adler-32 catches what the decoder lets through.
    std::mt19937 random(23);
    Bytes zlib = ourDeflate(text, FramingZlib);
    int failures = 0;
    for (int round = 0; round < 2000; ++round) {
        Bytes bad = zlib;
        for (int flips = 1 + int(random() % 4); flips > 0; --flips)
            bad[2 + random() % (bad.size() - 2)] ^= uint8_t(1 + random() % 255);
        failures += !ourInflate(bad, FramingZlib, out);
    }
    EXPECT_GT(failures, 1990);
}

// Hand-built blocks with one fault each; zlib must refuse them too.
TEST(InflateStreamTest, invalidBlocksFail) {
    struct Field { uint32_t value; int width; };
    struct Case { const char* name; std::vector<Field> fields; } cases[] = {
        {"reserved block type", {{1, 1}, {3, 2}}},
        {"stored length without its complement", {{1, 1}, {0, 2}, {0, 5}, {5, 16}, {5, 16}}},
        {"stored block cut short", {{1, 1}, {0, 2}, {0, 5}, {5, 16}, {0xFFFA, 16}, {'a', 8}}},
        // Fixed block: literal 'a' (code 0x91 in 8 bits, sent reversed), then
        // length 3 (symbol 257, 7 bits) at distance 2 (code 1, 5 bits).
        {"distance beyond the output", {{1, 1}, {1, 2}, {0x89, 8}, {0x40, 7}, {0x10, 5}, {0, 7}}},
        {"fixed distance code 30", {{1, 1}, {1, 2}, {0x89, 8}, {0x40, 7}, {0x0F, 5}, {0, 7}}},
        // Dynamic: 257 literal codes, 1 distance code, 4 code-length codes all
        // given 1 bit: three codes of one bit over-subscribe.
        {"over-subscribed code lengths", {{1, 1}, {2, 2}, {0, 5}, {0, 5}, {0, 4}, {1, 3}, {1, 3}, {1, 3}, {0, 3}}},
        // One code-length code of 2 bits alone is incomplete.
        {"incomplete code lengths", {{1, 1}, {2, 2}, {0, 5}, {0, 5}, {0, 4}, {2, 3}, {0, 3}, {0, 3}, {0, 3}}},
        // Code-length code: symbols 16 and 18 get 1 bit; a repeat comes first.
        {"repeat with nothing to repeat", {{1, 1}, {2, 2}, {0, 5}, {0, 5}, {0, 4}, {1, 3}, {0, 3}, {1, 3}, {0, 3}, {0, 1}}},
    };
    for (const Case& c : cases) {
        MemoryStream block;
        BitWriter writer;
        writer.setOutput(&block);
        for (const Field& f : c.fields)
            writer.put(f.value, f.width);
        writer.alignToByte();
        writer.drain();
        ASSERT_FALSE(writer.failed());
        Bytes out;
        EXPECT_FALSE(ourInflate(bytesOf(block), FramingRaw, out)) << c.name;
        EXPECT_FALSE(zlibInflate(bytesOf(block), FramingRaw, out)) << c.name;
    }
}
