// Tests of the player and mixer lookup tables and of the 16-bit quicksort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "MixerTables.h"
#include "PlayerTables.h"
#include "QuickSort.h"

TEST(PlayerTables, EdgeValues) {
    buildPlayerTables();
    buildPlayerTables();  // a second call changes nothing
    const struct { const char* what; int64_t actual, expected; } cases[] = {
        {"linear 4608", linearFrequency[4608], 8363},
        {"linear 3840", linearFrequency[3840], 16726},
        {"linear 0", linearFrequency[0], 535232},
        {"linear 7744", linearFrequency[7744], 493},
        {"reversed 0", linearFrequencyReversed[0], 493},
        {"reversed 7744", linearFrequencyReversed[7744], 535232},
        {"linear period 0", linearPeriods[0], 7680},
        {"linear period 120", linearPeriods[120], 0},
        {"linear period 121", linearPeriods[121], 0},
        {"linear period 127", linearPeriods[127], 0},
        {"amiga note 0", amigaPeriods[0], 27392},
        {"amiga note 11", amigaPeriods[11], 14512},
        {"amiga note 48", amigaPeriods[48], 1712},
        {"amiga note 127", amigaPeriods[127], 27},
        {"finetune 0", finetuneFactors[128], 65536},
        {"finetune 127", finetuneFactors[255], int64_t(std::floor(std::pow(2.0, 127.0 / 1536) * 65536 + 0.5))},
        {"finetune -128", finetuneFactors[0], int64_t(std::floor(std::pow(2.0, -128.0 / 1536) * 65536 + 0.5))},
        {"sine256 0", waveSine256[0], 0},
        {"sine256 64", waveSine256[64], 32},
        {"sine256 128", waveSine256[128], 0},
        {"sine256 192", waveSine256[192], -32},
        {"sine64 16", waveSine64[16], 32},
        {"sine64 48", waveSine64[48], -32},
        {"square256 127", waveSquare256[127], 32},
        {"square256 128", waveSquare256[128], -32},
        {"square64 32", waveSquare64[32], -32},
        {"ramp up 0", waveRampUp256[0], -32},
        {"ramp up 127", waveRampUp256[127], 32},
        {"ramp up 128", waveRampUp256[128], -32},
        {"ramp down 127", waveRampDown256[127], -32},
        {"ramp up 64 of 64", waveRampUp64[31], 32},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.actual, c.expected) << c.what;
    for (int n = 121; n < 128; ++n)
        EXPECT_EQ(amigaPeriods[n], 27) << n;
    for (int i = 0; i < 64; ++i)
        EXPECT_TRUE(waveRandom64[i] >= -32 && waveRandom64[i] <= 32) << i;
    for (int i = 1; i < 128; ++i)
        EXPECT_EQ(waveSine256[256 - i], -waveSine256[i]) << i;
}

TEST(PlayerTables, SortedCopiesHoldTheSameValuesAscending) {
    buildPlayerTables();
    std::vector<uint16_t> linear(linearPeriods, linearPeriods + 128);
    std::vector<uint16_t> amiga(amigaPeriods, amigaPeriods + 128);
    std::sort(linear.begin(), linear.end());
    std::sort(amiga.begin(), amiga.end());
    EXPECT_EQ(std::vector<uint16_t>(linearPeriodsSorted, linearPeriodsSorted + 128), linear);
    EXPECT_EQ(std::vector<uint16_t>(amigaPeriodsSorted, amigaPeriodsSorted + 128), amiga);
}

TEST(QuickSort, SortsLikeTheStandardSort) {
    std::mt19937 random(1234);
    for (int round = 0; round < 200; ++round) {
        std::vector<uint16_t> values(random() % 300);
        uint32_t range = round % 2 ? 4 : 65536;  // many duplicates, or few
        for (uint16_t& value : values)
            value = uint16_t(random() % range);
        std::vector<uint16_t> expected = values;
        std::sort(expected.begin(), expected.end());
        quickSort(values.data(), int32_t(values.size()));
        ASSERT_EQ(values, expected) << "round " << round;
    }
}

// Distinct values arranged so that every partition's middle element is the
// smallest of its range: each level of recursion then sorts away one value.
static std::vector<uint16_t> oneByOneInput(int count) {
    std::vector<int> slotAt(count);  // which original slot sits at each position
    for (int i = 0; i < count; ++i)
        slotAt[i] = i;
    std::vector<uint16_t> values(count);
    for (int low = 0; low < count; ++low) {
        int middle = low + (count - 1 - low) / 2;
        values[slotAt[middle]] = uint16_t(low);
        std::swap(slotAt[low], slotAt[middle]);
    }
    return values;
}

TEST(QuickSort, DeepRecursionIsFatal) {
    std::vector<uint16_t> shallow = oneByOneInput(250);
    quickSort(shallow.data(), 250);
    EXPECT_TRUE(std::is_sorted(shallow.begin(), shallow.end()));
    std::vector<uint16_t> deep = oneByOneInput(300);
    EXPECT_EXIT(quickSort(deep.data(), 300), testing::ExitedWithCode(1), "");
}

TEST(MixerTables, Values) {
    buildMixerTables();
    EXPECT_EQ(signedByteToSample[1], 256);
    EXPECT_EQ(signedByteToSample[255], 0xFF00);
    EXPECT_EQ(unsignedByteToSample[128], 0);
    EXPECT_EQ(unsignedByteToSample[0], 0x8000);
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(unsignedByteToSample[i], signedByteToSample[i ^ 128]);
    EXPECT_EQ(squareRootCurve[0], 0u);
    EXPECT_EQ(squareRootCurve[4095], 16777215u);
    EXPECT_EQ(squareRootCurve[1], uint32_t(std::floor(std::sqrt(1 / 4095.0) * 16777215 + 0.5)));
    for (int i = 1; i < 4096; ++i)
        EXPECT_GT(squareRootCurve[i], squareRootCurve[i - 1]);
}
