// VectorMixLoops: the AVX2 loops for mono samples, chosen at run time.
#include "modplayer/VectorMixLoops.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define OXA_VECTOR_MIX 1
#endif

namespace mod {

#ifdef OXA_VECTOR_MIX

namespace {

// Eight frames at a time. The positions of the eight frames are kept as two
// vectors of four 32.32 positions; one 32-bit gather at each frame's
// address fetches the frame and the next (the interpolation pair: the
// sample holds one frame past its end), little-endian, in one load.
template <int OutChannels, bool Interpolate>
__attribute__((target("avx2"))) void mixMonoSampleAvx2(Voice& voice, int32_t* out, int32_t frames) {
    const uint64_t step = voice.step;
    const int32_t* base = reinterpret_cast<const int32_t*>(voice.frames);
    const __m256i left = _mm256_set1_epi32(voice.level[0] >> 16);
    const __m256i right = _mm256_set1_epi32(voice.level[1] >> 16);
    const __m256i advance = _mm256_set1_epi64x(int64_t(step * 8));
    const __m256i highHalves = _mm256_setr_epi32(1, 3, 5, 7, 0, 2, 4, 6);
    uint64_t p = voice.position;
    __m256i first = _mm256_setr_epi64x(int64_t(p), int64_t(p + step), int64_t(p + 2 * step), int64_t(p + 3 * step));
    __m256i second = _mm256_add_epi64(first, _mm256_set1_epi64x(int64_t(step * 4)));
    int32_t blocks = frames / 8;
    for (int32_t b = 0; b < blocks; ++b, out += 8 * OutChannels) {
        // Frame indices (high halves) and 15-bit fractions (low halves).
        __m256i a = _mm256_permutevar8x32_epi32(first, highHalves);
        __m256i c = _mm256_permutevar8x32_epi32(second, highHalves);
        __m256i index = _mm256_permute2x128_si256(a, c, 0x20);
        __m256i pairs = _mm256_i32gather_epi32(base, index, 2);
        __m256i value = _mm256_srai_epi32(_mm256_slli_epi32(pairs, 16), 16);
        if constexpr (Interpolate) {
            __m256i fraction = _mm256_srli_epi32(_mm256_permute2x128_si256(a, c, 0x31), 17);
            __m256i next = _mm256_srai_epi32(pairs, 16);
            __m256i slope = _mm256_mullo_epi32(_mm256_sub_epi32(next, value), fraction);
            value = _mm256_add_epi32(value, _mm256_srai_epi32(slope, 15));
        }
        __m256i l = _mm256_srai_epi32(_mm256_mullo_epi32(value, left), termShift);
        if constexpr (OutChannels == 1) {
            __m256i* o = reinterpret_cast<__m256i*>(out);
            _mm256_storeu_si256(o, _mm256_add_epi32(_mm256_loadu_si256(o), l));
        } else {
            __m256i r = _mm256_srai_epi32(_mm256_mullo_epi32(value, right), termShift);
            __m256i low = _mm256_unpacklo_epi32(l, r);   // frames 0 1 | 4 5
            __m256i high = _mm256_unpackhi_epi32(l, r);  // frames 2 3 | 6 7
            __m256i frames0to3 = _mm256_permute2x128_si256(low, high, 0x20);
            __m256i frames4to7 = _mm256_permute2x128_si256(low, high, 0x31);
            __m256i* o = reinterpret_cast<__m256i*>(out);
            _mm256_storeu_si256(o, _mm256_add_epi32(_mm256_loadu_si256(o), frames0to3));
            _mm256_storeu_si256(o + 1, _mm256_add_epi32(_mm256_loadu_si256(o + 1), frames4to7));
        }
        first = _mm256_add_epi64(first, advance);
        second = _mm256_add_epi64(second, advance);
    }
    voice.position += uint64_t(blocks) * 8 * step;
    mixStretch<OutChannels, 1, Interpolate, false>(voice, out, frames - blocks * 8);
}

}  // namespace

MixLoop vectorMixLoop(int32_t outChannels, bool interpolate) {
    if (!__builtin_cpu_supports("avx2"))
        return nullptr;
    if (outChannels == 1)
        return interpolate ? mixMonoSampleAvx2<1, true> : mixMonoSampleAvx2<1, false>;
    return interpolate ? mixMonoSampleAvx2<2, true> : mixMonoSampleAvx2<2, false>;
}

#else

MixLoop vectorMixLoop(int32_t, bool) { return nullptr; }

#endif

}  // namespace mod
