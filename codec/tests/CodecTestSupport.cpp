// Generated signals, the plain evaluation of the encoder's formulas and
// in-memory encoding and decoding.
#include "codec/tests/CodecTestSupport.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <zlib.h>

#include <gtest/gtest.h>

#include "audio/pcm/SampleFormat.h"
#include "codec/OxaCodec.h"
#include "codec/OxaFormat.h"
#include "core/MemoryStream.h"

std::vector<int16_t> musicLikeSignal(int32_t frames, int32_t channels, uint32_t rate, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    std::vector<int16_t> samples(size_t(frames) * channels);
    const int32_t noteLength = int32_t(rate / 8) + 1;
    double fundamental = 0, pan = 0;
    for (int32_t i = 0; i < frames; ++i) {
        if (i % noteLength == 0) {
            fundamental = 110.0 * std::pow(2.0, std::floor(uniform(random) * 36) / 12);
            pan = uniform(random);
        }
        double t = double(i % noteLength) / rate, value = 0;
        for (int32_t h = 1; h <= 6 && fundamental * h < rate / 2.0; ++h)
            value += std::sin(2 * M_PI * fundamental * h * t) / h;
        value *= 5000 * std::min(1.0, t * 200) * std::exp(-t * 6);  // attack and decay
        for (int32_t c = 0; c < channels; ++c) {
            double gain = channels == 1 ? 1.0 : (c % 2 ? pan : 1.0 - pan) + 0.2;
            samples[size_t(i) * channels + c] = int16_t(std::lround(gain * value + (uniform(random) - 0.5) * 60));
        }
    }
    return samples;
}

std::vector<double> directMdct(const float* input, int32_t n) {
    // The angle pi/N (j + 0.5 + N/2)(k + 0.5) is pi/(4N) times an integer,
    // taken modulo 8N: a table of cosines keeps the sum exact and quick.
    std::vector<double> cosine(8 * size_t(n)), windowed(2 * size_t(n)), out(n);
    for (size_t p = 0; p < cosine.size(); ++p)
        cosine[p] = std::cos(M_PI * double(p) / (4.0 * n));
    for (int32_t j = 0; j < 2 * n; ++j)
        windowed[j] = input[j] * std::sin(M_PI / 2 * std::pow(std::sin(M_PI * (j + 0.5) / (2 * n)), 2));
    for (int64_t k = 0; k < n; ++k) {
        double sum = 0;
        for (int64_t j = 0; j < 2 * n; ++j)
            sum += windowed[j] * cosine[size_t((2 * j + 1 + n) * (2 * k + 1) % (8 * n))];
        out[k] = 4.0 / (2 * n) * sum;
    }
    return out;
}

float plainThreshold(int32_t i, int32_t n, uint32_t rate, float athOffset) {
    float f = float(i) * (0.5f * float(rate)) / float(n);
    double khz = f <= 16.0f ? 0.016f : f > 16000.0f ? 16.0f : 0.001f * f;
    return 3.64f * float(std::pow(khz, -0.8)) - 6.5f * float(std::exp(-0.6 * (khz - 3.3) * (khz - 3.3))) +
           0.001f * float(std::pow(khz, 4.0)) - 96.5f + athOffset;
}

Bytes plainRecord(const float* c, int32_t n, uint32_t rate, float athOffset, int32_t qbits) {
    float peak = 0;
    for (int32_t i = 0; i < n; ++i)
        peak = std::max(peak, std::fabs(c[i]));
    if (peak == 0)
        peak = 1.0f;
    Bytes record(4 + n);
    std::memcpy(record.data(), &peak, 4);
    const float s = 1.0f / peak;
    const int32_t h = (1 << qbits) / 2;
    const double m = (h - 1) + 0.5;
    for (int32_t i = 0; i < n; ++i) {
        const float ath = plainThreshold(i, n, rate, athOffset);
        float kept = ath > 8.685889f * std::log(std::fabs(c[i])) ? 0.0f : c[i];
        double y = std::pow(double(std::fabs(s * kept)), 0.2);
        double q = std::floor(y * (kept > 0 ? 1 : kept < 0 ? -1 : 0) * m + 0.5);
        q = std::isnan(q) ? 0 : q;  // an infinite coefficient over an infinite peak: silence
        record[4 + i] = uint8_t(int32_t(std::clamp(q, double(-h), double(h - 1))) + h);
    }
    return record;
}

Bytes encodeInt16(const std::vector<int16_t>& pcm, const Settings& s) {
    MemoryStream file;
    OxaCodec codec;
    EXPECT_TRUE(codec.openEncoder(&file, Int16, s.rate, s.channels, s.qbits, s.window, s.ath));
    EXPECT_TRUE(codec.encode(pcm.data(), int32_t(pcm.size() / s.channels), s.channels, Int16));
    EXPECT_TRUE(codec.close());
    return Bytes(file.data(), file.data() + file.length());
}

template <typename Sample>
std::vector<Sample> decodeAll(const Bytes& stream, int32_t channels) {
    MemoryStream file(stream.data(), int32_t(stream.size()));
    OxaCodec codec;
    EXPECT_TRUE(codec.openDecoder(&file));
    std::vector<Sample> out;
    for (uint32_t delivered = 1; delivered > 0;) {  // a failed call delivers nothing, too
        const size_t used = out.size();
        out.resize(used + 1000 * size_t(channels));
        EXPECT_TRUE(codec.decode(out.data() + used, 1000, channels, sizeof(Sample) == 2 ? Int16 : Float32, delivered));
        out.resize(used + delivered * size_t(channels));
    }
    return out;
}
template std::vector<int16_t> decodeAll<int16_t>(const Bytes&, int32_t);
template std::vector<float> decodeAll<float>(const Bytes&, int32_t);

Bytes inflatePayload(const Bytes& stream) {
    Bytes out(64 << 20);
    uLongf length = uLongf(out.size());
    EXPECT_EQ(uncompress(out.data(), &length, stream.data() + OxaHeaderSize, uLong(stream.size() - OxaHeaderSize)), Z_OK);
    out.resize(length);
    return out;
}

Bytes withPayload(const Bytes& stream, const Bytes& payload) {
    uLongf length = compressBound(uLong(payload.size()));
    Bytes result(OxaHeaderSize + length);
    EXPECT_EQ(compress2(result.data() + OxaHeaderSize, &length, payload.data(), uLong(payload.size()), 9), Z_OK);
    std::memcpy(result.data(), stream.data(), OxaHeaderSize);
    result.resize(OxaHeaderSize + length);
    return result;
}
