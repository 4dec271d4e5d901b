// Mdct: the windowed modified discrete cosine transform of the Oxa codec,
// N coefficients from 2N samples with 50 % overlap, computed through an
// N/2-point complex FFT. Shared (reference counted) by the encoder and
// decoder sides of OxaCodec, which keep it while the length and scaling stay.
//
// Every coefficient and every synthesised sample is fixed to the bit: the
// stream's codes and the decoder's Int16 output depend on the rounding of
// each step, so the fast paths regroup memory passes and vector widths but
// never the arithmetic (see Mdct.cpp).
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/RefCounted.h"

class Mdct final : public RefCounted {
public:
    // N = `length` must be a power of two up to 32768. `scaled` picks the
    // scale pair of the stream flag: forward 4/(2N) and inverse 0.5, else
    // forward 1 and inverse 2/(2N). `maxLanes` caps the vector width (8
    // when the processor has AVX2, else 4), so that tests can reach every
    // path. Null when memory runs out.
    static Mdct* create(int32_t length, bool scaled, int32_t maxLanes = 8);

    int32_t length() const { return n; }
    bool scaled() const { return isScaled; }

    // X[k] = forwardScale * sum over 2N of x[j] w[j] cos(pi/N (j + 0.5 + N/2)(k + 0.5)),
    // where x is `first` (N samples) followed by `second` (N samples).
    void forward(const float* first, const float* second, float* coefficients);

    // The windowed synthesis of N coefficients into 2N samples, overlap-added:
    // `out` = first half + `previousTail`, `nextTail` = second half. Adding
    // the halves of consecutive blocks gives back the analysed signal at
    // unity gain. `out` may be `previousTail`; `nextTail` must be apart.
    void synthesise(const float* coefficients, const float* previousTail, float* out, float* nextTail);

    // The tables and scratch the transform's passes work on (N/2 = P points).
    struct Tables {
        int32_t n = 0;
        float forwardScale = 1.0f;
        float inverseScale = 1.0f;
        Array<float> window;       // 2N
        Array<float> twiddleRe;    // P: cos(a), a = -(2 pi k / 2N + 2 pi / (8 * 2N))
        Array<float> twiddleIm;    // P: sin(a)
        Array<float> stageRe;      // per FFT stage of half-span h, at h - 1: cos(-pi j / h), j < h
        Array<float> stageIm;      // sin(-pi j / h)
        Array<uint32_t> groupStart;  // P/4: where the 4 points of the r-th first butterfly group land
        Array<float> folded;       // N: scratch
        Array<float> re, im;       // P each: the FFT's working points
    };

private:
    Mdct(int32_t length, bool scaled) : n(length), isScaled(scaled) {}
    bool build(int32_t maxLanes);

    using ForwardPass = void (*)(Tables&, const float*, const float*, float*);
    using SynthesisPass = void (*)(Tables&, const float*, const float*, float*, float*);

    int32_t n;
    bool isScaled;
    Tables tables;
    ForwardPass forwardPass = nullptr;
    SynthesisPass synthesisPass = nullptr;
};
