// Module::scanSubsongs: finds the stretches of the order list that can only
// be reached from their own start, the way pattern breaks and position jumps
// move through the song.
#include "modplayer/Module.h"

namespace mod {

namespace {

// One bit per order position.
class OrderMarks {
public:
    bool resize(int32_t positions) { return words.resize((positions + 31) / 32); }
    bool has(int32_t p) const { return words[p >> 5] >> (p & 31) & 1; }
    void mark(int32_t p) { words[p >> 5] |= 1u << (p & 31); }
    void merge(const OrderMarks& other) {
        for (int32_t i = 0; i < words.count(); ++i)
            words[i] |= other.words[i];
    }

private:
    Array<uint32_t> words;
};

bool hasContent(const ModulePattern& pattern) {
    for (const PatternRow& row : pattern)
        for (const PatternCell& cell : row)
            if (!cell.isEmpty())
                return true;
    return false;
}

constexpr uint8_t effectPositionJump = 11;
constexpr uint8_t effectPatternBreak = 13;

class SubsongWalker {
public:
    explicit SubsongWalker(const Module& module) : module(module) {}

    bool prepare() {
        if (!patternHasContent.resize(module.patterns.count()))
            return false;
        for (int32_t i = 0; i < module.patterns.count(); ++i)
            patternHasContent[i] = hasContent(module.patterns[i]);
        return true;
    }

    // Follows the song from `position`, marking every order position it
    // plays. Succeeds when it met a pattern with content and no empty
    // pattern before the first such one.
    bool walk(int32_t position, OrderMarks& marks) const {
        int32_t startRow = -1;
        bool metContent = false;
        bool failed = false;
        while (position >= 0 && position < module.orders.count() && !marks.has(position)) {
            marks.mark(position);
            int32_t pattern = module.orders[position];
            if (module.honoursOrderMarkers()) {
                if (pattern == orderEndOfSong)
                    break;
                if (pattern == orderSkip) {
                    ++position;
                    continue;
                }
            }
            if (pattern >= module.patterns.count())
                pattern = module.substitutePattern;
            if (pattern < 0 || pattern >= module.patterns.count()) {
                ++position;
                continue;
            }
            if (!patternHasContent[pattern]) {
                failed |= !metContent;
                ++position;
                continue;
            }
            metContent = true;
            position = nextPosition(module.patterns[pattern], position, startRow);
        }
        return metContent && !failed;
    }

private:
    // Plays `pattern` from startRow (or its top) and returns where the song
    // goes next; startRow becomes the row the next pattern starts at.
    static int32_t nextPosition(const ModulePattern& pattern, int32_t position, int32_t& startRow) {
        for (int32_t row = startRow < 0 ? 0 : startRow; row < pattern.count(); ++row) {
            int32_t breakRow = -1;
            int32_t jumpTarget = -1;
            for (const PatternCell& cell : pattern[row]) {
                if (cell.effect == effectPatternBreak) {
                    // Not a decimal reading of the parameter: the high digit
                    // counts 160 rows, and a zero parameter means no break.
                    breakRow = (cell.parameter & 0x0F) + (cell.parameter & 0xF0) * 10 - 1;
                } else if (cell.effect == effectPositionJump) {
                    if (breakRow < 0)
                        breakRow = 0;
                    jumpTarget = cell.parameter;
                }
            }
            if (breakRow >= 0) {
                startRow = breakRow;
                return jumpTarget >= 0 ? jumpTarget : position + 1;
            }
        }
        startRow = -1;
        return position + 1;
    }

    const Module& module;
    Array<bool> patternHasContent;
};

}  // namespace

void Module::scanSubsongs() {
    subsongs.release();
    subsongs.add(Subsong{0, 0});
    SubsongWalker walker(*this);
    OrderMarks visited;
    if (!walker.prepare() || !visited.resize(orders.count()))
        return;
    walker.walk(0, visited);
    for (int32_t i = 0; i < orders.count() && i < songLength; ++i) {
        if (visited.has(i))
            continue;
        OrderMarks reached;
        if (!reached.resize(orders.count()))
            return;
        if (walker.walk(i, reached)) {
            subsongs.add(Subsong{subsongs.count(), i});
            visited.merge(reached);
        }
    }
}

}  // namespace mod
