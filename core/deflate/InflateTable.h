// InflateTable: table-driven decoding of canonical prefix codes, in the
// form InflateStream's block decoder looks symbols up.
//
// A root table indexed by the next rootBits input bits resolves every code of
// at most rootBits bits; longer codes go through one subtable per shared
// root prefix. An entry is one word:
//   bits 0-7   code length to consume (for a subtable link: rootBits);
//   bits 8-15  kind: extra-bit count (0-13) of a length or distance base,
//              or one of the flags below;
//   bits 16-31 value: literal byte, length or distance base, symbol, or the
//              subtable's offset for a link.
#pragma once

#include <cstdint>

namespace inflateTable {

constexpr uint32_t kindLiteral = 0x40;
constexpr uint32_t kindEndOfBlock = 0x20;
constexpr uint32_t kindInvalid = 0x10;
constexpr uint32_t kindSubtable = 0x80;  // low bits: the subtable's index width

constexpr uint32_t entry(uint32_t value, uint32_t kind, uint32_t length = 0) {
    return value << 16 | kind << 8 | length;
}
constexpr uint32_t lengthOf(uint32_t e) { return e & 0xFF; }
constexpr uint32_t kindOf(uint32_t e) { return (e >> 8) & 0xFF; }
constexpr uint32_t valueOf(uint32_t e) { return e >> 16; }

// Fills `table` (at most `capacity` entries) for the code given by `lengths`.
// symbolEntries[s] is the entry of symbol s without its length. Fails on an
// over-subscribed set and on an incomplete one, except a lone one-bit code
// (a block with a single distance). A set with no codes gives a table in
// which every entry is invalid.
bool build(uint32_t* table, int capacity, int rootBits, const uint8_t* lengths, int count,
           const uint32_t* symbolEntries);

// The entry for the code at the bottom of `bits`.
inline uint32_t lookup(const uint32_t* table, int rootBits, uint64_t bits) {
    uint32_t e = table[bits & ((1u << rootBits) - 1)];
    if (kindOf(e) & kindSubtable) {
        uint32_t width = kindOf(e) & 0x0F;
        e = table[valueOf(e) + ((bits >> rootBits) & ((1u << width) - 1))];
    }
    return e;
}

}  // namespace inflateTable
