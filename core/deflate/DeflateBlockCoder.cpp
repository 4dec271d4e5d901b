// DeflateBlockCoder: block type choice by exact size, dynamic code header,
// token emission.
#include "core/deflate/DeflateBlockCoder.h"

#include <algorithm>
#include <cstring>
#include <new>

using namespace deflateFormat;

namespace {

constexpr int maxStoredLength = 65535;

// Run-length symbols of the code-length alphabet and their extra bits.
constexpr int repeatPrevious = 16;  // 3..6 copies of the previous length, 2 extra bits
constexpr int repeatZeroShort = 17; // 3..10 zeros, 3 extra bits
constexpr int repeatZeroLong = 18;  // 11..138 zeros, 7 extra bits

int runExtraBits(int symbol) {
    return symbol == repeatPrevious ? 2 : symbol == repeatZeroShort ? 3 : symbol == repeatZeroLong ? 7 : 0;
}

struct FixedCodes {
    HuffmanCode literals, distances;
    FixedCodes() {
        for (int s = 0; s < literalLengthSymbols; ++s)
            literals.lengths[s] = fixedLiteralLengthLength(s);
        literals.assignCodes(literalLengthSymbols);
        for (int s = 0; s < distanceSymbols; ++s)
            distances.lengths[s] = fixedDistanceLength;
        distances.assignCodes(distanceSymbols);
    }
};

const FixedCodes& fixedCodes() {
    static const FixedCodes codes;
    return codes;
}

int usedSymbolCount(const uint8_t* lengths, int count, int minimum) {
    while (count > minimum && lengths[count - 1] == 0)
        --count;
    return count;
}

}  // namespace

DeflateBlockCoder::DeflateBlockCoder() : tokens(new (std::nothrow) uint8_t[tokenCapacity]) { reset(); }

DeflateBlockCoder::~DeflateBlockCoder() { delete[] tokens; }

// The counters live in locals here: the token stores could alias them.
int32_t DeflateBlockCoder::addLiterals(const uint8_t* bytes, int32_t count) {
    int32_t at = fill, group = itemsInGroup, literals = literalCount;
    int32_t taken = 0;
    while (taken < count) {
        if (group == 8) {
            flagIndex = at;
            tokens[at++] = 0;
            group = 0;
        }
        ++group;
        uint8_t byte = bytes[taken++];
        tokens[at++] = byte;
        ++literals;
        ++literalLengthCounts[byte];
        if (closes(at, literals, matchedLength))
            break;
    }
    fill = at;
    itemsInGroup = group;
    literalCount = literals;
    return taken;
}

void DeflateBlockCoder::reset() {
    fill = 0;
    flagIndex = 0;
    itemsInGroup = 8;
    literalCount = 0;
    matchedLength = 0;
    std::memset(literalLengthCounts, 0, sizeof literalLengthCounts);
    std::memset(distanceCounts, 0, sizeof distanceCounts);
    literalLengthCounts[endOfBlock] = 1;
}

void DeflateBlockCoder::buildDynamicCodes() {
    literalCode.build(literalLengthCounts, usableLiteralLengthSymbols, maxCodeLength);
    distanceCode.build(distanceCounts, usableDistanceSymbols, maxCodeLength);
    literalCodeCount = usedSymbolCount(literalCode.lengths, usableLiteralLengthSymbols, 257);
    distanceCodeCount = usedSymbolCount(distanceCode.lengths, usableDistanceSymbols, 1);

    // Both length lists are run-length coded as one sequence; runs may cross
    // from the literal lengths into the distance lengths.
    uint8_t all[literalLengthSymbols + distanceSymbols];
    std::memcpy(all, literalCode.lengths, size_t(literalCodeCount));
    std::memcpy(all + literalCodeCount, distanceCode.lengths, size_t(distanceCodeCount));
    int total = literalCodeCount + distanceCodeCount;
    runCount = 0;
    auto emit = [&](int symbol, int extra) {
        runSymbols[runCount] = uint8_t(symbol);
        runExtra[runCount++] = uint8_t(extra);
    };
    for (int i = 0; i < total;) {
        int value = all[i];
        int run = 1;
        while (i + run < total && all[i + run] == value)
            ++run;
        i += run;
        if (value == 0) {
            for (; run >= 11; run -= std::min(run, 138))
                emit(repeatZeroLong, std::min(run, 138) - 11);
            if (run >= 3) {
                emit(repeatZeroShort, run - 3);
                run = 0;
            }
        } else {
            emit(value, 0);
            --run;
            for (; run >= 3; run -= std::min(run, 6))
                emit(repeatPrevious, std::min(run, 6) - 3);
        }
        for (; run > 0; --run)
            emit(value, 0);
    }

    uint32_t runCounts[codeLengthSymbols] = {};
    for (int i = 0; i < runCount; ++i)
        ++runCounts[runSymbols[i]];
    lengthsCode.build(runCounts, codeLengthSymbols, maxCodeLengthCodeLength);
    lengthsCodeCount = codeLengthSymbols;
    while (lengthsCodeCount > 4 && lengthsCode.lengths[codeLengthOrder[lengthsCodeCount - 1]] == 0)
        --lengthsCodeCount;
}

namespace {

uint64_t tokenBits(const uint32_t* literalCounts, const uint32_t* distanceCounts,
                   const HuffmanCode& literals, const HuffmanCode& distances) {
    uint64_t bits = 0;
    for (int s = 0; s < usableLiteralLengthSymbols; ++s)
        bits += uint64_t(literalCounts[s]) * literals.lengths[s];
    for (int code = 0; code < lengthSymbols; ++code)
        bits += uint64_t(literalCounts[257 + code]) * lengthExtra[code];
    for (int code = 0; code < usableDistanceSymbols; ++code)
        bits += uint64_t(distanceCounts[code]) * (distances.lengths[code] + distanceExtra[code]);
    return bits;
}

}  // namespace

DeflateBlockCoder::Costs DeflateBlockCoder::measure(int bitPhase) {
    buildDynamicCodes();
    Costs costs;
    uint64_t header = 5 + 5 + 4 + 3 * uint64_t(lengthsCodeCount);
    for (int i = 0; i < runCount; ++i)
        header += lengthsCode.lengths[runSymbols[i]] + runExtraBits(runSymbols[i]);
    costs.dynamic = 3 + header + tokenBits(literalLengthCounts, distanceCounts, literalCode, distanceCode);
    const FixedCodes& fixed = fixedCodes();
    costs.fixed = 3 + tokenBits(literalLengthCounts, distanceCounts, fixed.literals, fixed.distances);

    uint64_t length = uint64_t(coveredLength());
    uint64_t pieces = std::max<uint64_t>(1, (length + maxStoredLength - 1) / maxStoredLength);
    uint64_t firstPad = (8 - ((bitPhase + 3) & 7)) & 7;
    costs.stored = pieces * (3 + 32) + firstPad + (pieces - 1) * 5 + 8 * length;
    return costs;
}

bool DeflateBlockCoder::prefersStored(int bitPhase) {
    Costs costs = measure(bitPhase);
    return costs.stored <= std::min(costs.fixed, costs.dynamic);
}

void DeflateBlockCoder::code(BitWriter& writer, bool isFinal, const uint8_t* raw) {
    Costs costs = measure(writer.bitPhase());
    if (raw && costs.stored <= std::min(costs.fixed, costs.dynamic)) {
        sendStored(writer, isFinal, raw);
    } else if (costs.fixed <= costs.dynamic) {
        writer.put(uint32_t(isFinal) | BlockFixed << 1, 3);
        const FixedCodes& fixed = fixedCodes();
        sendTokens(writer, fixed.literals, fixed.distances);
    } else {
        writer.put(uint32_t(isFinal) | BlockDynamic << 1, 3);
        sendDynamicHeader(writer);
        sendTokens(writer, literalCode, distanceCode);
    }
    reset();
}

void DeflateBlockCoder::sendStored(BitWriter& writer, bool isFinal, const uint8_t* raw) {
    int32_t left = coveredLength();
    do {
        int32_t piece = std::min(left, maxStoredLength);
        left -= piece;
        writer.put(uint32_t(isFinal && left == 0) | BlockStored << 1, 3);
        writer.alignToByte();
        writer.put(uint32_t(piece) | uint32_t(piece ^ 0xFFFF) << 16, 32);
        writer.putBytes(raw, size_t(piece));
        raw += piece;
    } while (left > 0);
}

void DeflateBlockCoder::sendDynamicHeader(BitWriter& writer) {
    writer.put(uint32_t(literalCodeCount - 257), 5);
    writer.put(uint32_t(distanceCodeCount - 1), 5);
    writer.put(uint32_t(lengthsCodeCount - 4), 4);
    for (int i = 0; i < lengthsCodeCount; ++i)
        writer.put(lengthsCode.lengths[codeLengthOrder[i]], 3);
    for (int i = 0; i < runCount; ++i) {
        int symbol = runSymbols[i];
        writer.put(lengthsCode.codes[symbol], lengthsCode.lengths[symbol]);
        writer.put(runExtra[i], runExtraBits(symbol));
    }
}

// Each token goes out with one flush: a literal is at most 15 bits, a match
// at most 15 + 5 + 15 + 13 = 48, so with the up to 7 bits left over from the
// last flush nothing overflows the 64-bit buffer.
void DeflateBlockCoder::sendTokens(BitWriter& writer, const HuffmanCode& literals,
                                   const HuffmanCode& distances) {
    static_assert(maxCodeLength + 5 + maxCodeLength + 13 + 7 < 64);
    writer.flushBytes();
    for (int32_t i = 0; i < fill;) {
        uint32_t flags = tokens[i++];
        for (int item = 0; item < 8 && i < fill; ++item, flags >>= 1) {
            if (!(flags & 1)) {
                uint8_t byte = tokens[i++];
                writer.append(literals.codes[byte], literals.lengths[byte]);
                writer.flushBytes();
                continue;
            }
            int32_t distance = (tokens[i] | tokens[i + 1] << 8) + 1;
            int32_t length = tokens[i + 2] + minMatch;
            i += 3;
            int lengthCode = lengthSymbol(length) - 257;
            writer.append(literals.codes[257 + lengthCode], literals.lengths[257 + lengthCode]);
            writer.append(uint32_t(length - lengthBase[lengthCode]), lengthExtra[lengthCode]);
            int distanceCodeIndex = distanceSymbol(distance);
            writer.append(distances.codes[distanceCodeIndex], distances.lengths[distanceCodeIndex]);
            writer.append(uint32_t(distance - distanceBase[distanceCodeIndex]), distanceExtra[distanceCodeIndex]);
            writer.flushBytes();
        }
    }
    writer.put(literals.codes[endOfBlock], literals.lengths[endOfBlock]);
}
