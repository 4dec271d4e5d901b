// Tests of the decoder's output against a plain decoder, and of the
// codec's checks: header checks, window sizes, masked code bytes and the
// encoder's argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "audio/pcm/SampleFormat.h"
#include "codec/OxaCodec.h"
#include "codec/OxaFormat.h"
#include "codec/tests/CodecTestSupport.h"
#include "codec/tests/ReferenceMdct.h"
#include "core/MemoryStream.h"

namespace {

Bytes stereoStream() { return encodeInt16(musicLikeSignal(6 * 1024 + 300, 2, 44100, 21), Settings{2, 5, 1024}); }

bool opens(const Bytes& stream, int64_t* positionAfter = nullptr) {
    MemoryStream file(stream.data(), int32_t(stream.size()));
    OxaCodec codec;
    bool ok = codec.openDecoder(&file);
    if (positionAfter)
        *positionAfter = file.tell();
    return ok;
}

// Every Int16 sample of a stream decoded the plain way: zlib for the
// payload, the quantisation law in double, the plain transform, overlap-add
// and floor(32768 s + 0.5) clamped; the first block only primes the overlap.
std::vector<int16_t> plainDecode(const Bytes& stream) {
    OxaHeader header;
    std::memcpy(&header, stream.data(), OxaHeaderSize);
    const int32_t n = header.windowSize, channels = header.channels, h = (1 << header.qbits) / 2;
    const ReferenceMdct transform(n, (header.flags & 1) != 0);
    const Bytes payload = inflatePayload(stream);
    std::vector<float> coefficients(n), synthesis(2 * size_t(n)), tails(size_t(channels) * n);
    std::vector<int16_t> out;
    for (uint32_t block = 0; block < header.blockCount; ++block) {
        std::vector<float> rows(size_t(channels) * n);
        for (int32_t c = 0; c < channels; ++c) {
            const uint8_t* record = &payload[(size_t(block) * channels + c) * (4 + n)];
            float peak;
            std::memcpy(&peak, record, 4);
            for (int32_t i = 0; i < n; ++i) {
                const double t = (double(record[4 + i] & (2 * h - 1)) - h) / (h - 0.5);
                coefficients[i] = float(std::copysign(std::pow(std::fabs(t), 5.0), t)) * peak;
            }
            transform.inverse(coefficients.data(), synthesis.data());
            for (int32_t i = 0; i < n; ++i) {
                rows[size_t(c) * n + i] = synthesis[i] + tails[size_t(c) * n + i];
                tails[size_t(c) * n + i] = synthesis[n + i];
            }
        }
        for (int32_t i = 0; block > 0 && i < n; ++i)
            for (int32_t c = 0; c < channels; ++c) {
                const double s = rows[size_t(c) * n + i];
                out.push_back(int16_t(std::clamp(std::floor(32768.0 * s + 0.5), -32768.0, 32767.0)));
            }
    }
    return out;
}

}  // namespace

// The decoder's fast paths (transform, dequantisation, Int16 frames) give
// exactly the samples of the plain decoder at every power-of-two window,
// every qbits and one to three channels, read in one call and in calls of
// 1000 frames. One codec object opens every stream in turn, rebuilding its
// transform each time.
TEST(OxaDecoder, samplesEqualThePlainDecoderAtEveryWindow) {
    OxaCodec codec;
    for (int32_t bits = 0, window = 1; window <= 32768; ++bits, window *= 2) {
        const int32_t channels = 1 + bits % 3, frames = std::max(700, window * 2 + window / 3 + 300);
        const uint8_t qbits = uint8_t(2 + bits % 7);
        SCOPED_TRACE(testing::Message() << "window " << window << ", q" << int(qbits) << ", " << channels
                                        << " channels");
        const Bytes stream = encodeInt16(musicLikeSignal(frames, channels, 44100, uint32_t(window)),
                                         Settings{channels, qbits, window});
        const std::vector<int16_t> expected = plainDecode(stream);
        ASSERT_EQ(expected.size(), size_t(frames / window * window * channels));
        MemoryStream file(stream.data(), int32_t(stream.size()));
        ASSERT_TRUE(codec.openDecoder(&file));
        std::vector<int16_t> decoded(size_t(frames) * channels);
        uint32_t delivered = 0;
        ASSERT_TRUE(codec.decode(decoded.data(), frames, channels, Int16, delivered));
        decoded.resize(size_t(delivered) * channels);
        EXPECT_EQ(decoded, expected);
        EXPECT_EQ(decodeAll(stream, channels), expected);
    }
}

TEST(OxaDecoder, refusesBadHeadersWithoutReadingFurther) {
    const Bytes good = stereoStream();
    struct Case { const char* name; int32_t offset; Bytes bytes; };
    const Case cases[] = {
        {"magic", 3, {0x1B}},           {"version 255", 4, {0xFF, 0x00}}, {"version 257", 4, {0x01, 0x01}},
        {"rate 0", 8, {0, 0, 0, 0}},    {"channels 0", 12, {0}},          {"window 0", 14, {0, 0}},
        {"window 3000", 14, {0xB8, 0x0B}},
    };
    for (const Case& c : cases) {
        Bytes bad = good;
        std::memcpy(&bad[c.offset], c.bytes.data(), c.bytes.size());
        int64_t position = 0;
        EXPECT_FALSE(opens(bad, &position)) << c.name;
        EXPECT_EQ(position, OxaHeaderSize) << c.name;
    }
    EXPECT_FALSE(opens(Bytes(good.begin(), good.begin() + 31)));
    Bytes empty = good;  // blockCount 0: no audio
    std::memset(&empty[16], 0, 4);
    EXPECT_TRUE(opens(empty));
    EXPECT_EQ(decodeAll(empty, 2).size(), 0u);
}

TEST(OxaDecoder, codeBytesAreMaskedToTheirBits) {
    const Bytes stream = stereoStream();
    Bytes payload = inflatePayload(stream);
    for (size_t i = 0; i < payload.size(); ++i)
        if (i % (4 + 1024) >= 4)
            payload[i] |= uint8_t(0x20 << (i % 3));  // bits above the 5 that q5 uses
    const Bytes damaged = withPayload(stream, payload);
    ASSERT_NE(damaged, stream);
    EXPECT_EQ(decodeAll(damaged, 2), decodeAll(stream, 2));
}

TEST(OxaEncoder, refusesBadArgumentsAndWritesNothing) {
    struct Case { const char* name; uint32_t format; uint32_t rate; int32_t channels; uint8_t qbits; int32_t window; };
    const Case cases[] = {
        {"qbits 1", Int16, 44100, 2, 1, 2048},        {"qbits 9", Int16, 44100, 2, 9, 2048},
        {"window 65536", Int16, 44100, 2, 5, 65536},  {"window 3000", Int16, 44100, 2, 5, 3000},
        {"window 0", Int16, 44100, 2, 5, 0},          {"rate 0", Int16, 0, 2, 5, 2048},
        {"channels 257", Int16, 44100, 257, 5, 2048}, {"format 9", UInt8, 44100, 2, 5, 2048},
    };
    for (const Case& c : cases) {
        MemoryStream file;
        OxaCodec codec;
        EXPECT_FALSE(codec.openEncoder(&file, c.format, c.rate, c.channels, c.qbits, c.window, 0)) << c.name;
        const int16_t samples[20] = {};
        EXPECT_FALSE(codec.encode(samples, 10, 2, Int16)) << c.name;
        EXPECT_TRUE(codec.close());
        EXPECT_EQ(file.length(), 0) << c.name;
    }
}
