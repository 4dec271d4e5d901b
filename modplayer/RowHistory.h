// RowHistory: which (order position, row) pairs one pass of a song has
// played, so the sequencer knows where the song ends. Each entry also keeps
// a digest of the channels' pattern-loop state at the visit, which tells a
// row replayed by a running loop from a loop that has come round to where it
// was before and will never end. Sized once at start; nothing grows later.
#pragma once

#include <cstdint>

#include "core/Array.h"

namespace mod {

class RowHistory {
public:
    // Room for `orders` positions of up to `rows` rows each; false when
    // memory cannot be had.
    bool reset(int32_t orders, int32_t rows);
    void clear();

    enum Visit { Fresh, Revisit, SameLoopState };
    // Records a visit with the loop state `loopDigest`: Fresh the first
    // time, SameLoopState when the last visit had the same digest, else
    // Revisit. Positions outside the room count as Fresh.
    Visit visit(int32_t order, int32_t row, uint32_t loopDigest);

private:
    Array<uint32_t> entries;  // 0 = not visited, else the digest with the top bit set
    int32_t rowsPerOrder = 0;
    int32_t orderCount = 0;
};

}  // namespace mod
