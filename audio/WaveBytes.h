// WaveBytes: little-endian fields and chunk ids of RIFF/WAVE headers.
// Used by AudioFile's reader and writer.
#pragma once

#include <cstdint>
#include <cstring>

inline uint16_t readLe16(const uint8_t* p) { return uint16_t(p[0] | (p[1] << 8)); }
inline uint32_t readLe32(const uint8_t* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline void writeLe16(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void writeLe32(uint8_t* p, uint32_t v) {
    writeLe16(p, v);
    writeLe16(p + 2, v >> 16);
}
inline bool isChunkId(const uint8_t* p, const char* id) { return std::memcmp(p, id, 4) == 0; }
