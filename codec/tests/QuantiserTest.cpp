// Tests of the quantiser's exact decision bounds against the plain formulas,
// on values straddling every bound of the power law.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "codec/Quantiser.h"
#include "codec/tests/CodecTestSupport.h"

TEST(Quantiser, boundariesOfThePowerLawMatchThePlainFormulas) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const int32_t n = 4096;
    for (uint8_t qbits = 2; qbits <= 8; ++qbits)
        for (float athOffset : {-1000.0f, 0.0f}) {  // keep everything, or test the hearing threshold too
            Quantiser quantiser;
            ASSERT_TRUE(quantiser.build(n, 44100, athOffset, qbits));
            const double m = ((1 << qbits) / 2 - 1) + 0.5;
            std::vector<float> c(n);
            for (float& value : c) {
                // Up to two floats either side of a bound, at most the peak 1.0; or anything below.
                float bound = float(std::pow((random() % (1 << qbits) / 2 + 0.5) / m, 5.0));
                float near = std::min(1.0f, std::bit_cast<float>(std::bit_cast<uint32_t>(bound) + uint32_t(random() % 5) - 2));
                value = (random() & 1 ? near : -near) * (random() % 7 == 0 ? unit(random) : 1.0f);
            }
            c[0] = 1.0f;  // the peak
            Bytes fast(4 + n);
            float peak = quantiser.quantise(c.data(), fast.data() + 4);
            std::memcpy(fast.data(), &peak, 4);
            EXPECT_EQ(fast, plainRecord(c.data(), n, 44100, athOffset, qbits)) << "qbits " << int(qbits);
        }
}
