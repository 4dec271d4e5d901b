// Tests of AudioFile's reader on generated RIFF/WAVE bytes.
#include <gtest/gtest.h>

#include <cstring>

#include "AudioFile.h"
#include "MemoryStream.h"
#include "SampleFormat.h"
#include "WavBuilder.h"

namespace {

using Opened = OpenedWav<AudioFile>;

std::vector<uint8_t> readAllOf(const std::vector<uint8_t>& wav, int32_t step, int32_t channels, uint32_t format,
                               bool* succeeded = nullptr) {
    Opened opened(wav);
    std::vector<uint8_t> out;
    bool ok = opened.ok && readAll(opened.file, step, channels, format, out);
    if (succeeded)
        *succeeded = ok;
    return out;
}

}  // namespace

TEST(AudioFileRead, plain16BitStereoReturnsItsDataBytes) {
    const auto samples = randomBytes(4000, 1);
    Opened opened(WavBuilder().fmt(1, 2, 44100, 16).data(samples).bytes());
    ASSERT_TRUE(opened.ok);
    EXPECT_EQ(opened.file.sampleRate(), 44100u);
    EXPECT_EQ(opened.file.channels(), 2);
    std::vector<uint8_t> out;
    ASSERT_TRUE(readAll(opened.file, 1000, 2, Int16, out));
    EXPECT_EQ(out, samples);
}

// Every file layout read in several layouts and call sizes gives the frames
// of one big read, and those equal convertSamples applied to the raw data.
TEST(AudioFileRead, anyCallSizeMatchesOneBigReadInEveryLayout) {
    struct FileLayout { uint16_t tag, bits; uint32_t format; };
    const FileLayout layouts[] = {{1, 8, Int8}, {1, 16, Int16}, {1, 24, Int24}, {3, 32, Float32}};
    const uint32_t requests[] = {Int8, Int16, Int24, Float32};
    for (const FileLayout& layout : layouts)
        for (uint16_t channels : {1, 2, 3}) {
            const int32_t frames = 1237;
            auto samples = randomBytes(size_t(frames) * channels * layout.bits / 8, layout.bits * 7 + channels);
            if (layout.format == Float32)  // keep floats finite and in range
                for (size_t i = 0; i + 3 < samples.size(); i += 4)
                    samples[i + 3] &= 0x3E;
            const auto wav = WavBuilder().fmt(layout.tag, channels, 8000, layout.bits).data(samples).bytes();
            std::vector<uint8_t> stored = samples;
            if (layout.bits == 8)
                for (auto& b : stored)
                    b = uint8_t(b + 128);
            for (uint32_t format : requests)
                for (int32_t outChannels : {1, 2, 4}) {
                    SCOPED_TRACE(testing::Message() << "bits " << layout.bits << " ch " << channels << " -> format "
                                                    << format << " ch " << outChannels);
                    std::vector<uint8_t> expected(size_t(frames) * outChannels * bytesPerSample(format));
                    convertSamples(layout.format, channels, format, outChannels, stored.data(), expected.data(),
                                   frames);
                    EXPECT_EQ(readAllOf(wav, frames + 10, outChannels, format), expected);
                    for (int32_t step : {1, 7, 500})
                        EXPECT_EQ(readAllOf(wav, step, outChannels, format), expected) << "step " << step;
                }
        }
}

TEST(AudioFileRead, skipsListChunksAndFollowsOddChunksWithoutPadding) {
    const auto samples = randomBytes(400, 2);
    const std::vector<uint8_t> odd = {1, 2, 3};
    const auto wav = WavBuilder()
                         .chunk("LIST", randomBytes(26, 3))
                         .fmt(1, 1, 22050, 16)
                         .chunk("junk", odd)  // odd size, no pad byte
                         .data(samples)
                         .chunk("LIST", randomBytes(48, 4))
                         .bytes();
    for (int32_t step : {3, 200, 4096})
        EXPECT_EQ(readAllOf(wav, step, 1, Int16), samples);

    // A writer that pads the odd chunk loses us from there on.
    const auto padded = WavBuilder().fmt(1, 1, 22050, 16).chunk("junk", odd).raw({0}).data(samples).bytes();
    bool ok = true;
    EXPECT_NE(readAllOf(padded, 4096, 1, Int16, &ok), samples);
}

TEST(AudioFileRead, silenceComesOutWhereItStands) {
    const auto first = randomBytes(40, 5), second = randomBytes(60, 6);
    const auto wav = WavBuilder().fmt(1, 2, 44100, 16).data(first).silence(1000).data(second).bytes();
    std::vector<uint8_t> expected = first;
    expected.resize(expected.size() + 4000, 0);
    expected.insert(expected.end(), second.begin(), second.end());
    for (int32_t step : {1, 9, 999, 5000})
        EXPECT_EQ(readAllOf(wav, step, 2, Int16), expected) << "step " << step;
    // Silence has the requested layout too.
    EXPECT_EQ(readAllOf(wav, 5000, 1, Float32).size(), (10u + 1000u + 15u) * 4u);
}

TEST(AudioFileRead, eightBitStorageIsUnsigned) {
    Opened opened(WavBuilder().fmt(1, 1, 8000, 8).data({0x80, 0xFF, 0x00}).bytes());
    ASSERT_TRUE(opened.ok);
    float out[3];
    uint32_t got = 0;
    ASSERT_TRUE(opened.file.read(out, 3, 1, got, Float32));
    ASSERT_EQ(got, 3u);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 127.0f / 128.0f);
    EXPECT_EQ(out[2], -1.0f);
}

TEST(AudioFileRead, truncatedOrOverlongDataFails) {
    const auto samples = randomBytes(1000, 7);
    // data claims 2000 bytes but the file ends after 1000
    auto truncated = WavBuilder().fmt(1, 1, 8000, 16).header("data", 2000).raw(samples).bytes();
    bool ok = true;
    auto out = readAllOf(truncated, 4096, 1, Int16, &ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(out.empty());  // no invented samples
    // data runs past the RIFF size
    auto overlong = WavBuilder().fmt(1, 1, 8000, 16).data(samples).bytes(4 + 24 + 8 + 500);
    readAllOf(overlong, 4096, 1, Int16, &ok);
    EXPECT_FALSE(ok);
    // a chunk header cut short after the data
    auto cut = WavBuilder().fmt(1, 1, 8000, 16).data(samples).raw({'L', 'I'}).bytes();
    readAllOf(cut, 4096, 1, Int16, &ok);
    EXPECT_FALSE(ok);
}

TEST(AudioFileRead, refusesBadHeaders) {
    const auto pcm = randomBytes(64, 8);
    struct Case { const char* what; std::vector<uint8_t> bytes; };
    const Case cases[] = {
        {"shorter than 12 bytes", {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V'}},
        {"not WAVE", [] { auto b = WavBuilder().fmt(1, 1, 8000, 16).bytes(); b[8] = 'X'; return b; }()},
        {"RIFF size 4", WavBuilder().fmt(1, 1, 8000, 16).bytes(4)},
        {"no fmt chunk", WavBuilder().data(pcm).bytes()},
        {"fmt size 14", WavBuilder().chunk("fmt ", randomBytes(14, 9)).data(pcm).bytes()},
        {"rate 0", WavBuilder().fmt(1, 1, 0, 16).data(pcm).bytes()},
        {"no channels", WavBuilder().fmt(1, 0, 8000, 16, 2).data(pcm).bytes()},
        {"257 channels", WavBuilder().fmt(1, 257, 8000, 16).data(pcm).bytes()},
        {"tag 2", WavBuilder().fmt(2, 1, 8000, 16).data(pcm).bytes()},
        {"extensible", WavBuilder().fmt(0xFFFE, 2, 8000, 16, 4, randomBytes(22, 10)).data(pcm).bytes()},
        {"12-bit PCM", WavBuilder().fmt(1, 1, 8000, 12, 2).data(pcm).bytes()},
        {"16-bit float", WavBuilder().fmt(3, 1, 8000, 16).data(pcm).bytes()},
        {"8-bit ADPCM", WavBuilder().fmt(17, 1, 8000, 8, 256, {0xF9, 0x01}).data(pcm).bytes()},
        {"ADPCM block smaller than its headers", WavBuilder().fmt(17, 2, 8000, 4, 4, {0, 0}).data(pcm).bytes()},
        {"extra bytes beyond fmt", WavBuilder().fmt(1, 1, 8000, 16, 0, {1, 2}, 4).data(pcm).bytes()},
    };
    for (const Case& c : cases) {
        Opened opened(c.bytes);
        EXPECT_FALSE(opened.ok) << c.what;
        uint8_t buffer[64];
        uint32_t got = 7;
        EXPECT_FALSE(opened.file.read(buffer, 4, 1, got, Int16)) << c.what;
        EXPECT_EQ(got, 0u);
    }
    // fmt of 20 bytes with extraSize 2 leaves nothing over.
    Opened extended(WavBuilder().fmt(1, 1, 8000, 16, 0, {7, 7}).data(pcm).bytes());
    ASSERT_TRUE(extended.ok);
    EXPECT_EQ(extended.file.format().extraSize, 2);
}

TEST(AudioFileRead, rejectsBadArgumentsAndAdpcmInOtherLayouts) {
    Opened opened(WavBuilder().fmt(1, 1, 8000, 16).data(randomBytes(64, 11)).bytes());
    ASSERT_TRUE(opened.ok);
    uint8_t buffer[256];
    uint32_t got = 0;
    EXPECT_TRUE(opened.file.read(buffer, 0, 1, got, Int16));
    EXPECT_FALSE(opened.file.read(nullptr, 4, 1, got, Int16));
    EXPECT_FALSE(opened.file.read(buffer, -1, 1, got, Int16));
    EXPECT_FALSE(opened.file.read(buffer, 4, 0, got, Int16));
    EXPECT_FALSE(opened.file.read(buffer, 4, 1, got, 5));
    EXPECT_FALSE(opened.file.read(buffer, 4, 1, got, UInt8));

    // Stereo ADPCM with blockAlign 2048: (2048 - 8) / 4 * 8 / 2 + 1 frames a block.
    const auto blocks = randomBytes(2 * 2048, 12);
    const auto adpcm = WavBuilder().fmt(17, 2, 44100, 4, 2048, {0xF9, 0x07}).data(blocks).bytes();
    EXPECT_EQ(readAllOf(adpcm, 1000, 2, Int16).size(), 2u * 2041 * 4);
    bool ok = true;
    readAllOf(adpcm, 1000, 2, Float32, &ok);
    EXPECT_FALSE(ok);
    readAllOf(adpcm, 1000, 1, Int16, &ok);
    EXPECT_FALSE(ok);
    // The same blocks read in other call sizes.
    for (int32_t step : {1, 13, 2041, 5000})
        EXPECT_EQ(readAllOf(adpcm, step, 2, Int16), readAllOf(adpcm, 9999, 2, Int16)) << "step " << step;
    // A last block shorter than blockAlign fails.
    readAllOf(WavBuilder().fmt(17, 2, 44100, 4, 2048, {0xF9, 0x07}).data(randomBytes(3000, 13)).bytes(), 1000, 2,
              Int16, &ok);
    EXPECT_FALSE(ok);
}

TEST(AudioFileRead, restartReturnsToTheFirstFrame) {
    const auto samples = randomBytes(800, 14);
    Opened opened(WavBuilder().fmt(1, 2, 8000, 16).chunk("LIST", {1, 2}).data(samples).bytes());
    ASSERT_TRUE(opened.ok);
    std::vector<uint8_t> first, second;
    ASSERT_TRUE(readAll(opened.file, 33, 2, Int16, first));
    ASSERT_TRUE(opened.file.restart());
    ASSERT_TRUE(readAll(opened.file, 64, 2, Int16, second));
    EXPECT_EQ(first, samples);
    EXPECT_EQ(second, samples);
    EXPECT_TRUE(opened.file.close());
    EXPECT_FALSE(opened.file.restart());
    EXPECT_TRUE(opened.file.close());
}
