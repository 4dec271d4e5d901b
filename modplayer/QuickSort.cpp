// quickSort: Hoare-partition quicksort on 16-bit values with a depth guard.
#include "modplayer/QuickSort.h"

#include <utility>

#include "core/Core.h"

static constexpr int32_t maximumSortDepth = 256;

// Sorts values[low..high] (inclusive).
static void sortRange(uint16_t* values, int32_t low, int32_t high, int32_t depth) {
    if (depth > maximumSortDepth)
        fatalExit("Sort recursion too deep!", 1);
    if (low >= high)
        return;
    uint16_t pivot = values[low + (high - low) / 2];
    int32_t i = low - 1;
    int32_t j = high + 1;
    for (;;) {
        do ++i; while (values[i] < pivot);
        do --j; while (values[j] > pivot);
        if (i >= j)
            break;
        std::swap(values[i], values[j]);
    }
    sortRange(values, low, j, depth + 1);
    sortRange(values, j + 1, high, depth + 1);
}

void quickSort(uint16_t* values, int32_t count) {
    if (values && count > 1)
        sortRange(values, 0, count - 1, 1);
}
