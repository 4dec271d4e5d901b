// InflateTable: canonical code assignment into root and sub tables.
#include "core/deflate/InflateTable.h"

namespace inflateTable {

namespace {
constexpr int maxLength = 15;
constexpr int maxSymbols = 288;

uint32_t reverseBits(uint32_t code, int length) {
    uint32_t reversed = 0;
    for (int i = 0; i < length; ++i, code >>= 1)
        reversed = (reversed << 1) | (code & 1);
    return reversed;
}
}  // namespace

bool build(uint32_t* table, int capacity, int rootBits, const uint8_t* lengths, int count,
           const uint32_t* symbolEntries) {
    int lengthCounts[maxLength + 1] = {};
    for (int s = 0; s < count; ++s) {
        if (lengths[s] > maxLength)
            return false;
        ++lengthCounts[lengths[s]];
    }
    int left = 1;
    int longest = 0;
    for (int length = 1; length <= maxLength; ++length) {
        left = (left << 1) - lengthCounts[length];
        if (left < 0)
            return false;  // over-subscribed
        if (lengthCounts[length])
            longest = length;
    }
    int rootSize = 1 << rootBits;
    if (rootSize > capacity)
        return false;
    for (int i = 0; i < rootSize; ++i)
        table[i] = entry(0, kindInvalid);
    if (longest == 0)
        return true;
    if (left > 0 && longest != 1)
        return false;  // incomplete

    // Symbols in canonical order (by length, then symbol), with their codes
    // reversed into the order the bits arrive in.
    uint16_t sorted[maxSymbols];
    uint32_t reversed[maxSymbols];
    int next[maxLength + 2] = {};
    for (int length = 1; length <= maxLength; ++length)
        next[length + 1] = next[length] + lengthCounts[length];
    for (int s = 0; s < count; ++s)
        if (lengths[s])
            sorted[next[lengths[s]]++] = uint16_t(s);
    int total = next[maxLength];
    uint32_t code = 0;
    for (int i = 0, previousLength = 0; i < total; ++i) {
        int length = lengths[sorted[i]];
        code <<= length - previousLength;
        previousLength = length;
        reversed[i] = reverseBits(code++, length);
    }

    uint32_t rootMask = uint32_t(rootSize) - 1;
    int nextSubtable = rootSize;
    int subtableStart = 0, subtableWidth = 0;
    uint32_t currentPrefix = ~0u;
    for (int i = 0; i < total; ++i) {
        int symbol = sorted[i];
        int length = lengths[symbol];
        uint32_t value = symbolEntries[symbol] | uint32_t(length);
        if (length <= rootBits) {
            for (uint32_t at = reversed[i]; at < uint32_t(rootSize); at += 1u << length)
                table[at] = value;
            continue;
        }
        uint32_t prefix = reversed[i] & rootMask;
        if (prefix != currentPrefix) {
            // Codes sharing a root prefix are neighbours in canonical order,
            // and the last of them is the longest.
            int last = i;
            while (last + 1 < total && (reversed[last + 1] & rootMask) == prefix &&
                   lengths[sorted[last + 1]] > rootBits)
                ++last;
            currentPrefix = prefix;
            subtableWidth = lengths[sorted[last]] - rootBits;
            subtableStart = nextSubtable;
            nextSubtable += 1 << subtableWidth;
            if (nextSubtable > capacity)
                return false;
            for (int k = subtableStart; k < nextSubtable; ++k)
                table[k] = entry(0, kindInvalid);
            table[prefix] = entry(uint32_t(subtableStart), kindSubtable | uint32_t(subtableWidth),
                                  uint32_t(rootBits));
        }
        int step = 1 << (length - rootBits);
        for (int at = int(reversed[i] >> rootBits); at < (1 << subtableWidth); at += step)
            table[subtableStart + at] = value;
    }
    return true;
}

}  // namespace inflateTable
