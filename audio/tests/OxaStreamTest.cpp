// AudioFile and SoundSource on compressed Oxa streams: everything that is not
// RIFF goes through the codec's decoder with the same read contract.
#include <gtest/gtest.h>

#include <cmath>

#include "AudioFile.h"
#include "MemoryStream.h"
#include "OxaCodec.h"
#include "SampleFormat.h"
#include "SoundSource.h"
#include "WavBuilder.h"

namespace {

std::vector<uint8_t> encodedSine(int32_t frames) {
    std::vector<int16_t> samples(size_t(frames) * 2);
    for (int32_t i = 0; i < frames; ++i) {
        samples[2 * i] = int16_t(10000 * std::sin(0.05 * i));
        samples[2 * i + 1] = int16_t(8000 * std::sin(0.011 * i));
    }
    MemoryStream stream;
    OxaCodec codec;
    EXPECT_TRUE(codec.openEncoder(&stream, Int16, 22050, 2, 8, 1024, 0.0f));
    EXPECT_TRUE(codec.encode(samples.data(), frames, 2, Int16));
    EXPECT_TRUE(codec.close());
    return std::vector<uint8_t>(stream.data(), stream.data() + stream.length());
}

std::vector<uint8_t> decodedDirectly(const std::vector<uint8_t>& oxa) {
    MemoryStream stream(oxa.data(), int32_t(oxa.size()));
    OxaCodec codec;
    EXPECT_TRUE(codec.openDecoder(&stream));
    std::vector<uint8_t> out, buffer(4096 * 4);
    for (uint32_t got = 1; got > 0;) {
        EXPECT_TRUE(codec.decode(buffer.data(), 4096, 2, Int16, got));
        out.insert(out.end(), buffer.begin(), buffer.begin() + got * 4);
    }
    return out;
}

}  // namespace

TEST(OxaStream, readsThroughTheDecoderAndRestarts) {
    const auto oxa = encodedSine(10000);
    const auto expected = decodedDirectly(oxa);
    ASSERT_GT(expected.size(), 4u * 8000);

    OpenedWav<AudioFile> opened(oxa);
    ASSERT_TRUE(opened.ok);
    EXPECT_EQ(opened.file.sampleRate(), 22050u);
    EXPECT_EQ(opened.file.channels(), 2);
    std::vector<uint8_t> first, second;
    ASSERT_TRUE(readAll(opened.file, 777, 2, Int16, first));
    EXPECT_EQ(first, expected);
    ASSERT_TRUE(opened.file.restart());
    ASSERT_TRUE(readAll(opened.file, 4096, 2, Int16, second));
    EXPECT_EQ(second, expected);

    // Too short to probe, and not a valid compressed stream either.
    EXPECT_FALSE(OpenedWav<AudioFile>(std::vector<uint8_t>(oxa.begin(), oxa.begin() + 11)).ok);
    EXPECT_FALSE(OpenedWav<AudioFile>(randomBytes(200, 51)).ok);
}

TEST(OxaStream, soundSourceKeepsASharedStreamAlive) {
    const auto oxa = encodedSine(3000);
    const auto expected = decodedDirectly(oxa);
    SoundSource source;
    {
        SharedRef<Stream> stream(new MemoryStream(oxa.data(), int32_t(oxa.size())));
        ASSERT_TRUE(source.open(stream));
    }  // only the source holds it now
    ASSERT_TRUE(source.setOutputRate(22050));
    const int32_t frames = int32_t(expected.size() / 4) + 100;
    std::vector<uint8_t> buffer(size_t(frames) * 4, 0xEE);
    uint32_t got = 0;
    ASSERT_TRUE(source.read(buffer.data(), frames, got));
    EXPECT_EQ(got, expected.size() / 4);
    std::vector<uint8_t> withZeros = expected;
    withZeros.resize(buffer.size(), 0);
    EXPECT_EQ(buffer, withZeros);
    EXPECT_TRUE(source.close());
}
