// Quantiser: the encoder's coefficient coder: the absolute threshold of
// hearing, peak normalisation and the x^0.2 power law, giving one code byte
// per coefficient. Built per stream by OxaCodec's encoder side.
//
// The formulas are evaluated once, at build time, into exact decision
// thresholds: a coefficient is kept when |c| reaches the smallest float whose
// level clears the threshold, and its code is the number of level boundaries
// its normalised magnitude reaches. Both tests are monotone in |c|, so the
// codes are byte for byte those of the formulas (the tests check this).
#pragma once

#include <cstdint>

#include "core/Array.h"

class Quantiser {
public:
    // N coefficients per channel at `rate` Hz, threshold offset in dB,
    // qbits 2 to 8. False when memory runs out.
    bool build(int32_t n, uint32_t rate, float athOffset, uint8_t qbits);

    // Codes the N coefficients into `codes` and returns the peak to store
    // in front of them (1.0 when all are zero).
    float quantise(const float* coefficients, uint8_t* codes) const;

private:
    static constexpr int32_t BucketShift = 17;  // a bucket spans 2^-6 in relative magnitude
    static constexpr int32_t BucketCount = 1 << (31 - BucketShift);

    // Number of entries of `bounds` at or below x, starting from its bucket.
    static int32_t countReached(const float* bounds, const uint8_t* bucketStart, float x);

    int32_t n = 0;
    int32_t half = 0;                   // H = 2^qbits / 2: the code of silence
    // Threshold in dB per coefficient index:
    // 3.64 F^-0.8 - 6.5 e^(-0.6 (F - 3.3)^2) + 0.001 F^4 - 96.5 + offset, F in kHz.
    Array<float> ath;
    Array<float> keepFrom;              // smallest |c| whose level clears ath[i]
    float upBounds[129] = {};           // x >= upBounds[j - 1] gives q >= j, for positive c
    float downBounds[129] = {};         // x >= downBounds[j - 1] gives q <= -j, for negative c
    Array<uint8_t> upBucketStart;       // bounds reached by the lowest x of each bucket
    Array<uint8_t> downBucketStart;
};
