// DeflateFormat: the facts of the DEFLATE bit stream that both directions
// need: framings, symbol alphabets, length and distance tables, the order of
// the code-length code. Used by DeflateStream and InflateStream.
#pragma once

#include <cstdint>

// How a DEFLATE stream is wrapped.
enum DeflateFraming : int32_t {
    FramingRaw = 0,     // bare blocks
    FramingRawCrc = 1,  // bare blocks, CRC-32 kept for the caller (ZIP members)
    FramingZlib = 2,    // 78 DA header, Adler-32 trailer
    FramingGzip = 3,    // gzip member header, CRC-32 and length trailer
};

namespace deflateFormat {

// Adler-32 starts at 1, CRC-32 at 0.
constexpr uint32_t initialChecksum(int32_t framing) { return framing == FramingZlib ? 1u : 0u; }

constexpr int minMatch = 3;
constexpr int maxMatch = 258;
constexpr int maxDistance = 32768;
constexpr int maxCodeLength = 15;
constexpr int maxCodeLengthCodeLength = 7;

constexpr int endOfBlock = 256;
constexpr int literalLengthSymbols = 288;  // 286 and 287 exist only in the fixed code
constexpr int usableLiteralLengthSymbols = 286;
constexpr int distanceSymbols = 32;  // 30 and 31 exist only in the fixed code
constexpr int usableDistanceSymbols = 30;
constexpr int codeLengthSymbols = 19;
constexpr int lengthSymbols = 29;    // symbols 257..285

enum BlockType : uint32_t { BlockStored = 0, BlockFixed = 1, BlockDynamic = 2 };

constexpr uint16_t lengthBase[lengthSymbols] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,
                                                15, 17, 19, 23, 27, 31, 35, 43, 51,  59,
                                                67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr uint8_t lengthExtra[lengthSymbols] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr uint16_t distanceBase[usableDistanceSymbols] = {
    1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr uint8_t distanceExtra[usableDistanceSymbols] = {0, 0, 0, 0, 1, 1, 2,  2,  3,  3,
                                                          4, 4, 5, 5, 6, 6, 7,  7,  8,  8,
                                                          9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

// The lengths of the code-length code are sent in this order.
constexpr uint8_t codeLengthOrder[codeLengthSymbols] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                        11, 4,  12, 3, 13, 2, 14, 1, 15};

// The fixed literal/length code: 8 bits, 9 bits, 7 bits, 8 bits by symbol range.
constexpr uint8_t fixedLiteralLengthLength(int symbol) {
    return symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
}
constexpr uint8_t fixedDistanceLength = 5;

}  // namespace deflateFormat
