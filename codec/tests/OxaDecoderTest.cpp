// Tests of the codec's checks and layouts: header checks, argument checks,
// channel mapping, output formats, restart, damaged payloads and the ways
// samples may enter the encoder.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "CodecTestSupport.h"
#include "MemoryStream.h"
#include "OxaCodec.h"

namespace {

const std::vector<int16_t>& stereoMusic() {
    static const std::vector<int16_t> pcm = musicLikeSignal(6 * 1024 + 300, 2, 44100, 21);
    return pcm;
}

Bytes stereoStream() {
    Settings settings;
    settings.window = 1024;
    return encodeInt16(stereoMusic(), settings);
}

bool opens(const Bytes& stream, int64_t* positionAfter = nullptr) {
    MemoryStream file(stream.data(), int32_t(stream.size()));
    OxaCodec codec;
    bool ok = codec.openDecoder(&file);
    if (positionAfter)
        *positionAfter = file.tell();
    return ok;
}

}  // namespace

TEST(OxaDecoder, refusesBadHeadersWithoutReadingFurther) {
    const Bytes good = stereoStream();
    struct Case { const char* name; int32_t offset; std::vector<uint8_t> bytes; };
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
    EXPECT_TRUE(opens(good));
}

TEST(OxaDecoder, acceptsEveryPowerOfTwoWindow) {
    const std::vector<int16_t> pcm = musicLikeSignal(100, 1, 8000, 2);
    for (int32_t window = 1; window <= 32768; window *= 2) {
        Settings settings;
        settings.channels = 1;
        settings.window = window;
        settings.rate = 8000;
        Bytes stream = encodeInt16(pcm, settings);
        ASSERT_TRUE(opens(stream)) << window;
        EXPECT_EQ(decodeAll(stream, 1).size(), size_t(100 / window * window * 2)) << window;
    }
}

TEST(OxaDecoder, zeroBlockCountOpensWithoutAudio) {
    Bytes stream = stereoStream();
    std::memset(&stream[16], 0, 4);
    MemoryStream file(stream.data(), int32_t(stream.size()));
    OxaCodec codec;
    ASSERT_TRUE(codec.openDecoder(&file));
    int16_t buffer[64];
    uint32_t delivered = 99;
    EXPECT_TRUE(codec.decode(buffer, 32, 2, Int16, delivered));
    EXPECT_EQ(delivered, 0u);
    EXPECT_EQ(codec.duration(), 0.0f);
}

TEST(OxaDecoder, mapsChannelsAndFormats) {
    const Bytes stream = stereoStream();
    const std::vector<int16_t> stereo = asInt16(decodeAll(stream, 2));
    const std::vector<int16_t> four = asInt16(decodeAll(stream, 4));
    const std::vector<int16_t> mono = asInt16(decodeAll(stream, 1));
    const Bytes floats = decodeAll(stream, 2, Float32);
    const Bytes int24 = decodeAll(stream, 2, Int24);
    const size_t frames = stereo.size() / 2;
    ASSERT_EQ(frames, size_t(6 * 1024));
    ASSERT_EQ(four.size(), frames * 4);
    ASSERT_EQ(mono.size(), frames);
    ASSERT_EQ(floats.size(), frames * 8);
    ASSERT_EQ(int24.size(), frames * 6);
    int32_t clamped = 0;
    for (size_t f = 0; f < frames; ++f) {
        ASSERT_EQ(four[f * 4], stereo[f * 2]);
        ASSERT_EQ(four[f * 4 + 1], stereo[f * 2 + 1]);
        ASSERT_EQ(four[f * 4 + 2], 0);
        ASSERT_EQ(four[f * 4 + 3], 0);
        ASSERT_EQ(mono[f], stereo[f * 2]);
        for (int32_t c = 0; c < 2; ++c) {
            float s;
            std::memcpy(&s, &floats[(f * 2 + c) * 4], 4);
            // Int16 output is floor(32768 s + 0.5), clamped.
            double expected = std::clamp(std::floor(32768.0 * s + 0.5), -32768.0, 32767.0);
            ASSERT_EQ(stereo[f * 2 + c], expected);
            clamped += std::fabs(s) >= 1.0f;
            uint8_t expected24[3];
            encodeSample(Int24, s, expected24);
            ASSERT_EQ(std::memcmp(&int24[(f * 2 + c) * 3], expected24, 3), 0);
        }
    }
    EXPECT_EQ(clamped, 0);  // music at this level does not reach full scale
}

TEST(OxaDecoder, codeBytesAreMaskedToTheirBits) {
    const Bytes stream = stereoStream();
    Bytes payload = inflatePayload(stream);
    const size_t record = 4 + 1024;
    for (size_t i = 0; i < payload.size(); ++i)
        if (i % record >= 4)
            payload[i] |= uint8_t(0x20 << (i % 3));  // bits above the 5 that q5 uses
    Bytes damaged = withPayload(stream, payload);
    ASSERT_NE(damaged, stream);
    EXPECT_EQ(decodeAll(damaged, 2), decodeAll(stream, 2));
}

TEST(OxaDecoder, truncatedPayloadEndsTheAudioEarly) {
    const Bytes stream = stereoStream();
    const size_t full = decodeAll(stream, 2).size();
    // The first block is decoded by the open itself, which fails without it.
    EXPECT_FALSE(opens(Bytes(stream.begin(), stream.begin() + 40)));
    size_t previous = 0;
    for (size_t keep : {size_t(40), stream.size() / 3, stream.size() * 2 / 3, stream.size() - 5}) {
        Bytes cut(stream.begin(), stream.begin() + keep);
        Bytes decoded = decodeAll(cut, 2);
        EXPECT_LE(decoded.size(), full);
        EXPECT_GE(decoded.size(), previous);
        previous = decoded.size();
    }
}

TEST(OxaDecoder, decodeChecksItsArguments) {
    const Bytes stream = stereoStream();
    MemoryStream file(stream.data(), int32_t(stream.size()));
    OxaCodec codec;
    int16_t buffer[16];
    uint32_t delivered = 0;
    EXPECT_FALSE(codec.decode(buffer, 4, 2, Int16, delivered));  // nothing open
    ASSERT_TRUE(codec.openDecoder(&file));
    EXPECT_EQ(codec.sampleRate(), 44100u);
    EXPECT_EQ(codec.channels(), 2);
    EXPECT_EQ(codec.windowSize(), 1024);
    EXPECT_EQ(codec.blockCount(), 7u);
    EXPECT_FLOAT_EQ(codec.duration(), 1024.0f * 7 / 44100);
    EXPECT_FALSE(codec.decode(buffer, -1, 2, Int16, delivered));
    EXPECT_FALSE(codec.decode(buffer, 4, 0, Int16, delivered));
    EXPECT_FALSE(codec.decode(nullptr, 4, 2, Int16, delivered));
    EXPECT_TRUE(codec.decode(nullptr, 0, 2, Int16, delivered));
    EXPECT_EQ(delivered, 0u);
    EXPECT_TRUE(codec.decode(buffer, 8, 2, Int16, delivered));
    EXPECT_EQ(delivered, 8u);
}

TEST(OxaDecoder, restartDeliversTheSameFramesAgain) {
    Bytes stream(5, 0xEE);  // the stream need not start at offset 0
    const Bytes encoded = stereoStream();
    stream.insert(stream.end(), encoded.begin(), encoded.end());
    MemoryStream file(stream.data(), int32_t(stream.size()));
    file.seek(5, SeekStart);
    OxaCodec codec;
    ASSERT_TRUE(codec.openDecoder(&file));
    std::vector<int16_t> first(2 * 8000), second(2 * 8000);
    uint32_t firstCount = 0, secondCount = 0;
    ASSERT_TRUE(codec.decode(first.data(), 8000, 2, Int16, firstCount));
    ASSERT_TRUE(codec.restart());
    ASSERT_TRUE(codec.decode(second.data(), 8000, 2, Int16, secondCount));
    EXPECT_EQ(firstCount, uint32_t(6 * 1024));
    EXPECT_EQ(firstCount, secondCount);
    EXPECT_EQ(first, second);
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
        EXPECT_EQ(file.length(), 0) << c.name;
        EXPECT_FALSE(codec.encode(stereoMusic().data(), 10, 2, Int16)) << c.name;
        EXPECT_TRUE(codec.close());
        EXPECT_EQ(file.length(), 0) << c.name;
    }
}

TEST(OxaEncoder, samplesGiveTheSameStreamHoweverTheyArrive) {
    Settings settings;
    settings.window = 1024;
    const std::vector<int16_t>& pcm = stereoMusic();
    const int32_t frames = int32_t(pcm.size() / 2);
    const Bytes reference = encodeInt16(pcm, settings);

    // Odd pieces, and the same frames as Float32 and as Int24 (both exact).
    std::vector<float> floats(pcm.size());
    Bytes int24;
    for (size_t i = 0; i < pcm.size(); ++i) {
        floats[i] = pcm[i] / 32768.0f;
        int32_t v = pcm[i] * 256;
        int24.insert(int24.end(), {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16)});
    }
    struct Way { uint32_t format; const void* data; int32_t piece; };
    const Way ways[] = {{Int16, pcm.data(), 1}, {Int16, pcm.data(), 777}, {Float32, floats.data(), 5000},
                        {Int24, int24.data(), 333}};
    for (const Way& way : ways) {
        MemoryStream file;
        OxaCodec codec;
        ASSERT_TRUE(codec.openEncoder(&file, Int16, 44100, 2, 5, 1024, 0));
        const uint8_t* bytes = static_cast<const uint8_t*>(way.data);
        for (int32_t done = 0; done < frames; done += way.piece) {
            int32_t count = std::min(way.piece, frames - done);
            ASSERT_TRUE(codec.encode(bytes + size_t(done) * 2 * bytesPerSample(way.format), count, 2, way.format));
        }
        ASSERT_TRUE(codec.close());
        EXPECT_EQ(Bytes(file.data(), file.data() + file.length()), reference) << way.format << " " << way.piece;
    }
}

TEST(OxaEncoder, failedWritesFailTheEncoding) {
    const std::vector<int16_t>& pcm = stereoMusic();
    MemoryStream header;
    header.setWriteLimit(20);
    OxaCodec codec;
    EXPECT_FALSE(codec.openEncoder(&header, Int16, 44100, 2, 5, 1024, 0));
    EXPECT_FALSE(codec.close());

    MemoryStream payload;
    payload.setWriteLimit(100);
    ASSERT_TRUE(codec.openEncoder(&payload, Int16, 44100, 2, 5, 256, 0));
    bool encoded = codec.encode(pcm.data(), int32_t(pcm.size() / 2), 2, Int16);
    bool closed = codec.close();
    EXPECT_FALSE(encoded && closed);
}

TEST(OxaDecoder, reopeningWithAnotherWindowRebuildsTheTransform) {
    Settings small;
    small.window = 256;
    const Bytes streams[] = {stereoStream(), encodeInt16(stereoMusic(), small), stereoStream()};
    OxaCodec codec;
    MemoryStream output;  // the same object encodes first
    ASSERT_TRUE(codec.openEncoder(&output, Int16, 44100, 2, 5, 512, 0));
    ASSERT_TRUE(codec.encode(stereoMusic().data(), 3000, 2, Int16));
    for (const Bytes& stream : streams) {
        MemoryStream file(stream.data(), int32_t(stream.size()));
        ASSERT_TRUE(codec.openDecoder(&file));
        Bytes decoded(stereoMusic().size() * 2);
        uint32_t delivered = 0;
        ASSERT_TRUE(codec.decode(decoded.data(), int32_t(stereoMusic().size() / 2), 2, Int16, delivered));
        decoded.resize(delivered * 4);
        EXPECT_EQ(decoded, decodeAll(stream, 2));  // a fresh codec's output
    }
    EXPECT_GT(output.length(), OxaHeaderSize);  // the encoder was closed by the first open
    EXPECT_EQ(headerOf(Bytes(output.data(), output.data() + output.length())).blockCount, 6u);
}
