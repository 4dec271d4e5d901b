// hash32 against values evaluated independently from its definition.
#include <gtest/gtest.h>

#include <cstdint>

#include "core/Hash32.h"

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
