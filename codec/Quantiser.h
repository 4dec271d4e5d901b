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
    // qbits 2 to 8. False when memory runs out (or, which the tests rule
    // out for every qbits, a bucket of magnitudes would straddle two bounds).
    // `maxLanes` below 8 keeps to the scalar loop even where the processor
    // has AVX2, so that tests can reach both.
    bool build(int32_t n, uint32_t rate, float athOffset, uint8_t qbits, int32_t maxLanes = 8);

    // Codes the N coefficients into `codes` and returns the peak to store
    // in front of them (1.0 when all are zero).
    float quantise(const float* coefficients, uint8_t* codes) const;

private:
    // Codes the leading multiple of 8 coefficients; returns how many.
    int32_t codeEightAtATime(const float* coefficients, float s, uint8_t* codes) const;

    // Magnitudes are sorted into buckets by the top bits of their float
    // pattern: 2^-7 to 2^-6 in relative width, narrower than any gap
    // between two bounds.
    static constexpr int32_t BucketShift = 17;
    static constexpr int32_t BucketCount = 1 << (31 - BucketShift);
    static constexpr int32_t BoundSlots = 129;  // up to 128 bounds and a NaN that ends them

    int32_t n = 0;
    bool useEightLanes = false;
    int32_t half = 0;                   // H = 2^qbits / 2: the code of silence
    // Threshold in dB per coefficient index:
    // 3.64 F^-0.8 - 6.5 e^(-0.6 (F - 3.3)^2) + 0.001 F^4 - 96.5 + offset, F in kHz.
    Array<float> ath;
    Array<float> keepFrom;              // smallest |c| whose level clears ath[i]
    // By sign (0 for positive c, 1 for negative): x >= bounds[sign][j - 1]
    // gives |q| >= j. Positive and negative values round apart at the
    // halves, so each sign has its own bounds.
    float bounds[2][BoundSlots] = {};
    Array<uint8_t> bucketStart;         // [sign * BucketCount + bucket]: bounds the bucket's lowest x reaches; 3 spare
};
