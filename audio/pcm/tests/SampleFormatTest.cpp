// Tests of convertSamples: every pair of formats and channel counts on the
// corner values against a plain per-sample reference, then the hand-worked
// cases that pin the rounding, clamping and channel rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "SampleFormat.h"

namespace {

using Bytes = std::vector<uint8_t>;

// ---- The reference: one sample at a time, written out plainly ----

float referenceDecode(uint32_t format, const uint8_t* p) {
    if (format == Int8)
        return float(int8_t(p[0])) / 128.0f;
    if (format == Int16)
        return float(int16_t(p[0] | p[1] << 8)) / 32768.0f;
    if (format == Int24) {
        int32_t v = p[0] | p[1] << 8 | p[2] << 16;
        return float(v >= 1 << 23 ? v - (1 << 24) : v) / 8388608.0f;
    }
    float x;
    std::memcpy(&x, p, 4);
    return x;
}

void referenceEncode(uint32_t format, float x, uint8_t* p) {
    if (format == Float32) {
        std::memcpy(p, &x, 4);
        return;
    }
    const int32_t bits = format == Int8 ? 8 : format == Int16 ? 16 : 24;
    const float full = float(1 << (bits - 1));
    float rounded = std::floor(x * full + 0.5f);  // half up, in single precision
    int32_t n = rounded >= full ? int32_t(full) - 1 : rounded <= -full ? -int32_t(full) : int32_t(rounded);
    for (int32_t i = 0; i < bits / 8; ++i)
        p[i] = uint8_t(n >> (8 * i));
}

Bytes referenceConvert(uint32_t srcFormat, int32_t srcChannels, uint32_t dstFormat, int32_t dstChannels,
                       const Bytes& src, int32_t frames) {
    const int32_t in = bytesPerSample(srcFormat), out = bytesPerSample(dstFormat);
    Bytes dst(size_t(frames) * dstChannels * out, 0xCD);
    for (int32_t f = 0; f < frames; ++f) {
        const uint8_t* s = &src[size_t(f) * srcChannels * in];
        uint8_t* d = &dst[size_t(f) * dstChannels * out];
        if (dstChannels == 1 && srcChannels >= 2) {
            referenceEncode(dstFormat, 0.5f * referenceDecode(srcFormat, s) + 0.5f * referenceDecode(srcFormat, s + in), d);
            continue;
        }
        for (int32_t c = 0; c < dstChannels; ++c) {
            if (c < srcChannels && srcFormat == dstFormat)
                std::memcpy(d + c * out, s + c * in, in);
            else if (c < srcChannels)
                referenceEncode(dstFormat, referenceDecode(srcFormat, s + c * in), d + c * out);
            else if (c == 1 && srcChannels == 1)
                std::memcpy(d + out, d, out);
            else
                std::memset(d + c * out, 0, out);
        }
    }
    return dst;
}

// ---- Corner values of each format ----

Bytes cornerSamples(uint32_t format) {
    Bytes bytes;
    auto put = [&](int32_t v, int32_t size) {
        for (int32_t i = 0; i < size; ++i)
            bytes.push_back(uint8_t(v >> (8 * i)));
    };
    switch (format) {
    case Int8:
        for (int32_t v : {-128, -127, -64, -1, 0, 1, 63, 127})
            put(v, 1);
        break;
    case Int16:  // full scale, and half an 8-bit step either way
        for (int32_t v : {-32768, -32767, -129, -128, -127, -1, 0, 1, 127, 128, 129, 32767})
            put(v, 2);
        break;
    case Int24:  // full scale, and half a 16-bit and an 8-bit step either way
        for (int32_t v : {-8388608, -8388607, -32768, -129, -128, -127, -1, 0, 1, 127, 128, 129, 32768, 8388607})
            put(v, 3);
        break;
    default:
        for (float x : {1.0f, -1.0f, 1.5f, -1.5f, 0.99999994f, -1.0000001f, 0.5f / 32768, -0.5f / 32768,
                        0.49999f / 32768, -0.49999f / 32768, 0.5f / 128, -0.5f / 128, 0.5f / 8388608,
                        -0.5f / 8388608, 1.5f / 32768, -1.5f / 32768, 0.0f, 1e10f, -1e10f}) {
            uint8_t p[4];
            std::memcpy(p, &x, 4);
            bytes.insert(bytes.end(), p, p + 4);
        }
    }
    return bytes;
}

// Frames whose channels 0 and 1 run through every pair of corner values;
// further channels take them in a rotating order.
Bytes cornerFrames(uint32_t format, int32_t channels, int32_t& frames) {
    const Bytes corners = cornerSamples(format);
    const int32_t size = bytesPerSample(format), count = int32_t(corners.size()) / size;
    frames = count * count;
    Bytes bytes;
    for (int32_t f = 0; f < frames; ++f)
        for (int32_t c = 0; c < channels; ++c) {
            int32_t pick = c == 0 ? f % count : c == 1 ? f / count : (f + 3 * c) % count;
            bytes.insert(bytes.end(), &corners[pick * size], &corners[pick * size] + size);
        }
    return bytes;
}

Bytes convert(uint32_t srcFormat, int32_t srcChannels, uint32_t dstFormat, int32_t dstChannels, const Bytes& src,
              int32_t frames) {
    Bytes dst(size_t(frames) * dstChannels * bytesPerSample(dstFormat), 0xCD);
    convertSamples(srcFormat, srcChannels, dstFormat, dstChannels, src.data(), dst.data(), frames);
    return dst;
}

template <typename T>
Bytes bytesOf(std::initializer_list<T> values) {
    Bytes bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.begin(), bytes.size());
    return bytes;
}

Bytes int24Of(std::initializer_list<int32_t> values) {
    Bytes bytes;
    for (int32_t v : values)
        bytes.insert(bytes.end(), {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16)});
    return bytes;
}

}  // namespace

TEST(SampleFormat, everyLayoutPairMatchesThePlainReferenceOnCornerValues) {
    const uint32_t formats[] = {Int8, Int16, Int24, Float32};
    for (uint32_t srcFormat : formats)
        for (int32_t srcChannels = 1; srcChannels <= 8; ++srcChannels) {
            int32_t frames = 0;
            const Bytes src = cornerFrames(srcFormat, srcChannels, frames);
            for (uint32_t dstFormat : formats)
                for (int32_t dstChannels = 1; dstChannels <= 8; ++dstChannels)
                    ASSERT_EQ(convert(srcFormat, srcChannels, dstFormat, dstChannels, src, frames),
                              referenceConvert(srcFormat, srcChannels, dstFormat, dstChannels, src, frames))
                        << "format " << srcFormat << " x" << srcChannels << " -> " << dstFormat << " x" << dstChannels;
        }
}

TEST(SampleFormat, handWorkedConversions) {
    struct Case {
        const char* name;
        uint32_t srcFormat;
        int32_t srcChannels;
        uint32_t dstFormat;
        int32_t dstChannels;
        Bytes src;
        Bytes expected;
    };
    const Case cases[] = {
        {"int16 stereo copy", Int16, 2, Int16, 2, bytesOf<int16_t>({-32768, 32767, 5, -5}),
         bytesOf<int16_t>({-32768, 32767, 5, -5})},
        {"float full scale and half steps", Float32, 1, Int16, 1,
         bytesOf<float>({1.0f, -1.0f, 0.49999f / 32768, 0.5f / 32768, -0.5f / 32768, -1.5f / 32768}),
         bytesOf<int16_t>({32767, -32768, 0, 1, 0, -1})},
        {"float is never clipped", Float32, 1, Float32, 2, bytesOf<float>({1.5f}), bytesOf<float>({1.5f, 1.5f})},
        {"int24 extremes to float", Int24, 1, Float32, 1, int24Of({-8388608, 8388607}),
         bytesOf<float>({-1.0f, 8388607.0f / 8388608})},
        {"float extremes to int24", Float32, 1, Int24, 1, bytesOf<float>({-1.0f, 1.0f}),
         Bytes{0x00, 0x00, 0x80, 0xFF, 0xFF, 0x7F}},
        {"mono to stereo", Int16, 1, Int16, 2, bytesOf<int16_t>({7, -9}), bytesOf<int16_t>({7, 7, -9, -9})},
        {"mono to four", Int16, 1, Int16, 4, bytesOf<int16_t>({7}), bytesOf<int16_t>({7, 7, 0, 0})},
        {"stereo to mono halves first", Int16, 2, Int16, 1, bytesOf<int16_t>({32767, -32768}), bytesOf<int16_t>({0})},
        {"six to mono ignores the rest", Int16, 6, Int16, 1, bytesOf<int16_t>({100, 200, 3000, 3000, 3000, 3000}),
         bytesOf<int16_t>({150})},
        {"three to two drops the third", Int16, 3, Int16, 2, bytesOf<int16_t>({1, 2, 3}), bytesOf<int16_t>({1, 2})},
        {"int8 rounds half up", Int16, 1, Int8, 1, bytesOf<int16_t>({128, -128, -129, 32767, -32768}),
         Bytes{1, 0, 0xFF, 127, 0x80}},
    };
    for (const Case& c : cases) {
        const int32_t frames = int32_t(c.src.size()) / (bytesPerSample(c.srcFormat) * c.srcChannels);
        EXPECT_EQ(convert(c.srcFormat, c.srcChannels, c.dstFormat, c.dstChannels, c.src, frames), c.expected)
            << c.name;
    }
}

TEST(SampleFormat, nothingIsWrittenForNoFramesOrUnknownFormats) {
    Bytes src = bytesOf<int16_t>({1, 2});
    EXPECT_EQ(convert(Int16, 2, Int8, 2, src, 0), Bytes());
    Bytes dst(4, 0xCD);
    convertSamples(Int16, 2, Int16, 2, src.data(), dst.data(), -3);
    EXPECT_EQ(dst, Bytes(4, 0xCD));
    uint8_t sample[4] = {0xCD, 0xCD, 0xCD, 0xCD};
    encodeSample(5, 0.5f, sample);
    EXPECT_EQ(sample[0], 0xCD);
    EXPECT_EQ(decodeSample(0, sample), 0.0f);
}
