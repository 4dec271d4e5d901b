// Tests of the player and mixer lookup tables: every entry against the
// formula it is built from, the sorted copies, and the values that pin the
// formulas themselves.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "modplayer/MixerTables.h"
#include "modplayer/PlayerTables.h"

namespace {

int64_t rounded(double value) {
    return int64_t(std::floor(value + 0.5));
}

}  // namespace

TEST(PlayerTables, EveryEntryFollowsItsFormula) {
    buildPlayerTables();
    buildPlayerTables();  // a second call changes nothing
    buildMixerTables();
    for (int p = 0; p < linearPeriodCount; ++p) {
        ASSERT_EQ(linearFrequency[p], rounded(8363.0 * std::pow(2.0, (4608 - p) / 768.0))) << "linear " << p;
        ASSERT_EQ(linearFrequencyReversed[linearPeriodCount - 1 - p], linearFrequency[p]) << "reversed " << p;
    }
    const double amigaBase[12] = {907, 856, 808, 762, 720, 678, 640, 604, 570, 538, 508, 480};
    for (int n = 0; n < noteCount; ++n) {
        EXPECT_EQ(linearPeriods[n], std::max(0, 7680 - 64 * n)) << "linear period " << n;
        double amiga = 2 * amigaBase[(n + 1) % 12] * 16 / std::pow(2.0, (n + 1) / 12);
        EXPECT_EQ(amigaPeriods[n], amiga < 27 ? 27 : rounded(amiga)) << "Amiga period " << n;  // a deliberate floor
    }
    for (int f = -128; f < 128; ++f)
        EXPECT_EQ(finetuneFactors[f + 128], rounded(std::pow(2.0, f / 1536.0) * 65536)) << "finetune " << f;
    for (int i = 0; i < 256; ++i) {
        int ramp = (i & 127) * 64 / 127;
        EXPECT_EQ(waveSine256[i], rounded(std::sin(i * M_PI / 128) * 32)) << i;
        EXPECT_EQ(waveSquare256[i], i < 128 ? 32 : -32) << i;
        EXPECT_EQ(std::pair(waveRampUp256[i], waveRampDown256[i]), std::pair(ramp - 32, 32 - ramp)) << i;
        EXPECT_EQ(signedByteToSample[i], uint16_t(i * 256)) << i;
        EXPECT_EQ(unsignedByteToSample[i], uint16_t((i ^ 128) * 256)) << i;
    }
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(waveSine64[i], rounded(std::sin(i * M_PI / 32) * 32)) << i;
        EXPECT_EQ(waveSquare64[i], i < 32 ? 32 : -32) << i;
        EXPECT_EQ(waveRampUp64[i], (i & 31) * 64 / 31 - 32) << i;
        EXPECT_TRUE(waveRandom64[i] >= -32 && waveRandom64[i] <= 32) << i;
    }
    for (int i = 0; i < 4096; ++i)
        ASSERT_EQ(squareRootCurve[i], rounded(std::sqrt(i / 4095.0) * 16777215)) << "square root " << i;
    // Values fixed independently of the formulas above.
    const struct { int64_t actual, expected; } anchors[] = {
        {linearFrequency[4608], 8363}, {linearFrequency[3840], 16726}, {linearFrequency[0], 535232},
        {linearFrequency[7744], 493},  {amigaPeriods[0], 27392},      {amigaPeriods[11], 14512},
        {amigaPeriods[48], 1712},      {finetuneFactors[128], 65536}, {waveSine256[192], -32},
    };
    for (const auto& anchor : anchors)
        EXPECT_EQ(anchor.actual, anchor.expected) << &anchor - anchors;
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
