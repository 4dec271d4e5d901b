// HuffmanCode: a length-limited canonical prefix code built from symbol
// counts, in the form the deflate block coder sends it. Used by
// DeflateBlockCoder for the literal/length, distance and code-length codes.
#pragma once

#include <cstdint>

struct HuffmanCode {
    static constexpr int maxSymbols = 288;

    uint8_t lengths[maxSymbols];  // 0 for an unused symbol
    uint16_t codes[maxSymbols];   // bit-reversed: ready to go out lowest bit first

    // Optimal lengths of at most maxLength bits for the counts. The result is
    // always a complete code of at least two symbols (unused ones are drafted
    // in when fewer are used), which every inflater accepts.
    void build(const uint32_t* counts, int symbolCount, int maxLength);
    // Canonical codes from the lengths (lengths may be set by hand, as for the fixed code).
    void assignCodes(int symbolCount);
};
