// RowHistory: visited rows of one pass with their loop-state digests.
#include "modplayer/RowHistory.h"

#include <cstring>

namespace mod {

namespace {
constexpr uint32_t visitedBit = 0x80000000u;
}

bool RowHistory::reset(int32_t orders, int32_t rows) {
    orderCount = orders > 0 ? orders : 0;
    rowsPerOrder = rows > 0 ? rows : 1;
    int64_t size = int64_t(orderCount) * rowsPerOrder;
    if (size > (int64_t(1) << 26) || !entries.resize(int32_t(size)))
        return false;
    clear();
    return true;
}

void RowHistory::clear() {
    if (entries.count())
        std::memset(entries.data(), 0, sizeof(uint32_t) * size_t(entries.count()));
}

RowHistory::Visit RowHistory::visit(int32_t order, int32_t row, uint32_t loopDigest) {
    if (order < 0 || order >= orderCount || row < 0 || row >= rowsPerOrder)
        return Fresh;
    uint32_t& entry = entries[order * rowsPerOrder + row];
    uint32_t now = loopDigest | visitedBit;
    uint32_t before = entry;
    entry = now;
    if (before == 0)
        return Fresh;
    return before == now ? SameLoopState : Revisit;
}

}  // namespace mod
