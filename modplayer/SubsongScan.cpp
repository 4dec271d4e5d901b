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

// Where a row sends the song once it has played: breakRow -1 when it does
// not leave the pattern, jumpTarget -1 when it goes on to the next order.
struct RowExit {
    int32_t breakRow = -1;
    int32_t jumpTarget = -1;
};

RowExit exitOf(const PatternRow& row) {
    RowExit exit;
    for (const PatternCell& cell : row) {
        if (cell.effect == effectPatternBreak) {
            // Not a decimal reading of the parameter: the high digit counts
            // 160 rows, and a zero parameter means no break.
            exit.breakRow = (cell.parameter & 0x0F) + (cell.parameter & 0xF0) * 10 - 1;
        } else if (cell.effect == effectPositionJump) {
            if (exit.breakRow < 0)
                exit.breakRow = 0;
            exit.jumpTarget = cell.parameter;
        }
    }
    return exit;
}

// What the walk needs of a pattern, worked out once: whether it has content,
// and for every row the first row from there on that leaves the pattern.
// Walks then cost one step per order position, not one per cell, which
// keeps the scan of long order lists fast.
struct PatternExits {
    bool hasContent = false;
    Array<RowExit> exits;              // per row
    Array<int32_t> firstExitFrom;      // per row; the row count when none follows

    bool build(const ModulePattern& pattern) {
        hasContent = mod::hasContent(pattern);
        const int32_t rows = pattern.count();
        if (!exits.resize(rows) || !firstExitFrom.resize(rows))
            return false;
        int32_t next = rows;
        for (int32_t row = rows - 1; row >= 0; --row) {
            exits[row] = exitOf(pattern[row]);
            if (exits[row].breakRow >= 0)
                next = row;
            firstExitFrom[row] = next;
        }
        return true;
    }
};

class SubsongWalker {
public:
    explicit SubsongWalker(const Module& module) : module(module) {}

    bool prepare() {
        if (!patterns.resize(module.patterns.count()))
            return false;
        for (int32_t i = 0; i < module.patterns.count(); ++i)
            if (!patterns[i].build(module.patterns[i]))
                return false;
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
            if (!patterns[pattern].hasContent) {
                failed |= !metContent;
                ++position;
                continue;
            }
            metContent = true;
            position = nextPosition(patterns[pattern], position, startRow);
        }
        return metContent && !failed;
    }

private:
    // Plays a pattern from startRow (or its top) and returns where the song
    // goes next; startRow becomes the row the next pattern starts at.
    static int32_t nextPosition(const PatternExits& pattern, int32_t position, int32_t& startRow) {
        const int32_t from = startRow < 0 ? 0 : startRow;
        const int32_t row = from < pattern.firstExitFrom.count() ? pattern.firstExitFrom[from] : -1;
        if (row < 0 || row >= pattern.exits.count()) {
            startRow = -1;
            return position + 1;
        }
        const RowExit& exit = pattern.exits[row];
        startRow = exit.breakRow;
        return exit.jumpTarget >= 0 ? exit.jumpTarget : position + 1;
    }

    const Module& module;
    Array<PatternExits> patterns;
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
