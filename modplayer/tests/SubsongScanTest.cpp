// Tests of the sub-song scan on order lists and patterns built in place.
#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "Module.h"

using namespace mod;

namespace {

constexpr uint8_t jump = 11;
constexpr uint8_t patternBreak = 13;

struct Effect {
    int row;
    uint8_t effect;
    uint8_t parameter;
};

// A 64-row, 4-channel pattern with a note on row 0 (unless empty) and the
// given effects on channel 1.
ModulePattern makePattern(std::initializer_list<Effect> effects, bool empty = false) {
    ModulePattern pattern;
    pattern.resize(64);
    for (PatternRow& row : pattern)
        row.resize(4);
    if (!empty)
        pattern[0][0].note = 48;
    for (const Effect& e : effects) {
        pattern[e.row][1].effect = e.effect;
        pattern[e.row][1].parameter = e.parameter;
    }
    return pattern;
}

std::vector<int> subsongStarts(Module& module, std::initializer_list<uint16_t> orders,
                               int32_t songLength = -1) {
    for (uint16_t order : orders)
        module.orders.add(order);
    module.songLength = songLength < 0 ? int32_t(orders.size()) : songLength;
    module.scanSubsongs();
    std::vector<int> starts;
    for (int32_t i = 0; i < module.subsongs.count(); ++i) {
        EXPECT_EQ(module.subsongs[i].index, i);
        starts.push_back(module.subsongs[i].startPosition);
    }
    return starts;
}

}  // namespace

TEST(SubsongScan, HalfReachableOnlyFromItsStartIsASubsong) {
    Module module;
    module.patterns.add(makePattern({}));
    module.patterns.add(makePattern({{63, jump, 0}}));
    module.patterns.add(makePattern({}));
    module.patterns.add(makePattern({{10, jump, 2}}));
    EXPECT_EQ(subsongStarts(module, {0, 1, 2, 3}), (std::vector<int>{0, 2}));
}

TEST(SubsongScan, HalfStartingWithAnEmptyPatternIsNone) {
    Module module;
    module.patterns.add(makePattern({}));
    module.patterns.add(makePattern({{63, jump, 0}}));
    module.patterns.add(makePattern({}, true));
    EXPECT_EQ(subsongStarts(module, {0, 1, 2, 2}), (std::vector<int>{0}));

    // The failed walk from the empty pattern leaves position 3 unmarked, so
    // the content after it still starts a sub-song of its own.
    Module other;
    other.patterns.add(makePattern({}));
    other.patterns.add(makePattern({{63, jump, 0}}));
    other.patterns.add(makePattern({}, true));
    other.patterns.add(makePattern({{5, jump, 2}}));
    EXPECT_EQ(subsongStarts(other, {0, 1, 2, 3}), (std::vector<int>{0, 3}));
}

TEST(SubsongScan, BreakRowArithmetic) {
    // D00 is no break: the walk reaches the jump on row 10 and skips position 1.
    Module zeroBreak;
    zeroBreak.patterns.add(makePattern({{0, patternBreak, 0x00}, {10, jump, 2}}));
    zeroBreak.patterns.add(makePattern({}));
    zeroBreak.patterns.add(makePattern({}));
    EXPECT_EQ(subsongStarts(zeroBreak, {0, 1, 2}), (std::vector<int>{0, 1}));

    // D10 starts the next pattern on row 159, past the jump on row 20.
    Module highBreak;
    highBreak.patterns.add(makePattern({{0, patternBreak, 0x10}}));
    highBreak.patterns.add(makePattern({{20, jump, 3}}));
    highBreak.patterns.add(makePattern({}));
    highBreak.patterns.add(makePattern({}));
    EXPECT_EQ(subsongStarts(highBreak, {0, 1, 2, 3}), (std::vector<int>{0}));

    // D05 starts it on row 4, before the jump on row 20, which skips position 2.
    Module lowBreak;
    lowBreak.patterns.add(makePattern({{0, patternBreak, 0x05}}));
    lowBreak.patterns.add(makePattern({{20, jump, 3}}));
    lowBreak.patterns.add(makePattern({}));
    lowBreak.patterns.add(makePattern({}));
    EXPECT_EQ(subsongStarts(lowBreak, {0, 1, 2, 3}), (std::vector<int>{0, 2}));
}

TEST(SubsongScan, OrderMarkersCountOnlyInModesFourAndSix) {
    const struct { int32_t mode; std::initializer_list<uint16_t> orders; std::vector<int> starts; } cases[] = {
        {4, {0, 255, 1}, {0, 2}},
        {6, {0, 255, 1}, {0, 2}},
        {3, {0, 255, 1}, {0}},  // an out-of-range pattern is passed over
        {4, {0, 254, 1}, {0}},
        {5, {0, 255, 1}, {0}},
    };
    for (const auto& c : cases) {
        Module module;
        module.playbackMode = c.mode;
        module.patterns.add(makePattern({}));
        module.patterns.add(makePattern({}));
        EXPECT_EQ(subsongStarts(module, c.orders), c.starts) << "mode " << c.mode;
    }
}

TEST(SubsongScan, StartsLieWithinTheSongLength) {
    Module module;
    module.patterns.add(makePattern({{63, jump, 0}}));
    module.patterns.add(makePattern({}));
    EXPECT_EQ(subsongStarts(module, {0, 1, 1}, 1), (std::vector<int>{0}));
    Module empty;
    EXPECT_EQ(subsongStarts(empty, {}), (std::vector<int>{0}));
}
