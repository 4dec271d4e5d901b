// Tests of the transform: the fast MDCT against the textbook sum, perfect
// reconstruction at unity gain through overlap-add, and bit-for-bit
// agreement with the plain algorithm at every length.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "codec/Mdct.h"
#include "codec/tests/CodecTestSupport.h"
#include "codec/tests/ReferenceMdct.h"
#include "core/RefCounted.h"

TEST(Mdct, matchesTheDirectSumAndOverlapAddsAtUnityGain) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    for (int32_t n = 1; n <= 32768; n *= 2)
        for (bool scaled : {true, false}) {
            SharedRef<Mdct> transform(Mdct::create(n, scaled));
            ASSERT_TRUE(transform);
            const int32_t blocks = 4;
            std::vector<float> signal(size_t(n) * (blocks + 1)), coefficients(n), out(n), tail(n), nextTail(n);
            for (float& x : signal)
                x = sample(random);
            std::vector<double> expected, actual;
            for (int32_t b = 0; b < blocks; ++b) {
                const float* input = &signal[size_t(b) * n];
                transform->forward(input, input + n, coefficients.data());
                // The direct sum is quadratic: once per length is enough, up to 4096.
                EXPECT_TRUE(b > 0 || !scaled || n > 4096 || snrDb(directMdct(input, n), coefficients) > 100.0) << n;
                transform->synthesise(coefficients.data(), tail.data(), out.data(), nextTail.data());
                // Block b completes the frames of block b - 1.
                for (int32_t i = 0; b > 0 && i < n; ++i) {
                    expected.push_back(input[i]);
                    actual.push_back(out[i]);
                }
                tail = nextTail;
            }
            EXPECT_GT(snrDb(expected, actual), 100.0) << "N = " << n << (scaled ? " scaled" : "");
        }
}

// The codes and the decoded samples are rounded from the transform's
// results, so its fast passes must reproduce the plain algorithm exactly:
// full-scale, faint and loud signals, and a tail to overlap-add, on the
// 4-lane and (where the processor has it) the 8-lane path.
TEST(Mdct, equalsThePlainAlgorithmBitForBit) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    for (int32_t n = 1; n <= 32768; n *= 2)
        for (int32_t path = 0; path < 4; ++path) {
            const int32_t lanes = path < 2 ? 4 : 8;
            const bool scaled = path % 2 == 0;
            SharedRef<Mdct> transform(Mdct::create(n, scaled, lanes));
            ReferenceMdct reference(n, scaled);
            std::vector<float> x(2 * size_t(n)), fast(n), plain(n), tail(n), out(n), nextTail(n), y(2 * size_t(n));
            for (float level : {1.0f, 1e-4f, 3e5f}) {
                for (float& v : x)
                    v = uniform(random) * level;
                for (float& v : tail)
                    v = uniform(random);
                transform->forward(x.data(), x.data() + n, fast.data());
                reference.forward(x.data(), plain.data());
                ASSERT_EQ(0, std::memcmp(fast.data(), plain.data(), 4 * size_t(n))) << "N = " << n << ", " << lanes;
                transform->synthesise(fast.data(), tail.data(), out.data(), nextTail.data());
                reference.inverse(fast.data(), y.data());
                for (int32_t i = 0; i < n; ++i) {
                    ASSERT_EQ(out[i], y[i] + tail[i]) << "N = " << n << ", " << lanes << " lanes, sample " << i;
                    ASSERT_EQ(nextTail[i], y[n + i]) << "N = " << n << ", " << lanes << " lanes, tail " << i;
                }
            }
        }
}
