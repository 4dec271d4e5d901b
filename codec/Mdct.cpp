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
// The DCT-IV itself packs u into N/2 complex values z[j] = u[2j] + i u[N-1-2j],
// multiplies them by t[j] = exp(-i pi (j + 1/8) / N), runs a forward FFT of
// N/2 points and multiplies by t[k] again: the real part of the result is
// out[2k], minus its imaginary part is out[N-1-2k]. N = 1 has no FFT point
// and uses the direct sum.
#include "codec/Mdct.h"

#include <cmath>
#include <cstring>
#include <new>

#include "codec/OxaFormat.h"

Mdct* Mdct::create(int32_t length, bool scaled) {
    if (length < 1 || length > 32768 || (length & (length - 1)) != 0)
        return nullptr;
    Mdct* transform = new (std::nothrow) Mdct(length, scaled);
    if (!transform)
        return nullptr;
    if (!transform->build()) {
        delete transform;
        return nullptr;
    }
    return transform;
}

bool Mdct::build() {
    const int32_t half = n / 2;
    const double m = 2.0 * n;
    forwardScale = isScaled ? float(4.0 / m) : 1.0f;
    // With the stream's scale pair alone (product 1/N) the plain synthesis
    // sum overlap-adds to half the analysed signal (-6.02 dB, see the tests);
    // the synthesis carries the factor 2 that restores unity gain.
    inverseScale = 2.0f * (isScaled ? 0.5f : float(2.0 / m));
    if (!windowTable.resize(2 * n) || !folded.resize(n) || !re.resize(half) || !im.resize(half) ||
        !twiddleRe.resize(half) || !twiddleIm.resize(half) || !stageRe.resize(half) || !stageIm.resize(half))
        return false;
    buildOxaWindow(windowTable.data(), 2 * n);
    for (int32_t k = 0; k < half; ++k) {
        double a = -(2 * M_PI * k / m + 2 * M_PI / (8 * m));
        twiddleRe[k] = float(std::cos(a));
        twiddleIm[k] = float(std::sin(a));
    }
    // Stage s of the FFT combines spans of 2^(s+1) points with the powers of
    // its rotation factor exp(-i pi / 2^s); each power is taken directly.
    for (int32_t span = 1; span < half; span *= 2)
        for (int32_t j = 0; j < span; ++j) {
            stageRe[span - 1 + j] = float(std::cos(-M_PI * j / span));
            stageIm[span - 1 + j] = float(std::sin(-M_PI * j / span));
        }
    int32_t bits = 0;
    while ((1 << bits) < half)
        ++bits;
    for (int32_t i = 0; i < half; ++i) {
        uint32_t reversed = 0;
        for (int32_t b = 0; b < bits; ++b)
            reversed |= ((uint32_t(i) >> b) & 1u) << (bits - 1 - b);
        if (uint32_t(i) < reversed && !swapPairs.add(uint32_t(i) | reversed << 16))
            return false;
    }
    return true;
}

void Mdct::forward(const float* first, const float* second, float* coefficients) {
    const float* w = windowTable.data();
    if (n == 1) {
        // Phase n + 1: the first sample meets cos(pi/2), the second cos(pi).
        double sum = double(first[0] * w[0]) * std::cos(M_PI / 2) - double(second[0] * w[1]);
        coefficients[0] = float(forwardScale * sum);
        return;
    }
    const int32_t half = n / 2;
    float* u = folded.data();
    const float* wc = w + n;  // window of the second half
    for (int32_t i = 0; i < half; ++i) {
        u[i] = -(second[half - 1 - i] * wc[half - 1 - i]) - second[half + i] * wc[half + i];
        u[half + i] = first[i] * w[i] - first[n - 1 - i] * w[n - 1 - i];
    }
    dct4(u, coefficients, forwardScale);
}

void Mdct::inverse(const float* coefficients, float* first, float* second) {
    const float* w = windowTable.data();
    if (n == 1) {
        first[0] = float(double(inverseScale) * coefficients[0] * std::cos(M_PI / 2)) * w[0];
        second[0] = float(double(inverseScale) * coefficients[0] * std::cos(M_PI)) * w[1];
        return;
    }
    const int32_t half = n / 2;
    float* u = folded.data();
    dct4(coefficients, u, inverseScale);
    const float* wc = w + n;
    for (int32_t i = 0; i < half; ++i) {
        first[i] = u[half + i] * w[i];
        first[half + i] = -u[n - 1 - i] * w[half + i];
        second[i] = -u[half - 1 - i] * wc[i];
        second[half + i] = -u[i] * wc[half + i];
    }
}

void Mdct::dct4(const float* input, float* output, float scale) {
    const int32_t half = n / 2;
    float* __restrict zr = re.data();
    float* __restrict zi = im.data();
    const float* tr = twiddleRe.data();
    const float* ti = twiddleIm.data();
    for (int32_t j = 0; j < half; ++j) {
        float a = input[2 * j], b = input[n - 1 - 2 * j];
        zr[j] = a * tr[j] - b * ti[j];
        zi[j] = a * ti[j] + b * tr[j];
    }
    fft();
    for (int32_t k = 0; k < half; ++k) {
        float a = zr[k], b = zi[k];
        output[2 * k] = (a * tr[k] - b * ti[k]) * scale;
        output[n - 1 - 2 * k] = -(a * ti[k] + b * tr[k]) * scale;
    }
}

namespace {

// Four lanes of floats: the compilers' generic vector type, so that the FFT
// stages use SIMD at any optimisation level without target intrinsics.
typedef float Lanes __attribute__((vector_size(16)));

inline Lanes loadLanes(const float* p) {
    Lanes v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void storeLanes(float* p, Lanes v) { std::memcpy(p, &v, sizeof v); }

}  // namespace

void Mdct::fft() {
    const int32_t points = n / 2;
    float* __restrict zr = re.data();
    float* __restrict zi = im.data();
    for (uint32_t pair : swapPairs) {
        uint32_t i = pair & 0xFFFF, j = pair >> 16;
        float t = zr[i]; zr[i] = zr[j]; zr[j] = t;
        t = zi[i]; zi[i] = zi[j]; zi[j] = t;
    }
    if (points < 4) {
        if (points == 2) {
            float xr = zr[1], xi = zi[1];
            zr[1] = zr[0] - xr, zi[1] = zi[0] - xi;
            zr[0] += xr, zi[0] += xi;
        }
        return;  // one point is its own transform
    }
    // The first two stages together: their rotations are 1 and -i.
    for (int32_t b = 0; b < points; b += 4) {
        float r0 = zr[b] + zr[b + 1], i0 = zi[b] + zi[b + 1];
        float r1 = zr[b] - zr[b + 1], i1 = zi[b] - zi[b + 1];
        float r2 = zr[b + 2] + zr[b + 3], i2 = zi[b + 2] + zi[b + 3];
        float r3 = zr[b + 2] - zr[b + 3], i3 = zi[b + 2] - zi[b + 3];
        zr[b] = r0 + r2, zi[b] = i0 + i2;
        zr[b + 2] = r0 - r2, zi[b + 2] = i0 - i2;
        zr[b + 1] = r1 + i3, zi[b + 1] = i1 - r3;  // (r3 + i i3) * -i = i3 - i r3
        zr[b + 3] = r1 - i3, zi[b + 3] = i1 + r3;
    }
    // Later stages: spans of 4 and more, four butterflies at a time.
    for (int32_t span = 4; span < points; span *= 2) {
        const float* wr = stageRe.data() + span - 1;
        const float* wi = stageIm.data() + span - 1;
        for (int32_t b = 0; b < points; b += 2 * span) {
            float* ar = zr + b;
            float* ai = zi + b;
            float* br = zr + b + span;
            float* bi = zi + b + span;
            for (int32_t j = 0; j < span; j += 4) {
                Lanes xr = loadLanes(br + j), xi = loadLanes(bi + j);
                Lanes cr = loadLanes(wr + j), ci = loadLanes(wi + j);
                Lanes tr = xr * cr - xi * ci;
                Lanes ti = xr * ci + xi * cr;
                Lanes yr = loadLanes(ar + j), yi = loadLanes(ai + j);
                storeLanes(br + j, yr - tr);
                storeLanes(bi + j, yi - ti);
                storeLanes(ar + j, yr + tr);
                storeLanes(ai + j, yi + ti);
            }
        }
    }
}
