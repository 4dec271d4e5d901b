// MatchFinder: the hash chains over DeflateStream's window, and the search
// along them. DeflateStream owns the tables and builds a MatchFinder over
// them for each parse, as a local: the parse loop's token stores could alias
// the stream's members, and the compiler would reload them after each one.
//
// Every position is hashed on its byte and the two after it (hash32 of the
// packed word) into one of 8192 heads; the head holds the newest position
// with that hash, and each position's chain entry the distance back to the
// previous one (0 when there is none within 32 KiB). A search walks back
// through the candidates, newest first. The hash keys are computed in bulk
// ahead of the parse, eight or sixteen positions at a time, so that the walk
// never waits for a multiplication.
//
// How far a walk goes is the caller's choice (DeflateStream::parse); here a
// candidate costs one eight-byte load and compare unless its first eight
// bytes all match, and a walk ends at the nice length, the chain's end or
// the 32 KiB horizon.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/deflate/DeflateFormat.h"

namespace matchFinderDetail {

inline uint64_t load64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first differing byte is the lowest set bit");

// Bytes equal at the start of a and b, at most maxLength (none when it is
// not positive).
inline int32_t commonLength(const uint8_t* a, const uint8_t* b, int32_t maxLength) {
    int32_t length = 0;
    for (; length + 8 <= maxLength; length += 8) {
        uint64_t difference = load64(a + length) ^ load64(b + length);
        if (difference)
            return length + (__builtin_ctzll(difference) >> 3);
    }
    while (length < maxLength && a[length] == b[length])
        ++length;
    return length;
}

}  // namespace matchFinderDetail

struct MatchFinder {
    static constexpr int32_t headCount = 8192;

    // Head indices of `count` positions from `bytes`, each from its byte and
    // the two after it: keys[i] = hash32 of the packed word, modulo 8192.
    static void computeKeys(const uint8_t* bytes, uint16_t* keys, int32_t count);

    // All borrowed. The window holds at least 8 readable bytes past `filled`.
    const uint8_t* window;
    int32_t* heads;         // newest position per key, -1 when none
    uint16_t* chain;        // per position: distance back to the previous one with its key, 0 for none
    const uint16_t* keys;   // per position: its head index
    int32_t filled;         // window bytes that hold input
    int32_t nice;           // a match this long ends a walk

    // Makes `at` the newest position of its key; returns the one it replaces.
    int32_t insert(int32_t at) const {
        uint16_t key = keys[at];
        int32_t previous = heads[key];
        heads[key] = at;
        int32_t distance = at - previous;
        bool linked = (previous >= 0) & (distance <= deflateFormat::maxDistance);  // no branch: the outcome is data
        chain[at] = uint16_t(distance & -int32_t(linked));
        return previous;
    }

    // Inserts the positions after `last` (inserted already) up to `stop`,
    // inside a run of one byte value that ends at `stop`: each has the key of
    // `last` and links one step back, so the tables come out as insert()
    // would leave them without the round trip through the head table per
    // position. Returns the last position inserted; those whose three bytes
    // reach past the run are left to insert().
    int32_t insertRun(int32_t last, int32_t stop) const {
        int32_t end = stop - 2;
        if (end <= last + 1)
            return last;
        std::fill(chain + last + 1, chain + end, uint16_t(1));
        heads[keys[last]] = end - 1;
        return end - 1;
    }

    // The longest match at `at` among `tries` candidates from `candidate`
    // back, the nearest of equals. The first candidate always counts (it may
    // match fewer than three bytes), so `distance` is always set.
    int32_t longestMatch(int32_t at, int32_t candidate, int32_t tries, int32_t& distance) const {
        using namespace matchFinderDetail;
        const int32_t maxLength = std::min(deflateFormat::maxMatch, filled - at);
        const int32_t enough = std::min(nice, maxLength);
        const int32_t oldest = std::max(0, at - deflateFormat::maxDistance);
        const uint8_t* const scan = window + at;
        const uint64_t first = load64(scan);
        int32_t best = -1, found = candidate;
        for (;;) {
            uint64_t difference = first ^ load64(window + candidate);
            int32_t length = difference != 0 ? __builtin_ctzll(difference) >> 3
                                             : 8 + commonLength(scan + 8, window + candidate + 8, maxLength - 8);
            length = std::min(length, maxLength);
            if (length > best) {
                best = length;
                found = candidate;
                if (length >= enough)
                    break;
            }
            if (--tries == 0)
                break;
            uint16_t step = chain[candidate];
            if (step == 0 || candidate - step < oldest)
                break;
            candidate -= step;
        }
        distance = at - found;
        return best;
    }

    // The match length of one candidate when its first eight bytes settle
    // it, else -1. Needs eight bytes of input from `at`.
    int32_t quickLength(int32_t at, int32_t candidate) const {
        using namespace matchFinderDetail;
        uint64_t difference = load64(window + at) ^ load64(window + candidate);
        return difference != 0 ? int32_t(__builtin_ctzll(difference) >> 3) : -1;
    }
};
