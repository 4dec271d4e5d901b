// LowPassFilter: tap design (windowed sinc).
#include "audio/LowPassFilter.h"

#include <cmath>

bool LowPassFilter::design(uint32_t sampleRate, uint32_t cutoff, bool highPass) {
    int32_t n = 1;
    if (cutoff != 0 && sampleRate != 0) {
        const float estimate = std::floor(float(sampleRate) * 4.0f / float(cutoff) + 0.5f);
        n = estimate >= float(MaxTaps) ? MaxTaps : int32_t(estimate) | 1;
    }
    if (!taps.resize(n) || !ring.resize(2 * n))
        return false;
    length = n;
    writeIndex = 0;
    for (float& value : ring)
        value = 0.0f;

    const double pi = 3.14159265358979323846;
    const double fc = sampleRate ? double(cutoff) / double(sampleRate) : 0.0;
    const int32_t centre = (n - 1) / 2;
    for (int32_t i = 0; i < n; ++i) {
        if (i == centre) {
            taps[i] = float(2.0 * fc);
            continue;
        }
        const double x = 2.0 * fc * double(i - centre);
        const double sinc = std::fabs(x) <= 1e-37 ? 1.0 : std::sin(pi * x) / (pi * x);
        const double window = 0.42659 - 0.49656 * std::cos(2.0 * pi * i / (n - 1)) +
                              0.076849 * std::cos(4.0 * pi * i / (n - 1));
        taps[i] = float(sinc * window);
    }
    if (highPass) {
        for (float& value : taps)
            value = -value;
        taps[centre] += 1.0f;
    }
    return true;
}
