// Quantiser: threshold table, decision bounds and the per-block coder.
#include "codec/Quantiser.h"

#include <immintrin.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

float floatFromBits(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, 4);
    return value;
}

uint32_t bitsOfFloat(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    return bits;
}

// Smallest non-negative float (0 .. infinity) for which `holds` is true;
// `holds` must be monotone and true at infinity. Non-negative floats order
// like their bit patterns. The search steps from `guess`, an estimate from
// the formula's inverse that is rarely more than a float or two away, and
// falls back to bisection over all patterns when that does not settle it.
template <typename Predicate>
float smallestFloatWhere(Predicate holds, float guess) {
    constexpr uint32_t infinityBits = 0x7F800000u;
    if (guess >= 0.0f && guess <= floatFromBits(infinityBits)) {
        uint32_t bits = bitsOfFloat(guess);
        for (int32_t step = 0; step < 8; ++step) {
            const bool here = holds(floatFromBits(bits));
            if (here && (bits == 0 || !holds(floatFromBits(bits - 1))))
                return floatFromBits(bits);
            if (here ? bits == 0 : bits == infinityBits)
                break;
            bits = here ? bits - 1 : bits + 1;
        }
    }
    uint32_t low = 0, high = infinityBits;
    while (low < high) {
        uint32_t middle = low + (high - low) / 2;
        if (holds(floatFromBits(middle)))
            high = middle;
        else
            low = middle + 1;
    }
    return floatFromBits(low);
}

// The largest |c|, NaN ignored, or 1.0 when that is 0. Four running maxima
// side by side give what one running maximum gives: each skips NaN alike.
float largestMagnitude(const float* c, int32_t n) {
    typedef float Lanes __attribute__((vector_size(16)));
    typedef int32_t Bits __attribute__((vector_size(16)));
    Lanes lanes = {};
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        Lanes a;
        std::memcpy(&a, c + i, sizeof a);
        a = Lanes(Bits(a) & 0x7FFFFFFF);  // |a|
        lanes = a > lanes ? a : lanes;
    }
    float peak = 0.0f;
    for (int32_t lane = 0; lane < 4; ++lane)
        peak = lanes[lane] > peak ? lanes[lane] : peak;
    for (; i < n; ++i) {
        float a = std::fabs(c[i]);
        peak = a > peak ? a : peak;
    }
    return peak == 0.0f ? 1.0f : peak;
}

// The level in dB the threshold is compared with: 20 log10 |c|, in single precision.
inline float levelDb(float magnitude) { return 8.685889f * std::log(magnitude); }

}  // namespace

bool Quantiser::build(int32_t length, uint32_t rate, float athOffset, uint8_t qbits, int32_t maxLanes) {
    n = length;
    half = (1 << qbits) / 2;
    useEightLanes = maxLanes >= 8 && __builtin_cpu_supports("avx2");
    if (!ath.resize(n) || !keepFrom.resize(n) || !bucketStart.resize(2 * BucketCount + 3))
        return false;
    bucketStart[2 * BucketCount] = bucketStart[2 * BucketCount + 1] = bucketStart[2 * BucketCount + 2] = 0;

    // Frequencies span 0 Hz to just below Nyquist; F is clamped to 16 Hz .. 16 kHz.
    float previousKhz = -1.0f;
    for (int32_t i = 0; i < n; ++i) {
        float f = float(i) * (0.5f * float(rate)) / float(n);
        float khz = f <= 16.0f ? 0.016f : f > 16000.0f ? 16.0f : 0.001f * f;
        if (khz == previousKhz) {  // the clamped ends (a quarter of the table at 44.1 kHz): the same again
            ath[i] = ath[i - 1];
            keepFrom[i] = keepFrom[i - 1];
            continue;
        }
        previousKhz = khz;
        double d = double(khz) - 3.3;
        ath[i] = 3.64f * float(std::pow(double(khz), -0.8)) - 6.5f * float(std::exp(-0.6 * d * d)) +
                 0.001f * float(std::pow(double(khz), 4.0)) - 96.5f + athOffset;
        const float threshold = ath[i];
        keepFrom[i] = smallestFloatWhere([threshold](float a) { return !(threshold > levelDb(a)); },
                                         float(std::exp(double(threshold) / 8.685889)));
    }

    // q = floor(x^0.2 * sign * m + 0.5) with x^0.2 in double; the bounds are
    // where q steps, found with that very expression. Unused entries are NaN,
    // which no magnitude reaches.
    const double m = (half - 1) + 0.5;
    for (float* signBounds : bounds)
        for (int32_t j = 0; j < BoundSlots; ++j)
            signBounds[j] = std::numeric_limits<float>::quiet_NaN();
    for (int32_t j = 1; j <= half; ++j) {
        const float guess = float(std::pow((j - 0.5) / m, 5.0));
        if (j < half)
            bounds[0][j - 1] = smallestFloatWhere(
                [m, j](float x) { return std::floor(std::pow(double(x), 0.2) * m + 0.5) >= j; }, guess);
        bounds[1][j - 1] = smallestFloatWhere(
            [m, j](float x) { return std::floor(-std::pow(double(x), 0.2) * m + 0.5) <= -j; }, guess);
    }

    // Bucket b starts with the bounds at or below its lowest magnitude, the
    // float of pattern b << BucketShift; the patterns beyond infinity are
    // NaN and reach none. The closest bounds (qbits 8, top of the range)
    // differ by 4 %, more than a bucket spans, so each bucket holds at most
    // one bound and one comparison after its start finds the code. Checked
    // here all the same.
    constexpr int32_t infinityBucket = int32_t(0x7F800000u >> BucketShift);
    for (int32_t sign = 0; sign < 2; ++sign) {
        uint8_t* start = bucketStart.data() + sign * BucketCount;
        int32_t reached = 0, from = 0;
        for (; !std::isnan(bounds[sign][reached]); ++reached) {
            const uint32_t bits = bitsOfFloat(bounds[sign][reached]);
            const int32_t first = int32_t((bits + (1u << BucketShift) - 1) >> BucketShift);  // lowest >= bound
            if (reached > 0 && first <= from)
                return false;
            std::memset(start + from, reached, size_t(first - from));
            from = first;
        }
        std::memset(start + from, reached, size_t(infinityBucket + 1 - from));
        std::memset(start + infinityBucket + 1, 0, size_t(BucketCount - infinityBucket - 1));
    }
    return true;
}

float Quantiser::quantise(const float* c, uint8_t* codes) const {
    const float peak = largestMagnitude(c, n);
    const float s = 1.0f / peak;
    const int32_t done = useEightLanes ? codeEightAtATime(c, s, codes) : 0;
    const float* keep = keepFrom.data();
    const uint8_t* starts = bucketStart.data();
    for (int32_t i = done; i < n; ++i) {
        // Without branches: signs and kept coefficients follow no pattern.
        // The sign bit picks the tables; where it disagrees with c < 0 (-0
        // and negative NaN) the coefficient is not kept and codes silence.
        const uint32_t sign = bitsOfFloat(c[i]) >> 31;
        const float x = std::fabs(s * c[i]);
        int32_t count = starts[sign * BucketCount + (bitsOfFloat(x) >> BucketShift)];
        count += x >= bounds[sign][count];
        count &= -int32_t(std::fabs(c[i]) >= keep[i]);  // under the threshold of hearing (or NaN): 0
        codes[i] = uint8_t(half + ((count ^ -int32_t(sign)) + int32_t(sign)));  // minus count when negative
    }
    return peak;
}

// The loop above on eight coefficients at a time, its two table lookups
// done by gathers.
__attribute__((target("avx2"))) int32_t Quantiser::codeEightAtATime(const float* c, float s, uint8_t* codes) const {
    const __m256 scale = _mm256_set1_ps(s);
    const __m256 magnitudeBits = _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF));
    const __m256i silence = _mm256_set1_epi32(half);
    const int* starts = reinterpret_cast<const int*>(bucketStart.data());
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 value = _mm256_loadu_ps(c + i);
        const __m256i sign = _mm256_srli_epi32(_mm256_castps_si256(value), 31);
        const __m256 x = _mm256_and_ps(_mm256_mul_ps(value, scale), magnitudeBits);
        // The byte table is read four bytes at a time (it has three to spare) and masked.
        const __m256i bucket = _mm256_add_epi32(_mm256_srli_epi32(_mm256_castps_si256(x), BucketShift),
                                                _mm256_slli_epi32(sign, 31 - BucketShift));
        __m256i count = _mm256_and_si256(_mm256_i32gather_epi32(starts, bucket, 1), _mm256_set1_epi32(0xFF));
        const __m256i slot = _mm256_add_epi32(count, _mm256_and_si256(_mm256_sub_epi32(_mm256_setzero_si256(), sign),
                                                                     _mm256_set1_epi32(BoundSlots)));
        const __m256 bound = _mm256_i32gather_ps(&bounds[0][0], slot, 4);
        count = _mm256_sub_epi32(count, _mm256_castps_si256(_mm256_cmp_ps(x, bound, _CMP_GE_OQ)));
        const __m256 keep = _mm256_loadu_ps(keepFrom.data() + i);
        const __m256 kept = _mm256_cmp_ps(_mm256_and_ps(value, magnitudeBits), keep, _CMP_GE_OQ);
        count = _mm256_and_si256(count, _mm256_castps_si256(kept));
        const __m256i negate = _mm256_sub_epi32(_mm256_setzero_si256(), sign);
        const __m256i code = _mm256_add_epi32(silence, _mm256_add_epi32(_mm256_xor_si256(count, negate), sign));
        const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(code), _mm256_extracti128_si256(code, 1));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(codes + i), _mm_packus_epi16(words, words));
    }
    return i;
}
