// Checksum: table-driven CRC-32 (eight bytes per step) and Adler-32.
#include "core/deflate/Checksum.h"

#include <array>
#include <cstring>

namespace {

constexpr uint32_t crcPolynomial = 0xEDB88320u;  // reflected 0x04C11DB7

// tables[0] is the classic byte table; tables[k][b] is the CRC contribution of
// byte b followed by k zero bytes, which lets eight bytes be folded at once.
using CrcTables = std::array<std::array<uint32_t, 256>, 8>;

constexpr CrcTables makeCrcTables() {
    CrcTables tables{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t c = b;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1) ? (c >> 1) ^ crcPolynomial : c >> 1;
        tables[0][b] = c;
    }
    for (int k = 1; k < 8; ++k)
        for (uint32_t b = 0; b < 256; ++b)
            tables[k][b] = (tables[k - 1][b] >> 8) ^ tables[0][tables[k - 1][b] & 0xFF];
    return tables;
}

constexpr CrcTables crcTables = makeCrcTables();

uint64_t loadLittle64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "word loads assume little-endian");
    return v;
}

// Adler-32 sums fit 32 bits for this many bytes before they must be reduced.
constexpr size_t adlerRun = 5552;
constexpr uint32_t adlerBase = 65521;

}  // namespace

uint32_t crc32Step(uint32_t key, uint8_t byte) {
    return (key >> 8) ^ crcTables[0][(key ^ byte) & 0xFF];
}

uint32_t crc32Update(uint32_t crc, const void* bytes, size_t length) {
    const uint8_t* p = static_cast<const uint8_t*>(bytes);
    uint32_t c = ~crc;
    for (; length >= 8; length -= 8, p += 8) {
        uint64_t v = loadLittle64(p) ^ c;
        c = crcTables[7][v & 0xFF] ^ crcTables[6][(v >> 8) & 0xFF] ^
            crcTables[5][(v >> 16) & 0xFF] ^ crcTables[4][(v >> 24) & 0xFF] ^
            crcTables[3][(v >> 32) & 0xFF] ^ crcTables[2][(v >> 40) & 0xFF] ^
            crcTables[1][(v >> 48) & 0xFF] ^ crcTables[0][v >> 56];
    }
    while (length--)
        c = crc32Step(c, *p++);
    return ~c;
}

uint32_t adler32Update(uint32_t adler, const void* bytes, size_t length) {
    const uint8_t* p = static_cast<const uint8_t*>(bytes);
    uint32_t a = adler & 0xFFFF;
    uint32_t b = adler >> 16;
    while (length > 0) {
        size_t run = length < adlerRun ? length : adlerRun;
        length -= run;
        for (; run >= 8; run -= 8, p += 8) {
            a += p[0]; b += a; a += p[1]; b += a;
            a += p[2]; b += a; a += p[3]; b += a;
            a += p[4]; b += a; a += p[5]; b += a;
            a += p[6]; b += a; a += p[7]; b += a;
        }
        while (run--) {
            a += *p++;
            b += a;
        }
        a %= adlerBase;
        b %= adlerBase;
    }
    return (b << 16) | a;
}
