// MatchFinder against plain references: the bulk keys against hash32, the
// run shortcut against inserting one position at a time, the walk against a
// brute-force search of the window.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "core/Hash32.h"
#include "core/deflate/MatchFinder.h"
#include "core/deflate/tests/DeflateTestSupport.h"

namespace {

constexpr int32_t windowBytes = 65536;

// A window with its tables, all positions before `inserted` in the chains.
struct Tables {
    explicit Tables(const Bytes& input) : window(input), heads(MatchFinder::headCount, -1), chain(windowBytes), keys(windowBytes) {
        window.resize(input.size() + 8);  // the finder reads eight bytes past the input
        MatchFinder::computeKeys(window.data(), keys.data(), int32_t(input.size()) - 2);
    }
    MatchFinder finder(int32_t filled, int32_t nice = deflateFormat::maxMatch) {
        return MatchFinder{window.data(), heads.data(), chain.data(), keys.data(), filled, nice};
    }
    Bytes window;
    std::vector<int32_t> heads;
    std::vector<uint16_t> chain, keys;
};

// Bytes from a small alphabet, with runs of one value: the codec's payload
// in miniature.
Bytes smallAlphabetWithRuns(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes b;
    while (b.size() < n) {
        if (random() % 8 == 0)
            b.insert(b.end(), 1 + random() % 40, 16);
        else
            b.push_back(uint8_t(8 + random() % 6));
    }
    b.resize(n);
    return b;
}

}  // namespace

TEST(MatchFinderTest, bulkKeysAreHash32OfEachPackedThreeByteWord) {
    Bytes bytes = randomBytes(1000, 21);
    bytes.resize(1008);
    for (int32_t offset : {0, 1, 5}) {
        for (int32_t count : {0, 1, 7, 8, 9, 31, 33, 990}) {
            std::vector<uint16_t> keys(size_t(count) + 1, 0xFFFF);
            MatchFinder::computeKeys(bytes.data() + offset, keys.data(), count);
            for (int32_t i = 0; i < count; ++i) {
                const uint8_t* p = bytes.data() + offset + i;
                const uint8_t word[4] = {p[0], p[1], p[2], 0};
                ASSERT_EQ(keys[size_t(i)], hash32(word, 4) & (MatchFinder::headCount - 1)) << offset << " " << i;
            }
            EXPECT_EQ(keys[size_t(count)], 0xFFFF) << "wrote past the count";
        }
    }
}

TEST(MatchFinderTest, runShortcutLeavesTheTablesOneByOneInsertionWould) {
    // A run of one value from `start` to `stop`, after a prefix that puts
    // other positions on the run value's chain (or none, at the start).
    const struct { int32_t start, stop; } runs[] = {{0, 2}, {0, 3}, {0, 40}, {1, 300}, {100, 104}, {5000, 5258},
                                                   {40000, 40260}, {32767, 33100}};
    for (const auto& run : runs) {
        Bytes input = randomBytes(size_t(run.stop) + 20, uint32_t(run.start));
        std::fill(input.begin() + run.start, input.begin() + run.stop, 0x5A);
        if (run.start > 50)
            std::fill(input.begin() + 10, input.begin() + 20, 0x5A);  // an earlier run with the same key
        Tables expected(input), shortcut(input);
        const int32_t filled = int32_t(input.size());
        for (int32_t at = 0; at <= run.start; ++at)
            expected.finder(filled).insert(at), shortcut.finder(filled).insert(at);
        for (int32_t at = run.start + 1; at < run.stop; ++at)
            expected.finder(filled).insert(at);
        int32_t last = shortcut.finder(filled).insertRun(run.start, run.stop);
        while (last + 1 < run.stop)
            shortcut.finder(filled).insert(++last);
        SCOPED_TRACE(std::to_string(run.start) + ".." + std::to_string(run.stop));
        EXPECT_EQ(shortcut.heads, expected.heads);
        EXPECT_EQ(shortcut.chain, expected.chain);
    }
}

TEST(MatchFinderTest, unlimitedWalkFindsTheNearestOfTheLongestMatches) {
    for (uint32_t seed : {1u, 2u, 3u}) {
        Bytes input = seed == 3 ? englishLikeText(40000, seed) : smallAlphabetWithRuns(40000, seed);
        Tables tables(input);
        const int32_t filled = int32_t(input.size());
        std::mt19937 random(seed);
        int32_t checked = 0;
        for (int32_t at = 0; at + 2 < filled; ++at) {
            int32_t candidate = tables.finder(filled).insert(at);
            if (random() % 64 != 0 || candidate < 0 || at - candidate > deflateFormat::maxDistance)
                continue;
            int32_t distance = 0;
            int32_t found = tables.finder(filled).longestMatch(at, candidate, 1 << 30, distance);
            // Brute force over the whole reach, nearest first.
            int32_t best = 0, bestDistance = 0;
            int32_t maxLength = std::min(deflateFormat::maxMatch, filled - at);
            for (int32_t d = 1; d <= std::min(at, deflateFormat::maxDistance); ++d) {
                int32_t length = 0;
                while (length < maxLength && input[size_t(at - d + length)] == input[size_t(at + length)])
                    ++length;
                if (length > best)
                    best = length, bestDistance = d;
            }
            if (best < deflateFormat::minMatch)
                continue;  // then the chain may hold only hash collisions
            ASSERT_EQ(found, best) << "seed " << seed << " at " << at;
            ASSERT_EQ(distance, bestDistance) << "seed " << seed << " at " << at;
            ++checked;
        }
        EXPECT_GT(checked, 200) << seed;
    }
}
