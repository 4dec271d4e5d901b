// CRC-32 and Adler-32 against the system zlib.
#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

#include "core/deflate/Checksum.h"
#include "core/deflate/tests/DeflateTestSupport.h"

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
