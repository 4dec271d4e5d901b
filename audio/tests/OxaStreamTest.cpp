// AudioFile and SoundSource on compressed Oxa streams: everything that is not
// RIFF goes through the codec's decoder with the same read contract.
#include <gtest/gtest.h>

#include <cmath>

#include "audio/AudioFile.h"
#include "audio/SoundSource.h"
#include "audio/tests/WavBuilder.h"
#include "codec/OxaCodec.h"

TEST(OxaStream, readsThroughTheDecoderAndRestarts) {
    const int32_t frames = 10000;
    std::vector<int16_t> samples(size_t(frames) * 2);
    for (int32_t i = 0; i < 2 * frames; ++i)
        samples[i] = int16_t(10000 * std::sin(i % 2 ? 0.011 * i : 0.05 * i));
    MemoryStream encoded;
    OxaCodec codec;
    ASSERT_TRUE(codec.openEncoder(&encoded, Int16, 22050, 2, 8, 1024, 0.0f));
    ASSERT_TRUE(codec.encode(samples.data(), frames, 2, Int16));
    ASSERT_TRUE(codec.close());
    const Bytes oxa(encoded.data(), encoded.data() + encoded.length());

    // What the decoder gives when used directly.
    MemoryStream stream(oxa.data(), int32_t(oxa.size()));
    ASSERT_TRUE(codec.openDecoder(&stream));
    Bytes expected, buffer(4096 * 4);
    for (uint32_t got = 1; got > 0;) {
        ASSERT_TRUE(codec.decode(buffer.data(), 4096, 2, Int16, got));
        expected.insert(expected.end(), buffer.begin(), buffer.begin() + got * 4);
    }
    ASSERT_GT(expected.size(), 4u * 8000);

    OpenedWav<AudioFile> opened(oxa);
    ASSERT_TRUE(opened.ok);
    EXPECT_EQ(opened.file.sampleRate(), 22050u);
    EXPECT_EQ(opened.file.channels(), 2);
    for (int32_t step : {777, 4096}) {
        Bytes out;
        ASSERT_TRUE(readAll(opened.file, step, 2, Int16, out));
        EXPECT_EQ(out, expected);
        ASSERT_TRUE(opened.file.restart());
    }
    // Too short to probe, and not a valid compressed stream either.
    EXPECT_FALSE(OpenedWav<AudioFile>(Bytes(oxa.begin(), oxa.begin() + 11)).ok);
    EXPECT_FALSE(OpenedWav<AudioFile>(randomBytes(200, 51)).ok);

    // A source holding the only reference to its stream keeps it alive; past
    // the end it fills with zeros.
    SoundSource source;
    ASSERT_TRUE(source.open(SharedRef<Stream>(new MemoryStream(oxa.data(), int32_t(oxa.size())))));
    ASSERT_TRUE(source.setOutputRate(22050));
    const int32_t asked = int32_t(expected.size() / 4) + 100;
    Bytes played(size_t(asked) * 4, 0xEE);
    uint32_t got = 0;
    ASSERT_TRUE(source.read(played.data(), asked, got));
    EXPECT_EQ(got, expected.size() / 4);
    expected.resize(played.size(), 0);
    EXPECT_EQ(played, expected);
}
