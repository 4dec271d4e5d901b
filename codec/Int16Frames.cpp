// Int16Frames: rounding and interleaving, eight samples at a time (AVX2,
// chosen at run time) or four (SSE2) where the layout is mono or stereo.
#include "codec/Int16Frames.h"

#include <cstring>

#ifdef __SSE2__
#include <immintrin.h>
#endif

namespace {

inline int16_t roundToInt16(float s) {
    float v = s * 32768.0f + 0.5f;
    v = v == v ? v : 0.0f;
    v = v < -32768.0f ? -32768.0f : v;
    v = v > 32767.0f ? 32767.0f : v;
    int32_t truncated = int32_t(v);
    return int16_t(truncated - (float(truncated) > v));  // truncation to floor
}

#ifdef __SSE2__
// roundToInt16 on four lanes, as 32-bit integers.
inline __m128i roundFour(const float* s) {
    __m128 v = _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(s), _mm_set1_ps(32768.0f)), _mm_set1_ps(0.5f));
    v = _mm_and_ps(v, _mm_cmpord_ps(v, v));
    v = _mm_min_ps(_mm_max_ps(v, _mm_set1_ps(-32768.0f)), _mm_set1_ps(32767.0f));
    __m128i truncated = _mm_cvttps_epi32(v);
    __m128 roundedUp = _mm_cmpgt_ps(_mm_cvtepi32_ps(truncated), v);  // all ones, that is -1, where it did
    return _mm_add_epi32(truncated, _mm_castps_si128(roundedUp));
}

// The same on eight lanes.
__attribute__((target("avx2"))) inline __m256i roundEight(const float* s) {
    __m256 v = _mm256_add_ps(_mm256_mul_ps(_mm256_loadu_ps(s), _mm256_set1_ps(32768.0f)), _mm256_set1_ps(0.5f));
    v = _mm256_and_ps(v, _mm256_cmp_ps(v, v, _CMP_ORD_Q));
    v = _mm256_min_ps(_mm256_max_ps(v, _mm256_set1_ps(-32768.0f)), _mm256_set1_ps(32767.0f));
    __m256i truncated = _mm256_cvttps_epi32(v);
    __m256 roundedUp = _mm256_cmp_ps(_mm256_cvtepi32_ps(truncated), v, _CMP_GT_OQ);
    return _mm256_add_epi32(truncated, _mm256_castps_si256(roundedUp));
}

// The values are in range already, so the saturating packs only narrow.
int32_t writeMono(const float* row, int32_t frames, uint8_t* out) {
    int32_t f = 0;
    for (; f + 8 <= frames; f += 8)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * f),
                         _mm_packs_epi32(roundFour(row + f), roundFour(row + f + 4)));
    return f;
}

int32_t writeStereo(const float* left, const float* right, int32_t frames, uint8_t* out) {
    int32_t f = 0;
    for (; f + 4 <= frames; f += 4) {
        __m128i l = roundFour(left + f), r = roundFour(right + f);
        __m128i pairs = _mm_packs_epi32(_mm_unpacklo_epi32(l, r), _mm_unpackhi_epi32(l, r));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * f), pairs);
    }
    return f;
}

// Packing works within each half of the registers: in the stereo case that
// is the order wanted (frames 0-3, then 4-7); in the mono case the middle
// quarters swap back.
__attribute__((target("avx2"))) int32_t writeMonoAvx2(const float* row, int32_t frames, uint8_t* out) {
    int32_t f = 0;
    for (; f + 16 <= frames; f += 16) {
        __m256i words = _mm256_packs_epi32(roundEight(row + f), roundEight(row + f + 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * f), _mm256_permute4x64_epi64(words, 0xD8));
    }
    return f + writeMono(row + f, frames - f, out + 2 * f);
}

__attribute__((target("avx2"))) int32_t writeStereoAvx2(const float* left, const float* right, int32_t frames,
                                                        uint8_t* out) {
    int32_t f = 0;
    for (; f + 8 <= frames; f += 8) {
        __m256i l = roundEight(left + f), r = roundEight(right + f);
        __m256i pairs = _mm256_packs_epi32(_mm256_unpacklo_epi32(l, r), _mm256_unpackhi_epi32(l, r));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 4 * f), pairs);
    }
    return f + writeStereo(left + f, right + f, frames - f, out + 4 * f);
}

const bool hasAvx2 = __builtin_cpu_supports("avx2");
#else
int32_t writeMono(const float*, int32_t, uint8_t*) { return 0; }
int32_t writeStereo(const float*, const float*, int32_t, uint8_t*) { return 0; }
int32_t writeMonoAvx2(const float*, int32_t, uint8_t*) { return 0; }
int32_t writeStereoAvx2(const float*, const float*, int32_t, uint8_t*) { return 0; }
const bool hasAvx2 = false;
#endif

}  // namespace

void writeInt16Frames(const float* rows, int64_t rowStride, int32_t rowCount, int32_t outChannels, int32_t frames,
                      uint8_t* out) {
    const int32_t used = outChannels < rowCount ? outChannels : rowCount;
    int32_t done = 0;  // frames written by a fast path
    const float* second = rows + rowStride;
    if (outChannels == 1)
        done = hasAvx2 ? writeMonoAvx2(rows, frames, out) : writeMono(rows, frames, out);
    else if (outChannels == 2 && used == 2)
        done = hasAvx2 ? writeStereoAvx2(rows, second, frames, out) : writeStereo(rows, second, frames, out);
    const int64_t stride = int64_t(outChannels) * 2;
    for (int32_t c = 0; c < used; ++c) {
        const float* from = rows + c * rowStride;
        uint8_t* to = out + int64_t(c) * 2;
        for (int32_t f = done; f < frames; ++f) {
            int16_t value = roundToInt16(from[f]);
            std::memcpy(to + f * stride, &value, 2);
        }
    }
    for (int32_t f = 0; used < outChannels && f < frames; ++f)
        std::memset(out + f * stride + int64_t(used) * 2, 0, size_t(outChannels - used) * 2);
}
