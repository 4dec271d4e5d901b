// Tests of the decoder's Int16 step against the rounding rule evaluated in
// double precision, over every layout the fast paths and the generic loop
// share, and values on and around each rounding edge.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "codec/Int16Frames.h"

TEST(Int16Frames, roundHalfUpClampAndInterleaveInEveryLayout) {
    std::mt19937 random(3);
    std::vector<float> specials = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f / 32768, -0.5f / 32768, 0.49999f / 32768,
                                   32767.5f / 32768, -32768.5f / 32768, 1e30f, -1e30f,
                                   std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                                   std::numeric_limits<float>::quiet_NaN()};
    auto expected = [](float s) -> int16_t {
        if (std::isnan(s))
            return 0;
        return int16_t(std::clamp(std::floor(32768.0 * double(s) + 0.5), -32768.0, 32767.0));
    };
    const int32_t stride = 64;
    for (int32_t rowCount = 1; rowCount <= 3; ++rowCount)
        for (int32_t outChannels = 1; outChannels <= 4; ++outChannels)
            for (int32_t frames : {0, 1, 3, 4, 7, 8, 9, 37, 64}) {
                std::vector<float> rows(size_t(stride) * rowCount);
                for (float& s : rows)
                    s = random() % 3 ? specials[random() % specials.size()]
                                     : float(int32_t(random() % 140000) - 70000) / 65536.0f;  // halves of a step
                std::vector<int16_t> out(size_t(frames) * outChannels + 1, 0x5555);
                uint8_t* bytes = reinterpret_cast<uint8_t*>(out.data());
                writeInt16Frames(rows.data(), stride, rowCount, outChannels, frames, bytes);
                for (int32_t f = 0; f < frames; ++f)
                    for (int32_t c = 0; c < outChannels; ++c) {
                        const int16_t want = c < rowCount ? expected(rows[size_t(c) * stride + f]) : 0;
                        ASSERT_EQ(out[size_t(f) * outChannels + c], want)
                            << rowCount << " rows to " << outChannels << " channels, frame " << f << ", channel " << c;
                    }
                EXPECT_EQ(out.back(), 0x5555) << "wrote past the frames";
            }
}
