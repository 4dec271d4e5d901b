// DeflateBlockCoder: gathers the literals and matches of one block in the
// token buffer and codes the block as stored, fixed or dynamic, whichever is
// smallest. Used by DeflateStream.
//
// Token buffer (memory only): items go in groups of eight, each group led by
// a flag byte whose bit i (lowest first) marks item i as a match. A literal
// takes one byte; a match three: distance - 1 (16 bits, low byte first), then
// length - 3.
#pragma once

#include <cstdint>

#include "core/deflate/BitWriter.h"
#include "core/deflate/DeflateFormat.h"
#include "core/deflate/HuffmanCode.h"
#include "core/deflate/MatchCosts.h"

namespace deflateFormat {

// lengthCode[length - 3]: index into the length symbols.
// distanceCode[d - 1] for d <= 256, else distanceCode[256 + ((d - 1) >> 7)]:
// distances above 256 share symbols in steps of at least 128.
struct SymbolTables {
    uint8_t lengthCode[256];
    uint8_t distanceCode[512];
};
constexpr SymbolTables makeSymbolTables() {
    SymbolTables t{};
    for (int code = 0; code < deflateFormat::lengthSymbols; ++code) {
        int span = 1 << deflateFormat::lengthExtra[code];  // 258 follows, overriding 227's last slot
        for (int i = 0; i < span; ++i)
            t.lengthCode[deflateFormat::lengthBase[code] - deflateFormat::minMatch + i] = uint8_t(code);
    }
    for (int code = 0; code < deflateFormat::usableDistanceSymbols; ++code) {
        for (int i = 0; i < (1 << deflateFormat::distanceExtra[code]); ++i) {
            int d = deflateFormat::distanceBase[code] - 1 + i;
            if (d < 256)
                t.distanceCode[d] = uint8_t(code);
            else
                t.distanceCode[256 + (d >> 7)] = uint8_t(code);
        }
    }
    return t;
}
inline constexpr SymbolTables symbolTables = makeSymbolTables();

}  // namespace deflateFormat

class DeflateBlockCoder {
public:
    static constexpr int32_t tokenCapacity = 65536;

    DeflateBlockCoder();
    ~DeflateBlockCoder();
    DeflateBlockCoder(const DeflateBlockCoder&) = delete;
    DeflateBlockCoder& operator=(const DeflateBlockCoder&) = delete;

    bool isAllocated() const { return tokens != nullptr; }
    bool isEmpty() const { return fill == 0; }
    // Input bytes the block stands for.
    int32_t coveredLength() const { return literalCount + matchedLength; }

    // Adds literals until the block is full; returns how many it took.
    int32_t addLiterals(const uint8_t* bytes, int32_t count);

    void addMatch(int32_t distance, int32_t length) {
        int32_t flag = startItem();
        tokens[flag] |= uint8_t(1u << (itemsInGroup - 1));
        uint32_t d = uint32_t(distance - 1);
        tokens[fill++] = uint8_t(d);
        tokens[fill++] = uint8_t(d >> 8);
        tokens[fill++] = uint8_t(length - deflateFormat::minMatch);
        matchedLength += length;
        ++literalLengthCounts[lengthSymbol(length)];
        ++distanceCounts[distanceSymbol(distance)];
    }

    bool isFull() const { return closes(fill, literalCount, matchedLength); }

    // True when sending the block stored would cost no more than coding it.
    bool prefersStored(int bitPhase);
    // Codes the block and starts a new one. `raw` holds the block's input
    // bytes, or is null when they have left the window (stored is then not
    // an option).
    void code(BitWriter& writer, bool isFinal, const uint8_t* raw);
    // Prices symbols by the dynamic codes the last coded block was measured
    // with (whichever form it was sent in).
    void estimateCosts(MatchCosts& costs) const { costs.setFrom(literalCode, distanceCode); }

    static int lengthSymbol(int32_t length) {
        return 257 + deflateFormat::symbolTables.lengthCode[length - deflateFormat::minMatch];
    }
    static int distanceSymbol(int32_t distance) {
        uint32_t d = uint32_t(distance - 1);
        uint32_t index = d < 256 ? d : 256 + (d >> 7);  // one load after a select, not two behind a branch
        return deflateFormat::symbolTables.distanceCode[index];
    }

private:
    // The block is closed when a match might no longer fit (a flag byte and
    // three bytes), or when it covers half the token buffer's worth of input
    // while literals fill a sixteenth of it.
    static bool closes(int32_t fill, int32_t literals, int32_t matched) {
        return tokenCapacity - fill < 4 || (literals + matched >= tokenCapacity / 2 && literals >= tokenCapacity / 16);
    }

    // Returns the index of the current group's flag byte.
    int32_t startItem() {
        if (itemsInGroup == 8) {
            flagIndex = fill;
            tokens[fill++] = 0;
            itemsInGroup = 0;
        }
        ++itemsInGroup;
        return flagIndex;
    }

    struct Costs {
        uint64_t stored, fixed, dynamic;
    };
    void buildDynamicCodes();
    Costs measure(int bitPhase);
    void sendStored(BitWriter& writer, bool isFinal, const uint8_t* raw);
    void sendDynamicHeader(BitWriter& writer);
    void sendTokens(BitWriter& writer, const HuffmanCode& literals, const HuffmanCode& distances);
    void reset();


    uint8_t* tokens = nullptr;
    int32_t fill = 0;
    int32_t flagIndex = 0;
    int32_t itemsInGroup = 0;
    int32_t literalCount = 0;
    int32_t matchedLength = 0;
    uint32_t literalLengthCounts[deflateFormat::literalLengthSymbols];
    uint32_t distanceCounts[deflateFormat::distanceSymbols];

    // The dynamic codes of the current block and the run-length coded lengths
    // that describe them.
    HuffmanCode literalCode, distanceCode, lengthsCode;
    int literalCodeCount = 0, distanceCodeCount = 0, lengthsCodeCount = 0;
    uint8_t runSymbols[deflateFormat::literalLengthSymbols + deflateFormat::distanceSymbols];
    uint8_t runExtra[deflateFormat::literalLengthSymbols + deflateFormat::distanceSymbols];
    int runCount = 0;
};
