// AudioFile's reader on the real WAV files of the shared corpus, against the
// properties measured from their bytes and the sox decodings beside them.
#include <gtest/gtest.h>

#include <cstring>

#include "AudioFile.h"
#include "MemoryStream.h"
#include "TestSupport.h"
#include "WavBuilder.h"

namespace {

struct CorpusWav {
    const char* name;
    bool opens;
    uint32_t rate;
    int32_t channels;
    uint32_t fileFormat;  // 0 for ADPCM
    int64_t frames;       // all of them, or those delivered before the failing call
    int failingCall;      // 0: ends cleanly
};

const CorpusWav corpusWavs[] = {
    {"ffmpeg_f32_mono_44100_EXTENSIBLE.wav", false, 0, 0, 0, 0, 0},
    {"ffmpeg_s24_stereo_48000_EXTENSIBLE.wav", false, 0, 0, 0, 0, 0},
    {"sox_s24_stereo_44100_EXTENSIBLE.wav", false, 0, 0, 0, 0, 0},
    {"ffmpeg_ima_mono_22050_speech.wav", true, 22050, 1, 0, 22451, 0},
    {"ffmpeg_ima_stereo_44100_music.wav", true, 44100, 2, 0, 14238, 0},
    {"ffmpeg_s16_mono_22050_list_title.wav", true, 22050, 1, Int16, 17640, 0},
    {"ffmpeg_s16_stereo_44100_music.wav", true, 44100, 2, Int16, 17640, 0},
    {"ffmpeg_s16_stereo_48000_bitexact.wav", true, 48000, 2, Int16, 14400, 0},
    {"ffmpeg_u8_mono_22050_music.wav", true, 22050, 1, UInt8, 13230, 0},
    {"orig_freedroid_Alert.wav", true, 22050, 1, UInt8, 16537, 0},
    {"orig_freedroid_Countdown_Sound.wav", true, 7418, 1, Int16, 1034, 0},
    {"orig_freedroid_Move_Menu_Position_Sound_0.wav", true, 22050, 2, Int16, 431, 0},
    {"orig_freedroid_Takeover_Game_Won_Sound_0.wav", true, 11025, 1, UInt8, 36414, 0},
    {"sox_f32_stereo_44100_music.wav", true, 44100, 2, Float32, 8820, 0},
    {"sox_ima_mono_22050_speech.wav", true, 22050, 1, 0, 22220, 0},
    {"sox_ima_stereo_44100_music.wav", true, 44100, 2, 0, 13635, 0},
    {"sox_s16_mono_22050_speech.wav", true, 22050, 1, Int16, 26460, 0},
    {"sox_s16_stereo_44100_music.wav", true, 44100, 2, Int16, 22050, 0},
    {"sox_s24_stereo_44100_wavpcm.wav", true, 44100, 2, Int24, 11025, 0},
    {"sox_u8_mono_11025_chord.wav", true, 11025, 1, UInt8, 8192, 3},  // pad byte after odd data
};

// The data chunk's bytes, found by a walk that does skip pad bytes.
std::vector<uint8_t> dataChunkOf(const std::vector<uint8_t>& file) {
    for (size_t at = 12; at + 8 <= file.size();) {
        uint32_t size;
        std::memcpy(&size, &file[at + 4], 4);
        if (std::memcmp(&file[at], "data", 4) == 0)
            return std::vector<uint8_t>(file.begin() + at + 8, file.begin() + at + 8 + size);
        at += 8 + size + (size & 1);
    }
    return {};
}

}  // namespace

TEST(AudioFileCorpus, everyWavReadsAsMeasured) {
    REQUIRE_CORPUS();
    for (const CorpusWav& wav : corpusWavs) {
        SCOPED_TRACE(wav.name);
        const auto bytes = readWholeFile(corpusPath(std::string("wav/") + wav.name));
        ASSERT_FALSE(bytes.empty());
        MemoryStream stream(bytes.data(), int32_t(bytes.size()));
        AudioFile file;
        ASSERT_EQ(file.open(&stream), wav.opens);
        if (!wav.opens) {
            uint32_t got = 0;
            int16_t buffer[8];
            EXPECT_FALSE(file.read(buffer, 4, 1, got, Int16));
            continue;
        }
        EXPECT_EQ(file.sampleRate(), wav.rate);
        EXPECT_EQ(file.channels(), wav.channels);
        EXPECT_EQ(file.fileSampleFormat(), wav.fileFormat);

        std::vector<uint8_t> samples;
        int calls = 0;
        const bool clean = readAll(file, 4096, wav.channels, Int16, samples, &calls);
        EXPECT_EQ(clean, wav.failingCall == 0);
        if (wav.failingCall) {
            EXPECT_EQ(calls, wav.failingCall);
        }
        EXPECT_EQ(int64_t(samples.size()), wav.frames * wav.channels * 2);

        // Read again in the file's own layout, the samples are the data chunk's bytes.
        if (wav.fileFormat == Int16 || wav.fileFormat == Int24 || wav.fileFormat == Float32) {
            ASSERT_TRUE(file.restart());
            std::vector<uint8_t> own;
            EXPECT_TRUE(readAll(file, 1000, wav.channels, wav.fileFormat, own));
            EXPECT_EQ(own, dataChunkOf(bytes));
        }
    }
}

TEST(AudioFileCorpus, imaAdpcmDecodesExactlyAsSox) {
    REQUIRE_CORPUS();
    for (const char* stem : {"sox_ima_mono_22050_speech", "sox_ima_stereo_44100_music", "ffmpeg_ima_mono_22050_speech",
                             "ffmpeg_ima_stereo_44100_music"}) {
        SCOPED_TRACE(stem);
        const auto bytes = readWholeFile(corpusPath(std::string("wav/") + stem + ".wav"));
        const auto expected = readWholeFile(corpusPath(std::string("wav/") + stem + ".sox.s16"));
        ASSERT_FALSE(expected.empty());
        MemoryStream stream(bytes.data(), int32_t(bytes.size()));
        AudioFile file;
        ASSERT_TRUE(file.open(&stream));
        for (int32_t step : {4096, 505, 1}) {
            ASSERT_TRUE(file.restart());
            std::vector<uint8_t> decoded;
            EXPECT_TRUE(readAll(file, step, file.channels(), Int16, decoded));
            EXPECT_EQ(decoded, expected) << "step " << step;
        }
    }
}
