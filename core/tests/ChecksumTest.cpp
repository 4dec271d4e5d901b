// CRC-32 and Adler-32 against the system zlib; hash32 against values
// evaluated independently from its definition.
#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

#include "Checksum.h"
#include "DeflateTestSupport.h"
#include "Hash32.h"

TEST(ChecksumTest, crcAndAdlerMatchZlibOverPiecesOfAnySize) {
    std::mt19937 random(7);
    for (size_t length : {0u, 1u, 7u, 8u, 9u, 5551u, 5552u, 5553u, 100000u}) {
        // All 0xFF: the Adler sums' worst case.
        Bytes data = length == 100000 ? Bytes(length, 0xFF) : randomBytes(length, uint32_t(length));
        uint32_t crc = 0, adler = 1;
        for (size_t at = 0, piece = 0; at < length; at += piece) {
            piece = std::min<size_t>(length - at, random() % 9000);
            crc = crc32Update(crc, data.data() + at, piece);
            adler = adler32Update(adler, data.data() + at, piece);
        }
        EXPECT_EQ(crc, uint32_t(::crc32(0, data.data(), uInt(length)))) << length;
        EXPECT_EQ(adler, uint32_t(::adler32(1, data.data(), uInt(length)))) << length;
    }
}

TEST(Hash32Test, knownValuesAndTheWordForm) {
    // Evaluated once from the definition with an independent script.
    struct Case { const char* text; int32_t length; uint32_t hash; } cases[] = {
        {"", 0, 0x14bc3bb2u},          {"a", 1, 0x5c4072cau},    {"ab", 2, 0x46f7de73u},
        {"abc", 3, 0x56392239u},       {"abcd", 4, 0xfed51a54u}, {"abcde", 5, 0xa366f9a3u},
        {"Core.Package", 12, 0x15503500u}, {"\0\0\0", 3, 0x81af4de5u},
        {"The quick brown fox jumps over the lazy dog", 43, 0xf295275du},
    };
    for (const Case& c : cases)
        EXPECT_EQ(hash32(c.text, c.length), c.hash) << c.text;
    // The word form hashes the word's four bytes, lowest first.
    for (uint32_t word : {0u, 0x636261u, 0x64636261u, 0xFFFFFFu, 0xFFFFFFFFu, 0x80000001u}) {
        const uint8_t bytes[4] = {uint8_t(word), uint8_t(word >> 8), uint8_t(word >> 16), uint8_t(word >> 24)};
        EXPECT_EQ(hash32Word(word), hash32(bytes, 4)) << word;
    }
}
