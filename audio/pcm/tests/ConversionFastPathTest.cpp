// The fast conversion paths to Int16 against the sample-by-sample
// decodeSample/encodeSample they stand in for.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "SampleFormat.h"

namespace {

std::vector<uint8_t> slowlyToInt16(uint32_t format, const std::vector<uint8_t>& in) {
    const int32_t size = bytesPerSample(format);
    std::vector<uint8_t> out(in.size() / size * 2);
    for (size_t i = 0; i < in.size() / size; ++i)
        encodeSample(Int16, decodeSample(format, &in[i * size]), &out[i * 2]);
    return out;
}

std::vector<uint8_t> quicklyToInt16(uint32_t format, const std::vector<uint8_t>& in, int32_t channels) {
    const int32_t frames = int32_t(in.size() / (bytesPerSample(format) * channels));
    std::vector<uint8_t> out(size_t(frames) * channels * 2);
    convertSamples(format, channels, Int16, channels, in.data(), out.data(), frames);
    return out;
}

}  // namespace

TEST(ConversionFastPath, everyInt24ValueMatches) {
    std::vector<uint8_t> in(size_t(3) << 24);
    for (uint32_t v = 0; v < (1u << 24); ++v) {
        in[3 * v] = uint8_t(v);
        in[3 * v + 1] = uint8_t(v >> 8);
        in[3 * v + 2] = uint8_t(v >> 16);
    }
    EXPECT_EQ(quicklyToInt16(Int24, in, 2), slowlyToInt16(Int24, in));
}

TEST(ConversionFastPath, floatsMatchIncludingEdges) {
    std::vector<float> values = {0.0f, -0.0f, 1.0f, -1.0f, 1.5f, -1.5f, 0.5f / 32768, -0.5f / 32768,
                                 0.49999f / 32768, 32767.5f / 32768, -32767.5f / 32768, -32766.5f / 32768,
                                 std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                                 std::numeric_limits<float>::quiet_NaN(), 1e30f, -1e30f, 1e-30f};
    uint32_t seed = 12345;
    for (int i = 0; i < 1 << 20; ++i) {
        seed = seed * 1664525u + 1013904223u;
        float x;
        uint32_t bits = (i & 1) ? seed : (seed & 0x807FFFFFu) | (uint32_t(118 + (seed >> 28)) << 23);  // near [-1, 1]
        std::memcpy(&x, &bits, 4);
        values.push_back(x);
        values.push_back(float(int32_t(seed % 65536) - 32768) / 32768 + 0.5f / 32768);  // exact halves
    }
    std::vector<uint8_t> in(values.size() * 4);
    std::memcpy(in.data(), values.data(), in.size());
    EXPECT_EQ(quicklyToInt16(Float32, in, 1), slowlyToInt16(Float32, in));
}
