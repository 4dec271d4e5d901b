// Tests of the quantiser: its codes against the plain formulas on real
// transform output, and the corner cases of the power law.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Mdct.h"
#include "Quantiser.h"
#include "CodecTestSupport.h"

namespace {

// Coefficients of consecutive blocks of one channel of a music-like signal,
// scaled by `gain` to reach quiet and loud levels.
std::vector<std::vector<float>> spectra(int32_t n, int32_t blocks, uint32_t seed, float gain) {
    std::vector<int16_t> pcm = musicLikeSignal(n * blocks, 1, 44100, seed);
    SharedRef<Mdct> transform(Mdct::create(n, true));
    std::vector<float> previous(n, 0.0f), current(n);
    std::vector<std::vector<float>> result;
    for (int32_t b = 0; b < blocks; ++b) {
        for (int32_t i = 0; i < n; ++i)
            current[i] = gain * float(pcm[size_t(b) * n + i]) * (1.0f / 32768);
        std::vector<float> coefficients(n);
        transform->forward(previous.data(), current.data(), coefficients.data());
        result.push_back(coefficients);
        previous = current;
    }
    return result;
}

}  // namespace

TEST(Quantiser, codesEqualThePlainFormulasOnManySignals) {
    struct Case { int32_t n; uint8_t qbits; float athOffset; float gain; };
    const Case cases[] = {{2048, 5, 0, 1}, {2048, 8, 0, 1}, {2048, 2, 0, 1}, {256, 5, 10, 0.01f},
                          {8192, 6, -20, 1}, {64, 3, 0, 0.3f}, {2, 5, -100, 1}, {1024, 7, 30, 0.001f}};
    int64_t compared = 0;
    for (const Case& c : cases) {
        Quantiser quantiser;
        ASSERT_TRUE(quantiser.build(c.n, 44100, c.athOffset, c.qbits));
        std::vector<uint8_t> fast(c.n), plain(c.n);
        uint32_t seed = 1;
        for (const std::vector<float>& coefficients : spectra(c.n, 3 + 262144 / c.n / 8, seed++, c.gain)) {
            float fastPeak = quantiser.quantise(coefficients.data(), fast.data());
            float plainPeak = plainQuantise(coefficients.data(), c.n, quantiser.athTable(), c.qbits, plain.data());
            ASSERT_EQ(fastPeak, plainPeak);
            ASSERT_EQ(fast, plain) << "N " << c.n << " qbits " << int(c.qbits);
            compared += c.n;
        }
    }
    EXPECT_GT(compared, 200000);
}

TEST(Quantiser, boundariesOfThePowerLawMatchTheFormula) {
    // Values straddling every decision bound, with random signs.
    std::mt19937 random(5);
    for (uint8_t qbits = 2; qbits <= 8; ++qbits) {
        const int32_t n = 4096;
        Quantiser quantiser;
        ASSERT_TRUE(quantiser.build(n, 44100, -1000, qbits));  // keeps everything
        std::vector<float> c(n);
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        const double m = ((1 << qbits) / 2 - 1) + 0.5;
        for (int32_t i = 0; i < n; ++i) {
            int32_t j = int32_t(random() % (1 << qbits));
            float bound = float(std::pow((j + 0.5) / m, 5.0));
            float near = std::nextafter(bound, (random() & 1) ? 2.0f : 0.0f);
            c[i] = (random() & 1 ? near : -near) * (random() % 7 == 0 ? unit(random) : 1.0f);
        }
        c[0] = 1.0f;  // the peak
        std::vector<uint8_t> fast(n), plain(n);
        quantiser.quantise(c.data(), fast.data());
        plainQuantise(c.data(), n, quantiser.athTable(), qbits, plain.data());
        EXPECT_EQ(fast, plain) << "qbits " << int(qbits);
    }
}

TEST(Quantiser, thresholdTableFollowsTheHearingCurve) {
    Quantiser quantiser;
    ASSERT_TRUE(quantiser.build(2048, 44100, 3.0f, 5));
    const float* ath = quantiser.athTable();
    // Index 0 and 1 lie below 16 Hz and share its value; near 1 kHz the
    // curve is 3.64 - 6.5 e^(-0.6 * 2.3^2) + 0.001 - 96.5 + 3.
    EXPECT_EQ(ath[0], ath[1]);
    const double khz = 93 * 22.05 / 2048;
    const double expected = 3.64 * std::pow(khz, -0.8) - 6.5 * std::exp(-0.6 * (khz - 3.3) * (khz - 3.3)) +
                            0.001 * std::pow(khz, 4) - 96.5 + 3;
    EXPECT_NEAR(ath[93], expected, 1e-3);
    // Above 16 kHz the value is held.
    EXPECT_EQ(ath[1600], ath[2047]);
}
