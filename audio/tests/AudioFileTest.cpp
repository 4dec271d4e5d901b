// Tests of AudioFile's reader on generated RIFF/WAVE bytes.
#include <gtest/gtest.h>

#include "audio/AudioFile.h"
#include "audio/pcm/SampleFormat.h"
#include "audio/tests/WavBuilder.h"
#include "core/Heap.h"

// Every file layout read in several layouts and call sizes gives the frames
// of one big read, and those equal convertSamples applied to the raw data.
TEST(AudioFileRead, anyCallSizeMatchesOneBigReadInEveryLayout) {
    struct FileLayout { uint16_t tag, bits; uint32_t format; };
    for (const FileLayout& layout : {FileLayout{1, 8, Int8}, {1, 16, Int16}, {1, 24, Int24}, {3, 32, Float32}})
        for (uint16_t channels : {1, 2, 3, 300}) {  // 300: more than the encoder takes, still a WAV file
            const int32_t frames = channels > 3 ? 37 : 1237;
            auto samples = randomBytes(size_t(frames) * channels * layout.bits / 8, layout.bits * 7 + channels);
            if (layout.format == Float32)  // keep floats finite and in range
                for (size_t i = 3; i < samples.size(); i += 4)
                    samples[i] &= 0x3E;
            const auto wav = WavBuilder().fmt(layout.tag, channels, 8000, layout.bits).data(samples).bytes();
            Bytes stored = samples;  // 8-bit files hold unsigned bytes
            if (layout.bits == 8)
                for (auto& b : stored)
                    b = uint8_t(b + 128);
            for (uint32_t format : {Int8, Int16, Int24, Float32})
                for (int32_t outChannels : {1, 2, 4}) {
                    SCOPED_TRACE(testing::Message() << "bits " << layout.bits << " ch " << channels << " -> format "
                                                    << format << " ch " << outChannels);
                    Bytes expected(size_t(frames) * outChannels * bytesPerSample(format));
                    convertSamples(layout.format, channels, format, outChannels, stored.data(), expected.data(),
                                   frames);
                    for (int32_t step : {1, 7, 500, frames + 10})
                        EXPECT_EQ(readAllOf(wav, step, outChannels, format), expected) << "step " << step;
                }
        }
}

// Chunks around and between the data: LIST is skipped, an odd chunk is
// followed without a pad byte (deliberately: a file that pads is misread from
// there on), and slnt gives its count of silent frames where it stands.
TEST(AudioFileRead, theChunkWalkFindsDataAndSilenceAtAnyCallSize) {
    const auto first = randomBytes(40, 5), second = randomBytes(60, 6), odd = randomBytes(3, 4);
    Bytes thousand, silenced = first;
    putLe(thousand, 1000, 4);
    silenced.resize(first.size() + 4000, 0);
    silenced.insert(silenced.end(), second.begin(), second.end());
    const WavBuilder stereo = WavBuilder().chunk("LIST", randomBytes(26, 3)).fmt(1, 2, 44100, 16);
    struct Case { const char* what; Bytes wav; const Bytes& expected; bool readAsExpected = true; };
    const Case cases[] = {
        {"LIST and odd chunks", WavBuilder(stereo).chunk("junk", odd).data(first).chunk("LIST", odd).bytes(), first},
        {"slnt between data", WavBuilder(stereo).data(first).chunk("slnt", thousand).data(second).bytes(), silenced},
        {"padded odd chunk", WavBuilder(stereo).chunk("junk", odd).raw({0}).data(first).bytes(), first, false},
    };
    for (const Case& c : cases)
        for (int32_t step : {1, 9, 999, 5000})
            EXPECT_EQ(readAllOf(c.wav, step, 2, Int16) == c.expected, c.readAsExpected) << c.what << ", step " << step;
    EXPECT_EQ(readAllOf(cases[1].wav, 5000, 1, Float32).size(), (10u + 1000u + 15u) * 4u);  // any layout
}

// The widest header there is: its frames come out whole, in its own layout
// or folded to stereo, and what the reader holds does not grow with the
// channel count beyond one frame.
TEST(AudioFileRead, widestChannelCountReadsWithinBoundedMemory) {
    const int32_t channels = 65535, frames = 3;
    const auto samples = randomBytes(size_t(frames) * channels * 3, 17);
    const auto wav = WavBuilder().fmt(1, uint16_t(channels), 1000000000, 24).data(samples).bytes();
    Bytes stereo(size_t(frames) * 2 * 2);
    convertSamples(Int24, channels, Int16, 2, samples.data(), stereo.data(), frames);
    EXPECT_EQ(readAllOf(wav, 1, 2, Int16), stereo);
    EXPECT_EQ(readAllOf(wav, frames, channels, Int24), samples);

    if (!heapAttached())
        return;  // the sanitizer build runs on the platform allocator: nothing to count
    OpenedWav<AudioFile> opened(wav);
    ASSERT_TRUE(opened.ok);
    uint8_t frame[4];
    uint32_t got = 0;
    const uint64_t before = processHeap().statistics().allocSize;
    ASSERT_TRUE(opened.file.read(frame, 1, 2, got, Int16));
    EXPECT_LE(processHeap().statistics().allocSize - before, 4u * channels);  // one frame of the widest format
}

// Truncated, malformed or hostile files, layouts a file cannot be read in,
// and bad arguments fail without delivering invented samples.
TEST(AudioFileRead, badFilesLayoutsAndArgumentsFail) {
    const auto pcm = randomBytes(64, 8), samples = randomBytes(1000, 7);
    const auto adpcm = WavBuilder().fmt(17, 2, 44100, 4, 2048, {0xF9, 0x07});
    auto patched = [](Bytes bytes, size_t at, uint8_t value) {
        bytes[at] = value;
        return bytes;
    };
    struct Case { const char* what; Bytes bytes; int32_t channels = 1; uint32_t format = Int16; };
    const Case cases[] = {
        {"file ends inside data", WavBuilder().fmt(1, 1, 8000, 16).header("data", 2000).raw(samples).bytes()},
        {"data runs past RIFF", WavBuilder().fmt(1, 1, 8000, 16).data(samples).bytes(4 + 24 + 8 + 500)},
        {"chunk header cut short", WavBuilder().fmt(1, 1, 8000, 16).data(samples).raw({'L', 'I'}).bytes()},
        {"last ADPCM block short", WavBuilder(adpcm).data(randomBytes(3000, 13)).bytes(), 2},
        {"ADPCM as Float32", WavBuilder(adpcm).data(randomBytes(4096, 12)).bytes(), 2, Float32},
        {"ADPCM in other channels", WavBuilder(adpcm).data(randomBytes(4096, 12)).bytes(), 1},
        {"UInt8 asked for", WavBuilder().fmt(1, 1, 8000, 16).data(pcm).bytes(), 1, UInt8},
        {"no channels asked for", WavBuilder().fmt(1, 1, 8000, 16).data(pcm).bytes(), 0},
        {"not WAVE", patched(WavBuilder().fmt(1, 1, 8000, 16).bytes(), 8, 'X')},
        {"RIFF size 4", WavBuilder().fmt(1, 1, 8000, 16).bytes(4)},
        {"no fmt chunk", WavBuilder().data(pcm).bytes()},
        {"rate 0", WavBuilder().fmt(1, 1, 0, 16).data(pcm).bytes()},
        {"no channels", WavBuilder().fmt(1, 0, 8000, 16, 2).data(pcm).bytes()},
        {"65535 channels, data past the end", WavBuilder().fmt(1, 65535, 8000, 24).header("data", ~0u).raw(samples).bytes(), 2},
        {"tag 2", WavBuilder().fmt(2, 1, 8000, 16).data(pcm).bytes()},
        {"12-bit PCM", WavBuilder().fmt(1, 1, 8000, 12, 2).data(pcm).bytes()},
        {"8-bit ADPCM", WavBuilder().fmt(17, 1, 8000, 8, 256, {0xF9, 0x01}).data(pcm).bytes()},
        {"ADPCM block smaller than its headers", WavBuilder().fmt(17, 2, 8000, 4, 4, {0, 0}).data(pcm).bytes()},
        {"extra size beyond fmt", patched(WavBuilder().fmt(1, 1, 8000, 16, 0, {1, 2}).data(pcm).bytes(), 36, 4)},
    };
    for (const Case& c : cases) {
        bool ok = true;
        EXPECT_TRUE(readAllOf(c.bytes, 4096, c.channels, c.format, &ok).empty()) << c.what;
        EXPECT_FALSE(ok) << c.what;
    }
    OpenedWav<AudioFile> opened(WavBuilder().fmt(1, 1, 8000, 16).data(pcm).bytes());
    uint8_t buffer[256];
    uint32_t got = 0;
    EXPECT_FALSE(opened.file.read(nullptr, 4, 1, got, Int16));
    EXPECT_FALSE(opened.file.read(buffer, -1, 1, got, Int16));
    EXPECT_TRUE(opened.file.close());
    EXPECT_FALSE(opened.file.read(buffer, 4, 1, got, Int16));
}
