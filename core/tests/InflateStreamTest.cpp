// InflateStream: real streams made by other programs, encrypted ZIP
// members, and damaged or hostile input that must fail cleanly.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "BitWriter.h"
#include "Checksum.h"
#include "DeflateTestSupport.h"
#include "TestSupport.h"

namespace {

Bytes corpusFile(const std::string& name) { return readWholeFile(corpusPath("deflate/" + name)); }

// The ZIP key schedule: standard initial keys, then one update per password byte.
void updateKeys(uint32_t keys[3], uint8_t plain) {
    keys[0] = crc32Step(keys[0], plain);
    keys[1] = (keys[1] + (keys[0] & 0xFF)) * 134775813u + 1;
    keys[2] = crc32Step(keys[2], uint8_t(keys[1] >> 24));
}

uint8_t decryptByte(uint32_t keys[3], uint8_t cipher) {
    uint32_t t = keys[2] | 2;
    uint8_t plain = uint8_t(cipher ^ ((t * (t ^ 1)) >> 8));
    updateKeys(keys, plain);
    return plain;
}

uint32_t little32(const Bytes& b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | uint32_t(b[at + 3]) << 24;
}
uint32_t little16(const Bytes& b, size_t at) { return b[at] | b[at + 1] << 8; }

struct ZipMember {
    uint32_t method, compressedSize, uncompressedSize;
    size_t dataOffset;
};

ZipMember firstMember(const Bytes& zip) {
    ZipMember m{};
    if (zip.size() < 30 || little32(zip, 0) != 0x04034B50)
        return m;
    m.method = little16(zip, 8);
    m.compressedSize = little32(zip, 18);
    m.uncompressedSize = little32(zip, 22);
    m.dataOffset = 30 + little16(zip, 26) + little16(zip, 28);
    return m;
}

// Derives the keys from the password, decrypts the 12-byte header and
// returns the keys as they stand after it.
bool keysAfterHeader(const Bytes& zip, const ZipMember& member, uint32_t keys[3]) {
    keys[0] = 0x12345678u;
    keys[1] = 0x23456789u;
    keys[2] = 0x34567890u;
    for (char c : std::string("secret123"))
        updateKeys(keys, uint8_t(c));
    EXPECT_EQ(keys[0], 0xa5176716u);
    EXPECT_EQ(keys[1], 0x36a52ad0u);
    EXPECT_EQ(keys[2], 0xa912bf7au);
    uint8_t last = 0;
    for (size_t i = 0; i < 12; ++i)
        last = decryptByte(keys, zip[member.dataOffset + i]);
    return last == 0x18;  // high byte of the DOS time: the member has a data descriptor
}

}  // namespace

TEST(InflateStreamTest, corpusStreamsInflateToTheirOriginals) {
    REQUIRE_CORPUS();
    struct Case { const char* stream; int32_t framing; const char* original; } cases[] = {
        {"empty.bin.gzip9.gz", FramingGzip, "empty.bin"},
        {"empty.bin.raw9.deflate", FramingRaw, "empty.bin"},
        {"empty.bin.zlib9.zz", FramingZlib, "empty.bin"},
        {"gpl3.txt.gzip1_stdin.gz", FramingGzip, "gpl3.txt"},
        {"gpl3.txt.gzip9.gz", FramingGzip, "gpl3.txt"},
        {"gpl3.txt.libdeflate12.gz", FramingGzip, "gpl3.txt"},
        {"gpl3.txt.pigz11.gz", FramingGzip, "gpl3.txt"},
        {"gpl3.txt.pigz11.gz.gzip9.gz", FramingGzip, "gpl3.txt.pigz11.gz"},
        {"gpl3.txt.pigz11.zz", FramingZlib, "gpl3.txt"},
        {"gpl3.txt.pigz_comment.gz", FramingGzip, "gpl3.txt"},
        {"gpl3.txt.python_gzip_name.gz", FramingGzip, "gpl3.txt"},
        {"gpl3.txt.raw9.deflate", FramingRaw, "gpl3.txt"},
        {"gpl3.txt.raw9.deflate", FramingRawCrc, "gpl3.txt"},
        {"gpl3.txt.zlib1.zz", FramingZlib, "gpl3.txt"},
        {"gpl3.txt.zlib9.zz", FramingZlib, "gpl3.txt"},
        {"speech.wav.gzip1.gz", FramingGzip, "speech.wav"},
        {"speech.wav.gzip9.gz", FramingGzip, "speech.wav"},
        {"speech.wav.libdeflate12.gz", FramingGzip, "speech.wav"},
        {"speech.wav.pigz11.gz", FramingGzip, "speech.wav"},
    };
    for (const Case& c : cases) {
        Bytes original = corpusFile(c.original);
        for (int32_t piece : {1, 100, 65536}) {
            SCOPED_TRACE(std::string(c.stream) + " in reads of " + std::to_string(piece));
            Bytes out;
            ASSERT_TRUE(ourInflate(corpusFile(c.stream), c.framing, out, piece));
            EXPECT_TRUE(out == original);
        }
    }
}

TEST(InflateStreamTest, encryptedZipMembers) {
    REQUIRE_CORPUS();
    // Deflated member: the inflater decrypts as it reads.
    Bytes zip = corpusFile("zip_deflate_encrypted.zip");
    ZipMember member = firstMember(zip);
    ASSERT_EQ(member.method, 8u);
    uint32_t keys[3];
    ASSERT_TRUE(keysAfterHeader(zip, member, keys));
    EXPECT_EQ(keys[0], 0xec634523u);
    MemoryStream source(zip.data(), int32_t(zip.size()));
    ASSERT_TRUE(source.seek(int64_t(member.dataOffset + 12), SeekStart));
    InflateStream inflater(FramingRawCrc);
    ASSERT_TRUE(inflater.open(&source, keys, false));
    Bytes out(member.uncompressedSize);
    ASSERT_TRUE(inflater.readExactly(out.data(), int32_t(out.size())));
    EXPECT_TRUE(out == corpusFile("zip_src/bsd.txt"));
    EXPECT_EQ(inflater.checksum(), 0x7e4fbf86u);

    // Stored member: decryption alone gives the file.
    zip = corpusFile("zip_stored_encrypted.zip");
    member = firstMember(zip);
    ASSERT_EQ(member.method, 0u);
    ASSERT_TRUE(keysAfterHeader(zip, member, keys));
    Bytes plain;
    for (uint32_t i = 12; i < member.compressedSize; ++i)
        plain.push_back(decryptByte(keys, zip[member.dataOffset + i]));
    EXPECT_TRUE(plain == corpusFile("zip_src/gpl3_head.txt"));
}

TEST(InflateStreamTest, truncatedStreamsFail) {
    Bytes text = englishLikeText(30000, 21);
    for (int32_t framing = FramingRaw; framing <= FramingGzip; ++framing) {
        Bytes whole = ourDeflate(text, framing);
        // Raw streams have no trailer: the last byte may be padding only.
        size_t needed = framing <= FramingRawCrc ? whole.size() - 1 : whole.size();
        for (size_t cut = 0; cut < needed; cut += (cut < 64 || cut + 64 > needed) ? 1 : 97) {
            Bytes out;
            EXPECT_FALSE(ourInflate(Bytes(whole.begin(), whole.begin() + long(cut)), framing, out))
                << "framing " << framing << " cut at " << cut;
        }
    }
}

TEST(InflateStreamTest, damagedTrailersAndHeadersFail) {
    Bytes text = englishLikeText(5000, 22);
    for (int32_t framing : {FramingZlib, FramingGzip}) {
        Bytes whole = ourDeflate(text, framing);
        size_t trailer = framing == FramingZlib ? 4 : 8;
        for (size_t i = whole.size() - trailer; i < whole.size(); ++i) {
            Bytes damaged = whole;
            damaged[i] ^= 0x10;
            Bytes out;
            EXPECT_FALSE(ourInflate(damaged, framing, out)) << "framing " << framing << " byte " << i;
        }
        for (size_t i : {0, 1, 2}) {
            Bytes damaged = whole;
            damaged[i] ^= 0x01;
            Bytes out;
            EXPECT_FALSE(ourInflate(damaged, framing, out)) << "framing " << framing << " header " << i;
        }
    }
    Bytes gzip = ourDeflate(text, FramingGzip);
    gzip[3] = 32;  // reserved flag bit
    Bytes out;
    EXPECT_FALSE(ourInflate(gzip, FramingGzip, out));
}

TEST(InflateStreamTest, corruptedStreamsNeverCrash) {
    std::mt19937 random(23);
    Bytes text = englishLikeText(20000, 24);
    Bytes whole = ourDeflate(text, FramingZlib);
    int failures = 0;
    for (int round = 0; round < 2000; ++round) {
        Bytes damaged = whole;
        for (int flips = 1 + int(random() % 4); flips > 0; --flips)
            damaged[2 + random() % (damaged.size() - 2)] ^= uint8_t(1 + random() % 255);
        Bytes out;
        failures += !ourInflate(damaged, FramingZlib, out);
    }
    EXPECT_GT(failures, 1990);  // the Adler-32 catches what the decoder lets through
}

// Hand-built blocks with one fault each.
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
        MemoryStream source;
        BitWriter writer;
        writer.setOutput(&source);
        for (const Field& f : c.fields)
            writer.put(f.value, f.width);
        writer.alignToByte();
        writer.drain();
        ASSERT_FALSE(writer.failed());
        source.seek(0, SeekStart);
        Bytes out;
        EXPECT_FALSE(ourInflate(source, FramingRaw, out)) << c.name;
        EXPECT_FALSE(zlibInflate(Bytes(source.data(), source.data() + source.length()), -15, out)) << c.name;
    }
}

// A source that hands out at most a few bytes per read, as a pipe might.
TEST(InflateStreamTest, sourcesThatTrickle) {
    struct TrickleStream : Stream {
        TrickleStream(const Bytes& b, int32_t most) : bytes(b.data(), int32_t(b.size())), most(most) {}
        bool read(void* buffer, int32_t length, uint32_t& count) override {
            return bytes.read(buffer, std::min(length, most), count);
        }
        MemoryStream bytes;
        int32_t most;
    };
    Bytes input = englishLikeText(50000, 27);
    Bytes noise = randomBytes(70000, 28);  // stored blocks
    input.insert(input.end(), noise.begin(), noise.end());
    for (int32_t framing = FramingRaw; framing <= FramingGzip; ++framing) {
        Bytes compressed = ourDeflate(input, framing);
        for (int32_t most : {1, 5, 9}) {
            TrickleStream source(compressed, most);
            Bytes out;
            ASSERT_TRUE(ourInflate(source, framing, out, nullptr, 1000)) << framing << " " << most;
            EXPECT_TRUE(out == input) << framing << " " << most;
        }
    }
}

TEST(InflateStreamTest, framingMayBeChosenAfterOpenBeforeTheFirstRead) {
    Bytes text = englishLikeText(3000, 26);
    Bytes compressed = ourDeflate(text, FramingZlib);
    MemoryStream source(compressed.data(), int32_t(compressed.size()));
    InflateStream inflater;
    ASSERT_TRUE(inflater.open(&source, nullptr, false));
    inflater.setFraming(FramingZlib);
    Bytes out(text.size() + 1);
    uint32_t count = 0;
    EXPECT_TRUE(inflater.read(out.data(), int32_t(out.size()), count));
    EXPECT_EQ(count, text.size());
    out.resize(count);
    EXPECT_TRUE(out == text);
}

TEST(InflateStreamTest, reopeningDestroysAnOwnedSource) {
    static int destroyed = 0;
    struct CountedStream : Stream {
        CountedStream(const Bytes& b) : bytes(b.data(), int32_t(b.size())) {}
        ~CountedStream() override { ++destroyed; }
        bool read(void* buffer, int32_t length, uint32_t& count) override {
            return bytes.read(buffer, length, count);
        }
        MemoryStream bytes;
    };
    Bytes compressed = ourDeflate(englishLikeText(1000, 25), FramingZlib);
    {
        InflateStream inflater(FramingZlib);
        EXPECT_TRUE(inflater.open(new CountedStream(compressed), nullptr, true));
        EXPECT_TRUE(inflater.open(new CountedStream(compressed), nullptr, true));
        EXPECT_EQ(destroyed, 1);
        uint8_t byte = 0;
        EXPECT_TRUE(inflater.readExactly(&byte, 1));
        EXPECT_EQ(byte, englishLikeText(1, 25)[0]);
    }
    EXPECT_EQ(destroyed, 2);
}
