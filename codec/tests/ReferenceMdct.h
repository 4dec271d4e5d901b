// ReferenceMdct: the codec's transform written the plain way, one pass per
// step in scalar code, as the oracle that the fast Mdct must match bit for
// bit: the same windows, twiddles and radix-2 butterflies in the same order
// of operations, so every rounding happens alike. Used by the codec tests.
#pragma once

#include <cstdint>
#include <vector>

class ReferenceMdct {
public:
    ReferenceMdct(int32_t n, bool scaled);

    // `input` holds 2N samples; N coefficients come out.
    void forward(const float* input, float* coefficients) const;
    // N coefficients give 2N windowed samples; the first N overlap-add with
    // the last N of the previous block.
    void inverse(const float* coefficients, float* output) const;

private:
    // DCT-IV through an N/2-point complex FFT: pack, pre-twiddle, FFT, post-twiddle.
    void dct4(const float* input, float* output, float scale) const;
    void fft(std::vector<float>& re, std::vector<float>& im) const;

    int32_t n;
    float forwardScale, inverseScale;
    std::vector<float> window, twiddleRe, twiddleIm;
};
