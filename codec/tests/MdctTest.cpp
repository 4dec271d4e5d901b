// Tests of the transform: the fast MDCT against the textbook sum, and
// perfect reconstruction at unity gain through overlap-add.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Mdct.h"
#include "RefCounted.h"
#include "CodecTestSupport.h"

namespace {

double snrDb(const std::vector<double>& reference, const std::vector<double>& actual) {
    double signal = 0, noise = 0;
    for (size_t i = 0; i < reference.size(); ++i) {
        signal += reference[i] * reference[i];
        noise += (reference[i] - actual[i]) * (reference[i] - actual[i]);
    }
    return noise == 0 ? 999.0 : 10 * std::log10(signal / noise);
}

}  // namespace

TEST(Mdct, forwardMatchesTextbookSumForEverySmallLength) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    for (int32_t n = 1; n <= 4096; n *= 2) {
        SharedRef<Mdct> transform(Mdct::create(n, true));
        ASSERT_TRUE(transform);
        std::vector<float> input(2 * n), coefficients(n);
        for (float& x : input)
            x = sample(random);
        transform->forward(input.data(), input.data() + n, coefficients.data());
        std::vector<double> reference = directMdct(input.data(), n, transform->window()), actual(n);
        for (int32_t k = 0; k < n; ++k)
            actual[k] = coefficients[k];
        EXPECT_GT(snrDb(reference, actual), 100.0) << "N = " << n;
    }
}

TEST(Mdct, overlapAddReconstructsAtUnityGain) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    for (int32_t n = 2; n <= 32768; n *= 2) {
        for (bool scaled : {true, false}) {
            SharedRef<Mdct> transform(Mdct::create(n, scaled));
            ASSERT_TRUE(transform);
            const int32_t blocks = 4;
            std::vector<float> signal(size_t(n) * blocks), previous(n, 0.0f), overlap(n, 0.0f);
            for (float& x : signal)
                x = sample(random);
            std::vector<float> coefficients(n), first(n), second(n);
            std::vector<double> expected, actual;
            for (int32_t b = 0; b < blocks; ++b) {
                const float* current = signal.data() + size_t(b) * n;
                transform->forward(previous.data(), current, coefficients.data());
                transform->inverse(coefficients.data(), first.data(), second.data());
                // Block b completes the frames of block b - 1.
                for (int32_t i = 0; b > 0 && i < n; ++i) {
                    expected.push_back(previous[i]);
                    actual.push_back(first[i] + overlap[i]);
                }
                overlap = second;
                previous.assign(current, current + n);
            }
            EXPECT_GT(snrDb(expected, actual), 100.0) << "N = " << n << (scaled ? " scaled" : "");
        }
    }
}

TEST(Mdct, refusesLengthsThatAreNotPowersOfTwo) {
    for (int32_t n : {0, 3, 3000, 65536, -2})
        EXPECT_EQ(Mdct::create(n, true), nullptr) << n;
}
