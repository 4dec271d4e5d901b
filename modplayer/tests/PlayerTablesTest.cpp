// Tests of the player and mixer lookup tables, including the period tables
// that the 16-bit quicksort orders.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "modplayer/MixerTables.h"
#include "modplayer/PlayerTables.h"

namespace {

int64_t rounded(double value) {
    return int64_t(std::floor(value + 0.5));
}

}  // namespace

TEST(PlayerTables, EdgeValues) {
    buildPlayerTables();
    buildPlayerTables();  // a second call changes nothing
    buildMixerTables();
    const struct { const char* what; int64_t actual, expected; } cases[] = {
        {"linear 4608", linearFrequency[4608], 8363}, {"linear 3840", linearFrequency[3840], 16726},
        {"linear 0", linearFrequency[0], 535232}, {"linear 7744", linearFrequency[7744], 493},
        {"reversed 0", linearFrequencyReversed[0], 493}, {"reversed 7744", linearFrequencyReversed[7744], 535232},
        {"linear period 0", linearPeriods[0], 7680}, {"linear period 120", linearPeriods[120], 0},
        {"linear period 127", linearPeriods[127], 0}, {"amiga note 0", amigaPeriods[0], 27392},
        {"amiga note 11", amigaPeriods[11], 14512}, {"amiga note 48", amigaPeriods[48], 1712},
        {"finetune 0", finetuneFactors[128], 65536},
        {"finetune 127", finetuneFactors[255], rounded(std::pow(2.0, 127.0 / 1536) * 65536)},
        {"finetune -128", finetuneFactors[0], rounded(std::pow(2.0, -128.0 / 1536) * 65536)},
        {"sine256 64", waveSine256[64], 32}, {"sine256 128", waveSine256[128], 0},
        {"sine64 16", waveSine64[16], 32}, {"sine64 48", waveSine64[48], -32},
        {"square256 127", waveSquare256[127], 32}, {"square256 128", waveSquare256[128], -32},
        {"square64 32", waveSquare64[32], -32}, {"ramp up 0", waveRampUp256[0], -32},
        {"ramp up 127", waveRampUp256[127], 32}, {"ramp up 128", waveRampUp256[128], -32},
        {"ramp down 127", waveRampDown256[127], -32}, {"ramp up 64 of 64", waveRampUp64[31], 32},
        {"square root 0", squareRootCurve[0], 0}, {"square root 4095", squareRootCurve[4095], 16777215},
        {"square root 1", squareRootCurve[1], rounded(std::sqrt(1 / 4095.0) * 16777215)},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.actual, c.expected) << c.what;
    for (int p = 0; p < linearPeriodCount; ++p)  // built by octaves, so every entry is checked
        ASSERT_EQ(linearFrequency[p], rounded(8363.0 * std::pow(2.0, (4608 - p) / 768.0))) << "linear " << p;
    for (int n = 121; n < 128; ++n)
        EXPECT_EQ(amigaPeriods[n], 27) << n;
    for (int i = 0; i < 64; ++i)
        EXPECT_TRUE(waveRandom64[i] >= -32 && waveRandom64[i] <= 32) << i;
    for (int i = 1; i < 128; ++i)
        EXPECT_EQ(waveSine256[256 - i], -waveSine256[i]) << i;
    EXPECT_TRUE(std::is_sorted(squareRootCurve, squareRootCurve + 4096, std::less_equal<uint32_t>()));  // rising
}

TEST(PlayerTables, SortedCopiesHoldTheSameValuesAscending) {
    buildPlayerTables();
    for (auto [table, sorted] : {std::pair(linearPeriods, linearPeriodsSorted),
                                 std::pair(amigaPeriods, amigaPeriodsSorted)}) {
        std::vector<uint16_t> expected(table, table + noteCount);
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(std::vector<uint16_t>(sorted, sorted + noteCount), expected);
    }
}
