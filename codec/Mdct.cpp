// Mdct: windowed MDCT and its inverse through an N/2-point complex FFT.
//
// Both directions reduce to a DCT-IV of N points. The forward transform
// first folds the 2N windowed samples x = (a, b, c, d), four quarters of
// N/2, into u = (-c_r - d, a - b_r) (r = reversed): the DCT-IV of u is the
// MDCT of x with the phase term n + 0.5 + N/2. The inverse takes the DCT-IV
// of the coefficients and unfolds it with the mirror symmetries of the
// cosine kernel; windowing it again and overlap-adding cancels the time
// aliasing of the fold.
//
// The DCT-IV itself packs u into P = N/2 complex values z[j] = u[2j] +
// i u[N-1-2j], multiplies them by t[j] = exp(-i pi (j + 1/8) / N), runs a
// forward FFT of P points and multiplies by t[k] again: the real part of the
// result is out[2k], minus its imaginary part is out[N-1-2k].
//
// The FFT is radix-2 with decimation in time on bit-reversed input: stage s
// combines pairs of points h = 2^s apart with the rotations exp(-i pi j / h),
// stored as floats; the rotations 1 and -i of the first two stages are
// applied exactly, without a multiplication. This algorithm, with these
// tables and this order of operations inside each butterfly and twiddle,
// defines the transform down to the last bit: the encoder's codes and the
// decoder's output samples are rounded from its results. The fast path
// (MdctPasses.h, N of 32 and more) therefore keeps every operation and
// changes only how the data moves: the reordering is folded into the first
// two stages, later stages go two to a memory pass, and W points are
// processed side by side. Vector lanes never combine with each other, and
// the codec is compiled without contraction into fused multiply-adds, so
// each lane rounds exactly as the scalar code would. The small transforms
// run the algorithm as written, in scalar code.
#include "codec/Mdct.h"

#include <cmath>
#include <new>
#include <utility>

// The 8-lane passes hand 32-byte vectors around by value, which the compiler
// flags as an ABI change outside AVX code; they are always inlined into the
// AVX2 functions below, so no such call exists.
#pragma GCC diagnostic ignored "-Wpsabi"

#include "codec/MdctPasses.h"
#include "codec/OxaFormat.h"

namespace {

constexpr int32_t SmallestFastLength = 32;  // P / 4 = 4 groups for the fused first stages

void forwardWith4Lanes(Mdct::Tables& t, const float* first, const float* second, float* coefficients) {
    mdctpasses::forward<4>(t, first, second, coefficients);
}

void synthesiseWith4Lanes(Mdct::Tables& t, const float* coefficients, const float* previousTail, float* out,
                          float* nextTail) {
    mdctpasses::synthesise<4>(t, coefficients, previousTail, out, nextTail);
}

__attribute__((target("avx2"))) void forwardWith8Lanes(Mdct::Tables& t, const float* first, const float* second,
                                                       float* coefficients) {
    mdctpasses::forward<8>(t, first, second, coefficients);
}

__attribute__((target("avx2"))) void synthesiseWith8Lanes(Mdct::Tables& t, const float* coefficients,
                                                          const float* previousTail, float* out, float* nextTail) {
    mdctpasses::synthesise<8>(t, coefficients, previousTail, out, nextTail);
}

// ---- The algorithm as written, for the small lengths ----------------------

void fftScalar(Mdct::Tables& t) {
    const int32_t points = t.n / 2;
    float* re = t.re.data();
    float* im = t.im.data();
    for (int32_t i = 0, j = 0; i < points; ++i) {
        if (i < j) {
            std::swap(re[i], re[j]);
            std::swap(im[i], im[j]);
        }
        int32_t bit = points >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j |= bit;
    }
    for (int32_t h = 1; h < points; h *= 2)
        for (int32_t block = 0; block < points; block += 2 * h)
            for (int32_t j = 0; j < h; ++j) {
                const int32_t a = block + j, b = a + h;
                float tr = re[b], ti = im[b];  // rotation 1
                if (h == 2 && j == 1) {
                    tr = im[b], ti = -re[b];   // rotation -i
                } else if (h > 2) {
                    const float cr = t.stageRe[h - 1 + j], ci = t.stageIm[h - 1 + j];
                    tr = re[b] * cr - im[b] * ci;
                    ti = re[b] * ci + im[b] * cr;
                }
                const float yr = re[a], yi = im[a];
                re[b] = yr - tr, im[b] = yi - ti;
                re[a] = yr + tr, im[a] = yi + ti;
            }
}

void dct4Scalar(Mdct::Tables& t, const float* input, float* output, float scale) {
    const int32_t n = t.n, points = n / 2;
    const float* tr = t.twiddleRe.data();
    const float* ti = t.twiddleIm.data();
    for (int32_t j = 0; j < points; ++j) {
        float a = input[2 * j], b = input[n - 1 - 2 * j];
        t.re[j] = a * tr[j] - b * ti[j];
        t.im[j] = a * ti[j] + b * tr[j];
    }
    fftScalar(t);
    for (int32_t k = 0; k < points; ++k) {
        float a = t.re[k], b = t.im[k];
        output[2 * k] = (a * tr[k] - b * ti[k]) * scale;
        output[n - 1 - 2 * k] = -(a * ti[k] + b * tr[k]) * scale;
    }
}

void forwardScalar(Mdct::Tables& t, const float* first, const float* second, float* coefficients) {
    const int32_t n = t.n;
    const float* w = t.window.data();
    if (n == 1) {
        // Phase n + 1: the first sample meets cos(pi/2), the second cos(pi).
        double sum = double(first[0] * w[0]) * std::cos(M_PI / 2) - double(second[0] * w[1]);
        coefficients[0] = float(t.forwardScale * sum);
        return;
    }
    const int32_t half = n / 2;
    float* u = t.folded.data();
    const float* wc = w + n;
    for (int32_t i = 0; i < half; ++i) {
        u[i] = -(second[half - 1 - i] * wc[half - 1 - i]) - second[half + i] * wc[half + i];
        u[half + i] = first[i] * w[i] - first[n - 1 - i] * w[n - 1 - i];
    }
    dct4Scalar(t, u, coefficients, t.forwardScale);
}

void synthesiseScalar(Mdct::Tables& t, const float* coefficients, const float* previousTail, float* out,
                      float* nextTail) {
    const int32_t n = t.n;
    const float* w = t.window.data();
    if (n == 1) {
        const float scale = t.inverseScale;
        out[0] = float(double(scale) * coefficients[0] * std::cos(M_PI / 2)) * w[0] + previousTail[0];
        nextTail[0] = float(double(scale) * coefficients[0] * std::cos(M_PI)) * w[1];
        return;
    }
    const int32_t half = n / 2;
    float* u = t.folded.data();
    dct4Scalar(t, coefficients, u, t.inverseScale);
    const float* wc = w + n;
    for (int32_t i = 0; i < half; ++i) {
        out[i] = u[half + i] * w[i] + previousTail[i];
        out[half + i] = -u[n - 1 - i] * w[half + i] + previousTail[half + i];
        nextTail[i] = -u[half - 1 - i] * wc[i];
        nextTail[half + i] = -u[i] * wc[half + i];
    }
}

}  // namespace

Mdct* Mdct::create(int32_t length, bool scaled, int32_t maxLanes) {
    if (length < 1 || length > 32768 || (length & (length - 1)) != 0)
        return nullptr;
    Mdct* transform = new (std::nothrow) Mdct(length, scaled);
    if (!transform)
        return nullptr;
    if (!transform->build(maxLanes)) {
        delete transform;
        return nullptr;
    }
    return transform;
}

bool Mdct::build(int32_t maxLanes) {
    Tables& t = tables;
    const int32_t points = n / 2;
    const double m = 2.0 * n;
    t.n = n;
    t.forwardScale = isScaled ? float(4.0 / m) : 1.0f;
    // With the stream's scale pair alone (product 1/N) the plain synthesis
    // sum overlap-adds to half the analysed signal (-6.02 dB, see the tests);
    // the synthesis carries the factor 2 that restores unity gain.
    t.inverseScale = 2.0f * (isScaled ? 0.5f : float(2.0 / m));
    if (!t.window.resize(2 * n) || !t.folded.resize(n) || !t.re.resize(points) || !t.im.resize(points) ||
        !t.twiddleRe.resize(points) ||
        !t.twiddleIm.resize(points) || !t.stageRe.resize(points) || !t.stageIm.resize(points) ||
        !t.groupStart.resize(points / 4))
        return false;
    buildOxaWindow(t.window.data(), 2 * n);
    for (int32_t k = 0; k < points; ++k) {
        double a = -(2 * M_PI * k / m + 2 * M_PI / (8 * m));
        t.twiddleRe[k] = float(std::cos(a));
        t.twiddleIm[k] = float(std::sin(a));
    }
    // The rotations exp(-i pi j / h) of the last stage, taken directly. The
    // angle -pi j / h is the same double for j scaled by 2 and h by 2 (both
    // exact), so each earlier stage's rotations are every other entry of the
    // next one's.
    const int32_t last = points / 2;
    for (int32_t j = 0; j < last; ++j) {
        t.stageRe[last - 1 + j] = float(std::cos(-M_PI * j / last));
        t.stageIm[last - 1 + j] = float(std::sin(-M_PI * j / last));
    }
    for (int32_t h = last / 2; h >= 1; h /= 2)
        for (int32_t j = 0; j < h; ++j) {
            t.stageRe[h - 1 + j] = t.stageRe[2 * h - 1 + 2 * j];
            t.stageIm[h - 1 + j] = t.stageIm[2 * h - 1 + 2 * j];
        }
    // Group r of the fused first stages lands at 4 * (r bit-reversed over P/4).
    const int32_t quarter = points / 4;
    for (int32_t r = 0; r < quarter; ++r) {
        uint32_t reversed = 0;
        for (int32_t bit = 1, mirror = quarter / 2; bit < quarter; bit *= 2, mirror /= 2)
            reversed |= (r & bit) ? uint32_t(mirror) : 0u;
        t.groupStart[r] = 4 * reversed;
    }

    if (n < SmallestFastLength) {
        forwardPass = forwardScalar;
        synthesisPass = synthesiseScalar;
    } else if (maxLanes >= 8 && __builtin_cpu_supports("avx2")) {
        forwardPass = forwardWith8Lanes;
        synthesisPass = synthesiseWith8Lanes;
    } else {
        forwardPass = forwardWith4Lanes;
        synthesisPass = synthesiseWith4Lanes;
    }
    return true;
}

void Mdct::forward(const float* first, const float* second, float* coefficients) {
    forwardPass(tables, first, second, coefficients);
}

void Mdct::synthesise(const float* coefficients, const float* previousTail, float* out, float* nextTail) {
    synthesisPass(tables, coefficients, previousTail, out, nextTail);
}
