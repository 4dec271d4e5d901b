// Envelope: evaluation of an instrument envelope at a tick.
#include "modplayer/Envelope.h"

namespace mod {

// 32-bit product that wraps like the machine does instead of overflowing.
static int32_t wrappingProduct(int32_t a, int32_t b) {
    return int32_t(uint32_t(a) * uint32_t(b));
}

// Index of the first point whose position is not below `tick`, or the
// point count when there is none.
static int32_t firstPointNotBefore(const Array<EnvelopePoint>& points, int32_t tick) {
    int32_t low = 0;
    int32_t high = points.count();
    while (low < high) {
        int32_t middle = low + (high - low) / 2;
        if (int32_t(points[middle].position) < tick)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

int32_t Envelope::valueAt(int32_t tick) const {
    int32_t count = points.count();
    if (count == 0)
        return 0;
    int32_t found = firstPointNotBefore(points, tick);
    if (found < count && points[found].position == tick)
        return points[found].value;
    int32_t index = found > 0 ? found - 1 : 0;
    const EnvelopePoint& point = points[index];
    if (tick > int32_t(point.position)) {
        if (index + 1 >= count)
            return points[count - 1].value;
        const EnvelopePoint& next = points[index + 1];
        if (tick < int32_t(next.position)) {
            int32_t fraction = wrappingProduct(tick - point.position, 65536) /
                               (next.position - point.position);
            return point.value + wrappingProduct(next.value - point.value, fraction) / 65536;
        }
    }
    return points[count - 1].value;
}

}  // namespace mod
