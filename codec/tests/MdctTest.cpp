// Tests of the transform: bit-for-bit agreement with the plain algorithm at
// every length and on every path, that plain algorithm against the textbook
// sum, and perfect reconstruction at unity gain through overlap-add.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "codec/Mdct.h"
#include "codec/tests/CodecTestSupport.h"
#include "codec/tests/ReferenceMdct.h"
#include "core/RefCounted.h"

// The codes and the decoded samples are rounded from the transform's
// results, so its fast passes must reproduce the plain algorithm exactly:
// full-scale, faint and loud signals, block after block with the tails
// overlap-added, on the 4-lane and (where the processor has it) the 8-lane path.
TEST(Mdct, equalsThePlainAlgorithmBitForBitAndReconstructsAtUnityGain) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    const int32_t blocks = 3;
    for (int32_t n = 1; n <= 32768; n *= 2)
        for (int32_t path = 0; path < 4; ++path) {
            const int32_t lanes = path < 2 ? 4 : 8;
            const bool scaled = path % 2 == 0;
            SCOPED_TRACE(testing::Message() << "N = " << n << ", " << lanes << " lanes" << (scaled ? ", scaled" : ""));
            SharedRef<Mdct> transform(Mdct::create(n, scaled, lanes));
            ASSERT_TRUE(transform);
            const ReferenceMdct reference(n, scaled);
            std::vector<float> signal(size_t(n) * (blocks + 1)), fast(n), plain(n), tail(n), out(n), nextTail(n),
                y(2 * size_t(n));
            for (float level : {1.0f, 1e-4f, 3e5f}) {
                for (float& v : signal)
                    v = uniform(random) * level;
                std::fill(tail.begin(), tail.end(), 0.0f);
                std::vector<double> expected, actual;
                for (int32_t b = 0; b < blocks; ++b) {
                    const float* x = &signal[size_t(b) * n];
                    transform->forward(x, x + n, fast.data());
                    reference.forward(x, plain.data());
                    ASSERT_EQ(0, std::memcmp(fast.data(), plain.data(), 4 * size_t(n))) << "block " << b;
                    // The direct sum is quadratic: once per length is enough, up to 4096.
                    if (b == 0 && path == 0 && level == 1.0f && n <= 4096) {
                        EXPECT_GT(snrDb(directMdct(x, n), plain), 100.0);
                    }
                    transform->synthesise(fast.data(), tail.data(), out.data(), nextTail.data());
                    reference.inverse(fast.data(), y.data());
                    for (int32_t i = 0; i < n; ++i) {
                        ASSERT_EQ(out[i], y[i] + tail[i]) << "block " << b << ", sample " << i;
                        ASSERT_EQ(nextTail[i], y[n + i]) << "block " << b << ", tail " << i;
                    }
                    // Block b completes the frames of block b - 1.
                    for (int32_t i = 0; b > 0 && i < n; ++i) {
                        expected.push_back(x[i]);
                        actual.push_back(out[i]);
                    }
                    tail = nextTail;
                }
                EXPECT_GT(snrDb(expected, actual), 100.0) << "level " << level;
            }
        }
}
