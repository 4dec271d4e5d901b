// Mdct: the windowed modified discrete cosine transform of the Oxa codec,
// N coefficients from 2N samples with 50 % overlap, computed through an
// N/2-point complex FFT. Shared (reference counted) by the encoder and
// decoder sides of OxaCodec, which keep it while the length and scaling stay.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/RefCounted.h"

class Mdct final : public RefCounted {
public:
    // N = `length` must be a power of two up to 32768. `scaled` picks the
    // scale pair of the stream flag: forward 4/(2N) and inverse 0.5, else
    // forward 1 and inverse 2/(2N). Null when memory runs out.
    static Mdct* create(int32_t length, bool scaled);

    int32_t length() const { return n; }
    bool scaled() const { return isScaled; }

    // X[k] = forwardScale * sum over 2N of x[j] w[j] cos(pi/N (j + 0.5 + N/2)(k + 0.5)),
    // where x is `first` (N samples) followed by `second` (N samples).
    void forward(const float* first, const float* second, float* coefficients);
    // The windowed synthesis of N coefficients into 2N samples, split into
    // halves. Overlap-adding the halves of consecutive blocks gives back the
    // analysed signal at unity gain.
    void inverse(const float* coefficients, float* first, float* second);

private:
    Mdct(int32_t length, bool scaled) : n(length), isScaled(scaled) {}
    bool build();
    // DCT-IV of N values: output[k] = scale * sum input[m] cos(pi/N (m + 0.5)(k + 0.5)).
    // The input is consumed before the output is written, so they may alias.
    void dct4(const float* input, float* output, float scale);
    void fft();

    int32_t n;
    bool isScaled;
    float forwardScale = 1.0f;
    float inverseScale = 1.0f;
    Array<float> windowTable;  // 2N
    Array<float> twiddleRe;    // N/2: cos(a), a = -(2 pi k / 2N + 2 pi / (8 * 2N))
    Array<float> twiddleIm;    // N/2: sin(a)
    Array<uint32_t> swapPairs; // (i, reverse(i)) packed as i | reverse(i) << 16, only i < reverse(i)
    Array<float> stageRe;      // per FFT stage of half-span h: cos(-pi j / h), j < h
    Array<float> stageIm;      // sin(-pi j / h)
    Array<float> folded;       // N: scratch
    Array<float> re;           // N/2: FFT scratch
    Array<float> im;
};
