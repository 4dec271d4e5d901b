// Checksum: CRC-32 (reflected, as gzip and ZIP use it) and Adler-32 (as the
// zlib framing uses it). Used by the deflate and inflate streams and by the
// ZIP key schedule of the inflate stream's decryption.
#pragma once

#include <cstddef>
#include <cstdint>

// Running CRC-32: start with 0, feed any number of pieces.
uint32_t crc32Update(uint32_t crc, const void* bytes, size_t length);
// One step of the raw table update, without the inversions: the ZIP key rule.
uint32_t crc32Step(uint32_t key, uint8_t byte);
// Running Adler-32: start with 1.
uint32_t adler32Update(uint32_t adler, const void* bytes, size_t length);
