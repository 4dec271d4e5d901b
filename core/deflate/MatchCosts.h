// MatchCosts: what literals, match lengths and match distances are expected
// to cost in bits, taken from the codes of the block last sent (consecutive
// blocks of one stream have much the same statistics). DeflateBlockCoder
// fills it after each block; DeflateStream weighs every match it finds
// against the literals it would replace.
#pragma once

#include <cstdint>

#include "core/deflate/DeflateFormat.h"
#include "core/deflate/HuffmanCode.h"

struct MatchCosts {
    static constexpr int32_t maxMatchBits = 2 * deflateFormat::maxCodeLength + 5 + 13;

    uint8_t literalBits[256];                          // per byte value
    uint8_t lengthBits[deflateFormat::maxMatch + 1];   // per length from 3: symbol and extra bits
    uint8_t distanceBits[deflateFormat::distanceSymbols];  // per distance symbol: code and extra bits

    // Before any block is sent: the fixed code's costs.
    MatchCosts();
    // The costs of these codes; a symbol they leave unused is priced as a
    // long code, since it was rare.
    void setFrom(const HuffmanCode& literals, const HuffmanCode& distances);

    // True when a match of `length` (3 to 258) bytes at `bytes`, coded with
    // `distanceSymbol`, costs fewer bits than the same bytes as literals.
    // Reads at least eight bytes from `bytes`.
    bool pays(const uint8_t* bytes, int32_t length, int distanceSymbol) const {
        int32_t matchBits = lengthBits[length] + distanceBits[distanceSymbol];
        if (length <= 8) {
            // Without a branch per byte: whether short matches pay is a coin
            // toss on noisy data, and mispredictions cost more than the sum.
            int32_t sums[8];
            int32_t bits = 0;
            for (int32_t i = 0; i < 8; ++i)
                sums[i] = bits += literalBits[bytes[i]];
            return sums[length - 1] > matchBits;
        }
        // No match costs more than 15 + 5 + 15 + 13 bits, no literal less than one.
        if (length > maxMatchBits)
            return true;
        int32_t bits = 0;
        for (int32_t i = 0; i < length; ++i) {
            bits += literalBits[bytes[i]];
            if (bits > matchBits)
                return true;
        }
        return false;
    }
};
