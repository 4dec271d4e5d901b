// Tests of the quantiser's exact decision bounds against the plain formulas:
// values straddling every bound of the power law and every threshold of
// hearing, special values, odd lengths, on the scalar and the 8-lane path.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "codec/Quantiser.h"
#include "codec/tests/CodecTestSupport.h"

namespace {

// `value` moved by up to `ulps` floats either way.
float nudged(float value, std::mt19937& random, int32_t ulps) {
    const int32_t step = int32_t(random() % (2 * ulps + 1)) - ulps;
    return std::bit_cast<float>(std::bit_cast<int32_t>(value) + step);
}

}  // namespace

TEST(Quantiser, codesEqualThePlainFormulasOnEveryEdge) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    enum Shape { PowerLawBounds, HearingThresholds, SpecialValues };
    struct Case { Shape shape; int32_t n; float athOffset; };
    const Case cases[] = {
        {PowerLawBounds, 4096, -1000.0f}, {PowerLawBounds, 4096, 0.0f},  // keep everything, or test the threshold too
        {HearingThresholds, 2048, 0.0f}, {HearingThresholds, 2048, 25.0f}, {HearingThresholds, 13, -10.0f},
        {SpecialValues, 4096, 0.0f},      {SpecialValues, 7, -1000.0f},
    };
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const float specials[] = {0.0f, -0.0f, nan, -nan, inf, -inf, 1e-40f, -1e-40f, 3e38f, 1.0f, -1.0f, 0.25f};
    for (const Case& c : cases)
        for (uint8_t qbits = 2; qbits <= 8; ++qbits)
            for (int32_t lanes : {1, 8}) {
                Quantiser quantiser;
                ASSERT_TRUE(quantiser.build(c.n, 44100, c.athOffset, qbits, lanes));
                const double m = ((1 << qbits) / 2 - 1) + 0.5;
                std::vector<float> coefficients(c.n);
                for (int32_t i = 0; i < c.n; ++i) {
                    float value = 0;
                    if (c.shape == PowerLawBounds) {  // near a bound, at most the peak 1.0; or anything below
                        float bound = float(std::pow((random() % (1 << qbits) / 2 + 0.5) / m, 5.0));
                        value = std::min(1.0f, nudged(bound, random, 2)) * (random() % 7 == 0 ? unit(random) : 1.0f);
                    } else if (c.shape == HearingThresholds) {  // near the smallest audible magnitude
                        const float ath = plainThreshold(i, c.n, 44100, c.athOffset);
                        value = nudged(float(std::exp(ath / 8.685889)), random, 3);
                    } else {
                        value = specials[random() % std::size(specials)] * (random() % 3 ? 1.0f : unit(random));
                    }
                    coefficients[i] = random() & 1 ? value : -value;
                }
                if (c.shape == PowerLawBounds)
                    coefficients[0] = 1.0f;  // the peak
                Bytes fast(4 + c.n);
                const float peak = quantiser.quantise(coefficients.data(), fast.data() + 4);
                std::memcpy(fast.data(), &peak, 4);
                ASSERT_EQ(fast, plainRecord(coefficients.data(), c.n, 44100, c.athOffset, qbits))
                    << "shape " << c.shape << ", N = " << c.n << ", qbits " << int(qbits) << ", " << lanes << " lanes";
            }
}
