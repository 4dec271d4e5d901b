// ReferenceMdct: the transform in plain scalar steps.
#include "codec/tests/ReferenceMdct.h"

#include <cmath>
#include <utility>


ReferenceMdct::ReferenceMdct(int32_t length, bool scaled)
    : n(length), window(2 * size_t(length)), twiddleRe(length / 2), twiddleIm(length / 2) {
    const double m = 2.0 * n;
    forwardScale = scaled ? float(4.0 / m) : 1.0f;
    inverseScale = 2.0f * (scaled ? 0.5f : float(2.0 / m));  // unity gain through overlap-add
    for (int32_t k = 0; k < 2 * n; ++k) {
        double s = std::sin(M_PI * (k + 0.5) / (2 * n));
        window[k] = float(std::sin(M_PI / 2 * s * s));
    }
    for (int32_t k = 0; k < n / 2; ++k) {
        double a = -(2 * M_PI * k / m + 2 * M_PI / (8 * m));
        twiddleRe[k] = float(std::cos(a));
        twiddleIm[k] = float(std::sin(a));
    }
}

void ReferenceMdct::forward(const float* x, float* coefficients) const {
    const float* w = window.data();
    if (n == 1) {
        double sum = double(x[0] * w[0]) * std::cos(M_PI / 2) - double(x[1] * w[1]);
        coefficients[0] = float(forwardScale * sum);
        return;
    }
    // Fold the quarters (a, b, c, d) of the windowed input into (-c_r - d, a - b_r).
    const int32_t half = n / 2;
    std::vector<float> u(n);
    for (int32_t i = 0; i < half; ++i) {
        u[i] = -(x[n + half - 1 - i] * w[n + half - 1 - i]) - x[n + half + i] * w[n + half + i];
        u[half + i] = x[i] * w[i] - x[n - 1 - i] * w[n - 1 - i];
    }
    dct4(u.data(), coefficients, forwardScale);
}

void ReferenceMdct::inverse(const float* coefficients, float* y) const {
    const float* w = window.data();
    if (n == 1) {
        y[0] = float(double(inverseScale) * coefficients[0] * std::cos(M_PI / 2)) * w[0];
        y[1] = float(double(inverseScale) * coefficients[0] * std::cos(M_PI)) * w[1];
        return;
    }
    const int32_t half = n / 2;
    std::vector<float> u(n);
    dct4(coefficients, u.data(), inverseScale);
    for (int32_t i = 0; i < half; ++i) {
        y[i] = u[half + i] * w[i];
        y[half + i] = -u[n - 1 - i] * w[half + i];
        y[n + i] = -u[half - 1 - i] * w[n + i];
        y[n + half + i] = -u[i] * w[n + half + i];
    }
}

void ReferenceMdct::dct4(const float* input, float* output, float scale) const {
    const int32_t points = n / 2;
    std::vector<float> re(points), im(points);
    for (int32_t j = 0; j < points; ++j) {
        float a = input[2 * j], b = input[n - 1 - 2 * j];
        re[j] = a * twiddleRe[j] - b * twiddleIm[j];
        im[j] = a * twiddleIm[j] + b * twiddleRe[j];
    }
    fft(re, im);
    for (int32_t k = 0; k < points; ++k) {
        float a = re[k], b = im[k];
        output[2 * k] = (a * twiddleRe[k] - b * twiddleIm[k]) * scale;
        output[n - 1 - 2 * k] = -(a * twiddleIm[k] + b * twiddleRe[k]) * scale;
    }
}

// Radix-2, decimation in time, in place after a bit-reversed reordering.
// The rotations of the first two stages (1 and -i) are applied exactly.
void ReferenceMdct::fft(std::vector<float>& re, std::vector<float>& im) const {
    const int32_t points = int32_t(re.size());
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
    for (int32_t span = 1; span < points; span *= 2)
        for (int32_t block = 0; block < points; block += 2 * span)
            for (int32_t j = 0; j < span; ++j) {
                const int32_t a = block + j, b = a + span;
                float tr, ti;
                if (span == 1 || (span == 2 && j == 0)) {
                    tr = re[b], ti = im[b];
                } else if (span == 2) {
                    tr = im[b], ti = -re[b];
                } else {
                    float cr = float(std::cos(-M_PI * j / span)), ci = float(std::sin(-M_PI * j / span));
                    tr = re[b] * cr - im[b] * ci;
                    ti = re[b] * ci + im[b] * cr;
                }
                float yr = re[a], yi = im[a];
                re[b] = yr - tr, im[b] = yi - ti;
                re[a] = yr + tr, im[a] = yi + ti;
            }
}
