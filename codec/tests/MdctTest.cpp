// Tests of the transform: the fast MDCT against the textbook sum, and
// perfect reconstruction at unity gain through overlap-add.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "codec/Mdct.h"
#include "codec/tests/CodecTestSupport.h"
#include "core/RefCounted.h"

TEST(Mdct, matchesTheDirectSumAndOverlapAddsAtUnityGain) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    for (int32_t n = 1; n <= 32768; n *= 2)
        for (bool scaled : {true, false}) {
            SharedRef<Mdct> transform(Mdct::create(n, scaled));
            ASSERT_TRUE(transform);
            const int32_t blocks = 4;
            std::vector<float> signal(size_t(n) * (blocks + 1)), coefficients(n), first(n), second(n), tail(n);
            for (float& x : signal)
                x = sample(random);
            std::vector<double> expected, actual;
            for (int32_t b = 0; b < blocks; ++b) {
                const float* input = &signal[size_t(b) * n];
                transform->forward(input, input + n, coefficients.data());
                // The direct sum is quadratic: once per length is enough, up to 4096.
                EXPECT_TRUE(b > 0 || !scaled || n > 4096 || snrDb(directMdct(input, n), coefficients) > 100.0) << n;
                transform->inverse(coefficients.data(), first.data(), second.data());
                // Block b completes the frames of block b - 1.
                for (int32_t i = 0; b > 0 && i < n; ++i) {
                    expected.push_back(input[i]);
                    actual.push_back(first[i] + tail[i]);
                }
                tail = second;
            }
            EXPECT_GT(snrDb(expected, actual), 100.0) << "N = " << n << (scaled ? " scaled" : "");
        }
}
