// Hash32: word-at-a-time multiply-rotate hash with a final avalanche.
#include "core/Hash32.h"

uint32_t hash32(const void* bytes, int32_t length) {
    using namespace hash32Detail;
    const uint8_t* p = static_cast<const uint8_t*>(bytes);
    uint32_t h = (uint32_t(length) * lengthMultiplier) ^ seed;
    int32_t i = 0;
    for (; i + 4 <= length; i += 4)
        h = mixWord(h, uint32_t(p[i]) | uint32_t(p[i + 1]) << 8 | uint32_t(p[i + 2]) << 16 |
                           uint32_t(p[i + 3]) << 24);
    if (i < length) {
        uint32_t k = 0;
        for (int32_t j = length - 1; j >= i; --j)
            k = (k << 8) | p[j];
        h = mixWord(h, k);
    }
    return finish(h);
}
