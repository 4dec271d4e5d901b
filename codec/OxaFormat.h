// OxaFormat: the facts both directions of the codec need: the 32-byte header
// record, the quantisation law and the window. Used by OxaCodec and its tests.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

class Stream;

// The header and the block peaks are stored exactly as they lie in memory.
static_assert(std::endian::native == std::endian::little, "the stream layout is little-endian");

constexpr int32_t OxaHeaderSize = 32;
constexpr uint16_t OxaVersion = 256;
constexpr uint16_t OxaScaledFlag = 1;  // flags bit 0: forward 4/(2N), inverse 0.5, dB of |c|
constexpr int32_t OxaMaxWindowSize = 32768;
constexpr int32_t OxaPeakSize = 4;     // IEEE single in front of each channel's codes
constexpr int32_t OxaDeflateFraming = 2;  // zlib

// The 32-byte record in front of the payload, read and written as one piece.
struct OxaHeader {
    uint8_t magic[4];      // "oxa" 0x1A
    uint16_t version;      // 256
    uint16_t flags;        // bit 0: OxaScaledFlag; other bits ignored
    uint32_t sampleRate;   // Hz, non-zero
    uint8_t channels;      // non-zero for a readable stream
    uint8_t qbits;         // quantisation bits, 2 to 8 as written
    uint16_t windowSize;   // frames per block, a power of two
    uint32_t blockCount;   // 0 while encoding; set when the stream is closed
    uint16_t windowSize2;  // windowSize again
    uint8_t reserved[10];
};
static_assert(sizeof(OxaHeader) == OxaHeaderSize);
static_assert(offsetof(OxaHeader, sampleRate) == 8 && offsetof(OxaHeader, channels) == 12);
static_assert(offsetof(OxaHeader, windowSize) == 14 && offsetof(OxaHeader, blockCount) == 16);
static_assert(offsetof(OxaHeader, windowSize2) == 20 && offsetof(OxaHeader, reserved) == 22);

// The header an encoder writes; blockCount is 0.
OxaHeader makeOxaHeader(uint32_t sampleRate, int32_t channels, uint8_t qbits, int32_t windowSize);
// Every check a reader makes: magic, version, rate, channels, window size.
bool oxaHeaderIsValid(const OxaHeader& header);
// Reads exactly 32 bytes and checks them; reads nothing more.
bool readOxaHeader(Stream& stream, OxaHeader& header);
bool writeOxaHeader(Stream& stream, const OxaHeader& header);

inline bool isPowerOfTwo(uint32_t value) { return value != 0 && (value & (value - 1)) == 0; }

// Quantisation law. L = 2^qbits codes, H = L/2, code k stands for q = k - H,
// t = q / (H - 0.5), value sign(t) * |t|^5. Code bytes are masked to qbits
// bits; qbits of 8 or more keep the whole byte.
uint32_t oxaCodeMask(uint8_t qbits);
// Fills oxaCodeMask(qbits) + 1 entries (at most 256).
void buildDequantTable(float* table, uint8_t qbits);

// The shared analysis and synthesis window of `length` (2N) samples:
// w[k] = sin(pi/2 * sin^2(pi * (k + 0.5) / length)).
void buildOxaWindow(float* window, int32_t length);
