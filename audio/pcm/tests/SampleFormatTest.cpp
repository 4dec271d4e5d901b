// Tests of convertSamples against a plain per-sample reference: every pair of
// formats and channel counts on corner values, and the fast paths to Int16 on
// every Int24 value and a million floats.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "audio/pcm/SampleFormat.h"

namespace {

using Bytes = std::vector<uint8_t>;

float referenceDecode(uint32_t format, const uint8_t* p) {
    if (format == Float32)
        return std::bit_cast<float>(uint32_t(p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24));
    const int32_t size = bytesPerSample(format), full = 1 << (8 * size - 1);
    int32_t v = 0;
    for (int32_t i = 0; i < size; ++i)
        v |= p[i] << (8 * i);
    return float(v >= full ? v - 2 * full : v) / float(full);  // two's complement
}

// Rounds half up in single precision and clamps; NaN is silence.
void referenceEncode(uint32_t format, float x, uint8_t* p) {
    if (format == Float32) {
        std::memcpy(p, &x, 4);
        return;
    }
    const int32_t size = bytesPerSample(format), full = 1 << (8 * size - 1);
    const float rounded = std::floor(x * float(full) + 0.5f);
    const int32_t n = x != x ? 0 : rounded >= float(full) ? full - 1 : rounded <= -float(full) ? -full : int32_t(rounded);
    for (int32_t i = 0; i < size; ++i)
        p[i] = uint8_t(n >> (8 * i));
}

// Downmix takes half of channels 0 and 1; a mono source fills channel 1
// too; other extra channels are silent and extra source channels dropped.
Bytes referenceConvert(uint32_t srcFormat, int32_t srcChannels, uint32_t dstFormat, int32_t dstChannels,
                       const Bytes& src) {
    const int32_t in = bytesPerSample(srcFormat), out = bytesPerSample(dstFormat);
    const int32_t frames = int32_t(src.size() / (size_t(in) * srcChannels));
    Bytes dst(size_t(frames) * dstChannels * out);
    for (int32_t f = 0; f < frames; ++f) {
        const uint8_t* s = &src[size_t(f) * srcChannels * in];
        uint8_t* d = &dst[size_t(f) * dstChannels * out];
        if (dstChannels == 1 && srcChannels >= 2) {
            referenceEncode(dstFormat, 0.5f * referenceDecode(srcFormat, s) + 0.5f * referenceDecode(srcFormat, s + in), d);
            continue;
        }
        for (int32_t c = 0; c < dstChannels; ++c) {
            if (c < srcChannels)
                referenceEncode(dstFormat, referenceDecode(srcFormat, s + c * in), d + c * out);
            else if (c == 1 && srcChannels == 1)
                std::memcpy(d + out, d, out);
        }
    }
    return dst;
}

void expectMatchesReference(uint32_t srcFormat, int32_t srcChannels, uint32_t dstFormat, int32_t dstChannels,
                            const Bytes& src) {
    Bytes expected = referenceConvert(srcFormat, srcChannels, dstFormat, dstChannels, src);
    Bytes dst(expected.size(), 0xCD);
    convertSamples(srcFormat, srcChannels, dstFormat, dstChannels, src.data(), dst.data(),
                   int32_t(src.size() / (size_t(bytesPerSample(srcFormat)) * srcChannels)));
    ASSERT_EQ(dst, expected) << "format " << srcFormat << " x" << srcChannels << " -> " << dstFormat << " x"
                             << dstChannels;
}

// Full scale, silence, and half a step of each narrower format either way.
Bytes cornerSamples(uint32_t format) {
    Bytes bytes;
    if (format == Float32) {
        for (float v : {1.0f, -1.0f, 1.5f, -1.5f, 0.99999994f, -1.0000001f, 0.5f / 32768, -0.5f / 32768,
                        0.49999f / 32768, -0.49999f / 32768, 0.5f / 128, -0.5f / 128, 0.5f / 8388608,
                        -0.5f / 8388608, 32767.5f / 32768, -32767.5f / 32768, -32766.5f / 32768, 0.0f, -0.0f,
                        3e38f, -3e38f, HUGE_VALF, -HUGE_VALF})
            bytes.insert(bytes.end(), reinterpret_cast<uint8_t*>(&v), reinterpret_cast<uint8_t*>(&v) + 4);
        return bytes;
    }
    const int32_t size = bytesPerSample(format), full = 1 << (8 * size - 1);
    for (int32_t v : {-full, -full + 1, -32768, -129, -128, -127, -64, -1, 0, 1, 63, 127, 128, 129, 32768, full - 1})
        for (int32_t i = 0; i < size && v >= -full && v < full; ++i)
            bytes.push_back(uint8_t(v >> (8 * i)));
    return bytes;
}

}  // namespace

// Channels 0 and 1 run through every pair of corner values; further
// channels take them in a rotating order.
TEST(SampleFormat, everyLayoutPairMatchesThePlainReferenceOnCornerValues) {
    for (uint32_t srcFormat : {Int8, Int16, Int24, Float32})
        for (int32_t srcChannels = 1; srcChannels <= 8; ++srcChannels) {
            const Bytes corners = cornerSamples(srcFormat);
            const int32_t size = bytesPerSample(srcFormat), count = int32_t(corners.size()) / size;
            Bytes src;
            for (int32_t f = 0; f < count * count; ++f)
                for (int32_t c = 0; c < srcChannels; ++c) {
                    const int32_t pick = c == 0 ? f % count : c == 1 ? f / count : (f + 3 * c) % count;
                    src.insert(src.end(), &corners[pick * size], &corners[pick * size] + size);
                }
            for (uint32_t dstFormat : {Int8, Int16, Int24, Float32})
                for (int32_t dstChannels = 1; dstChannels <= 8; ++dstChannels)
                    expectMatchesReference(srcFormat, srcChannels, dstFormat, dstChannels, src);
        }
}

// The Int24 and Float32 to Int16 shortcuts: every Int24 value; any float bit
// pattern (NaN included), floats near [-1, 1], and exact half steps.
TEST(SampleFormat, fastPathsToInt16MatchTheReferenceEverywhere) {
    Bytes int24(size_t(3) << 24);
    for (uint32_t v = 0; v < (1u << 24); ++v)
        std::memcpy(&int24[3 * v], &v, 3);
    expectMatchesReference(Int24, 2, Int16, 2, int24);
    Bytes floats;
    uint32_t seed = 12345;
    for (int32_t i = 0; i < 1 << 20; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const uint32_t bits = (i & 1) ? seed : (seed & 0x807FFFFFu) | (uint32_t(118 + (seed >> 28)) << 23);
        const float halfStep = float(int32_t(seed % 65536) - 32768) / 32768 + 0.5f / 32768;
        for (uint32_t word : {bits, std::bit_cast<uint32_t>(halfStep)})
            for (int b = 0; b < 4; ++b)
                floats.push_back(uint8_t(word >> (8 * b)));
    }
    expectMatchesReference(Float32, 1, Int16, 1, floats);
}
