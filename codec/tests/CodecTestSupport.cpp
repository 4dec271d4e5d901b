// Generated signals, the plain evaluation of the encoder's formulas and
// in-memory encoding and decoding.
#include "CodecTestSupport.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <zlib.h>

#include <gtest/gtest.h>

#include "MemoryStream.h"
#include "OxaCodec.h"

std::vector<int16_t> musicLikeSignal(int32_t frames, int32_t channels, uint32_t rate, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    std::vector<double> mix(size_t(frames) * channels, 0.0);
    const int32_t noteLength = int32_t(rate / 4) + 1;
    for (int32_t start = 0; start < frames; start += noteLength / 2) {
        double fundamental = 110.0 * std::pow(2.0, std::floor(uniform(random) * 36) / 12);
        double pan = uniform(random);
        for (int32_t i = 0; i < noteLength && start + i < frames; ++i) {
            double t = double(i) / rate;
            double envelope = std::min(1.0, t * 200) * std::exp(-t * 6);
            double value = 0;
            for (int32_t h = 1; h <= 6 && fundamental * h < rate / 2.0; ++h)
                value += std::sin(2 * M_PI * fundamental * h * t) / h;
            for (int32_t c = 0; c < channels; ++c) {
                double gain = channels == 1 ? 1.0 : (c % 2 ? pan : 1.0 - pan) + 0.2;
                mix[size_t(start + i) * channels + c] += 0.25 * envelope * gain * value;
            }
        }
    }
    std::vector<int16_t> samples(mix.size());
    for (size_t i = 0; i < mix.size(); ++i) {
        double value = mix[i] * 20000 + (uniform(random) - 0.5) * 60;
        samples[i] = int16_t(std::clamp(std::lround(value), -32768l, 32767l));
    }
    return samples;
}

std::vector<double> directMdct(const float* input, int32_t n, const float* window) {
    // The angle pi/N (j + 0.5 + N/2)(k + 0.5) is pi/(4N) times an integer,
    // taken modulo 8N: a table of cosines keeps the sum exact and quick.
    std::vector<double> cosine(8 * size_t(n));
    for (size_t p = 0; p < cosine.size(); ++p)
        cosine[p] = std::cos(M_PI * double(p) / (4.0 * n));
    std::vector<double> out(n);
    for (int64_t k = 0; k < n; ++k) {
        double sum = 0;
        for (int64_t j = 0; j < 2 * n; ++j)
            sum += double(input[j] * window[j]) * cosine[size_t((2 * j + 1 + n) * (2 * k + 1) % (8 * n))];
        out[k] = 4.0 / (2 * n) * sum;
    }
    return out;
}

float plainQuantise(const float* c, int32_t n, const float* athTable, int32_t qbits, uint8_t* codes) {
    float peak = 0;
    for (int32_t i = 0; i < n; ++i)
        peak = std::max(peak, std::fabs(c[i]));
    if (peak == 0)
        peak = 1.0f;
    const float s = 1.0f / peak;
    const int32_t h = (1 << qbits) / 2;
    const double m = (h - 1) + 0.5;
    for (int32_t i = 0; i < n; ++i) {
        float level = 8.685889f * std::log(std::fabs(c[i]));
        float kept = athTable[i] > level ? 0.0f : c[i];
        float x = std::fabs(s * kept);
        double y = std::pow(double(x), 0.2);
        double sign = kept > 0 ? 1 : kept < 0 ? -1 : 0;
        double q = std::floor(y * sign * m + 0.5);
        q = std::clamp(q, double(-h), double(h - 1));
        codes[i] = uint8_t(int32_t(q) + h);
    }
    return peak;
}


Bytes encodeInt16(const std::vector<int16_t>& pcm, const Settings& s) {
    MemoryStream file;
    OxaCodec codec;
    EXPECT_TRUE(codec.openEncoder(&file, Int16, s.rate, s.channels, s.qbits, s.window, s.ath));
    EXPECT_TRUE(codec.encode(pcm.data(), int32_t(pcm.size() / s.channels), s.channels, Int16));
    EXPECT_TRUE(codec.close());
    return Bytes(file.data(), file.data() + file.length());
}

Bytes decodeAll(const Bytes& stream, int32_t channels, uint32_t format) {
    MemoryStream file(stream.data(), int32_t(stream.size()));
    OxaCodec codec;
    Bytes out;
    if (!codec.openDecoder(&file))
        return out;
    const size_t frameBytes = size_t(bytesPerSample(format)) * channels;
    uint32_t delivered = 0;
    do {
        size_t used = out.size();
        out.resize(used + 1000 * frameBytes);
        EXPECT_TRUE(codec.decode(out.data() + used, 1000, channels, format, delivered));
        out.resize(used + delivered * frameBytes);
    } while (delivered > 0);
    return out;
}

std::vector<int16_t> asInt16(const Bytes& bytes) {
    std::vector<int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

OxaHeader headerOf(const Bytes& stream) {
    OxaHeader header;
    std::memcpy(&header, stream.data(), sizeof header);
    return header;
}

Bytes inflatePayload(const Bytes& stream) {
    Bytes out(64 << 20);
    uLongf length = uLongf(out.size());
    int status = uncompress(out.data(), &length, stream.data() + OxaHeaderSize, uLong(stream.size() - OxaHeaderSize));
    EXPECT_EQ(status, Z_OK);
    out.resize(status == Z_OK ? length : 0);
    return out;
}

Bytes withPayload(const Bytes& stream, const Bytes& payload) {
    Bytes compressed(compressBound(uLong(payload.size())));
    uLongf length = uLongf(compressed.size());
    EXPECT_EQ(compress2(compressed.data(), &length, payload.data(), uLong(payload.size()), 9), Z_OK);
    Bytes result(OxaHeaderSize + length);
    std::memcpy(result.data(), stream.data(), OxaHeaderSize);
    std::memcpy(result.data() + OxaHeaderSize, compressed.data(), length);
    return result;
}
