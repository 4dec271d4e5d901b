// MatchCosts: symbol costs from the fixed code or from a block's codes.
#include "core/deflate/MatchCosts.h"

#include "core/deflate/DeflateBlockCoder.h"

using namespace deflateFormat;

namespace {

// What a symbol unused in the last block is expected to cost in the next.
constexpr int unusedLiteralBits = 12;
constexpr int unusedLengthBits = 12;
constexpr int unusedDistanceBits = 8;

}  // namespace

MatchCosts::MatchCosts() {
    for (int byte = 0; byte < 256; ++byte)
        literalBits[byte] = fixedLiteralLengthLength(byte);
    for (int length = minMatch; length <= maxMatch; ++length) {
        int code = symbolTables.lengthCode[length - minMatch];
        lengthBits[length] = uint8_t(fixedLiteralLengthLength(257 + code) + lengthExtra[code]);
    }
    for (int code = 0; code < usableDistanceSymbols; ++code)
        distanceBits[code] = uint8_t(fixedDistanceLength + distanceExtra[code]);
}

void MatchCosts::setFrom(const HuffmanCode& literals, const HuffmanCode& distances) {
    for (int byte = 0; byte < 256; ++byte)
        literalBits[byte] = literals.lengths[byte] ? literals.lengths[byte] : uint8_t(unusedLiteralBits);
    for (int length = minMatch; length <= maxMatch; ++length) {
        int code = symbolTables.lengthCode[length - minMatch];
        int bits = literals.lengths[257 + code] ? literals.lengths[257 + code] : unusedLengthBits;
        lengthBits[length] = uint8_t(bits + lengthExtra[code]);
    }
    for (int code = 0; code < usableDistanceSymbols; ++code) {
        int bits = distances.lengths[code] ? distances.lengths[code] : unusedDistanceBits;
        distanceBits[code] = uint8_t(bits + distanceExtra[code]);
    }
}
