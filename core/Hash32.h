// Hash32: the runtime's general 32-bit hash over bytes. Used by the deflate
// match finder (on packed three-byte words) and by name lookups.
#pragma once

#include <cstdint>

uint32_t hash32(const void* bytes, int32_t length);

namespace hash32Detail {
constexpr uint32_t lengthMultiplier = 0xF8FFD50Bu;
constexpr uint32_t seed = 0x53A28FC9u;

inline uint32_t rotateLeft(uint32_t v, int s) { return (v << s) | (v >> (32 - s)); }

inline uint32_t mixWord(uint32_t h, uint32_t k) {
    k *= 0xDB91908Du;
    k = rotateLeft(k, 21);
    k *= 0x6BE5BE6Fu;
    h ^= k;
    h = rotateLeft(h, 11);
    return h * 5u - seed;
}

inline uint32_t finish(uint32_t h) {
    h ^= h >> 16;
    h *= lengthMultiplier;
    h ^= h >> 13;
    h *= 0x3A69102Fu;
    return h ^ (h >> 16);
}
}  // namespace hash32Detail

// hash32 of the four little-endian bytes of `word`, without the byte loop:
// the deflate match finder calls it once per input position.
inline uint32_t hash32Word(uint32_t word) {
    using namespace hash32Detail;
    return finish(mixWord((4u * lengthMultiplier) ^ seed, word));
}
