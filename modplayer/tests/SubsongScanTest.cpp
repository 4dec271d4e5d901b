// Tests of the sub-song scan on order lists and patterns built in place.
#include <gtest/gtest.h>

#include <vector>

#include "modplayer/Module.h"

using namespace mod;

namespace {

constexpr uint8_t jump = 11;
constexpr uint8_t patternBreak = 13;

struct Effect {
    int row;  // -1: the pattern has no note at all
    uint8_t effect, parameter;
};
const std::vector<Effect> silent = {{-1, 0, 0}};

// A 64-row, 4-channel pattern with a note on row 0 (unless silent) and the
// given effects on channel 1.
ModulePattern makePattern(const std::vector<Effect>& effects) {
    ModulePattern pattern;
    pattern.resize(64);
    for (PatternRow& row : pattern)
        row.resize(4);
    pattern[0][0].note = 48;
    for (const Effect& e : effects) {
        if (e.row < 0) {
            pattern[0][0].note = noNote;
            continue;
        }
        pattern[e.row][1].effect = e.effect;
        pattern[e.row][1].parameter = e.parameter;
    }
    return pattern;
}

}  // namespace

TEST(SubsongScan, StartsFoundOnBuiltSongs) {
    const struct {
        const char* what; std::vector<std::vector<Effect>> patterns; std::vector<uint16_t> orders;
        std::vector<int> starts; int32_t mode = 1, songLength = -1;
    } cases[] = {
        {"half reachable only from its start", {{}, {{63, jump, 0}}, {}, {{10, jump, 2}}}, {0, 1, 2, 3}, {0, 2}},
        {"half starting with an empty pattern", {{}, {{63, jump, 0}}, silent}, {0, 1, 2, 2}, {0}},
        // The failed walk leaves position 3 unmarked: what follows starts a sub-song.
        {"content after an empty start", {{}, {{63, jump, 0}}, silent, {{5, jump, 2}}}, {0, 1, 2, 3}, {0, 3}},
        {"D00 is no break", {{{0, patternBreak, 0x00}, {10, jump, 2}}, {}, {}}, {0, 1, 2}, {0, 1}},
        {"D10: row 159, past the jump", {{{0, patternBreak, 0x10}}, {{20, jump, 3}}, {}, {}}, {0, 1, 2, 3}, {0}},
        {"D05: row 4, before the jump", {{{0, patternBreak, 0x05}}, {{20, jump, 3}}, {}, {}}, {0, 1, 2, 3}, {0, 2}},
        {"255 ends the song in mode 4", {{}, {}}, {0, 255, 1}, {0, 2}, 4},
        {"255 ends the song in mode 6", {{}, {}}, {0, 255, 1}, {0, 2}, 6},
        {"255 is passed over in mode 3", {{}, {}}, {0, 255, 1}, {0}, 3},
        {"255 is passed over in mode 5", {{}, {}}, {0, 255, 1}, {0}, 5},
        {"254 is skipped in mode 4", {{}, {}}, {0, 254, 1}, {0}, 4},
        {"starts lie within the song length", {{{63, jump, 0}}, {}}, {0, 1, 1}, {0}, 1, 1},
        {"no orders", {}, {}, {0}},
    };
    for (const auto& c : cases) {
        Module module;
        module.playbackMode = c.mode;
        for (const std::vector<Effect>& effects : c.patterns)
            module.patterns.add(makePattern(effects));
        for (uint16_t order : c.orders)
            module.orders.add(order);
        module.songLength = c.songLength < 0 ? int32_t(c.orders.size()) : c.songLength;
        module.scanSubsongs();
        std::vector<int> starts;
        for (int32_t i = 0; i < module.subsongs.count(); ++i) {
            EXPECT_EQ(module.subsongs[i].index, i) << c.what;
            starts.push_back(module.subsongs[i].startPosition);
        }
        EXPECT_EQ(starts, c.starts) << c.what;
    }
}
