// AudioFile's reader on the real WAV files of the shared corpus, against the
// properties measured from their bytes and the sox decodings beside them.
#include <gtest/gtest.h>

#include <cstring>

#include "audio/AudioFile.h"
#include "audio/tests/WavBuilder.h"
#include "core/tests/support/TestSupport.h"

namespace {

struct CorpusWav {
    const char* name;
    uint32_t rate;        // 0: refused
    int32_t channels;
    uint32_t fileFormat;  // 0 for ADPCM
    int64_t frames;       // all of them, or those delivered before the failing call
    int failingCall;      // 0: ends cleanly
};

const CorpusWav corpusWavs[] = {
    {"ffmpeg_f32_mono_44100_EXTENSIBLE", 0, 0, 0, 0, 0},
    {"ffmpeg_s24_stereo_48000_EXTENSIBLE", 0, 0, 0, 0, 0},
    {"sox_s24_stereo_44100_EXTENSIBLE", 0, 0, 0, 0, 0},
    {"ffmpeg_ima_mono_22050_speech", 22050, 1, 0, 22451, 0},
    {"ffmpeg_ima_stereo_44100_music", 44100, 2, 0, 14238, 0},
    {"ffmpeg_s16_mono_22050_list_title", 22050, 1, Int16, 17640, 0},
    {"ffmpeg_s16_stereo_44100_music", 44100, 2, Int16, 17640, 0},
    {"ffmpeg_s16_stereo_48000_bitexact", 48000, 2, Int16, 14400, 0},
    {"ffmpeg_u8_mono_22050_music", 22050, 1, UInt8, 13230, 0},
    {"orig_freedroid_Alert", 22050, 1, UInt8, 16537, 0},
    {"orig_freedroid_Countdown_Sound", 7418, 1, Int16, 1034, 0},
    {"orig_freedroid_Move_Menu_Position_Sound_0", 22050, 2, Int16, 431, 0},
    {"orig_freedroid_Takeover_Game_Won_Sound_0", 11025, 1, UInt8, 36414, 0},
    {"sox_f32_stereo_44100_music", 44100, 2, Float32, 8820, 0},
    {"sox_ima_mono_22050_speech", 22050, 1, 0, 22220, 0},
    {"sox_ima_stereo_44100_music", 44100, 2, 0, 13635, 0},
    {"sox_s16_mono_22050_speech", 22050, 1, Int16, 26460, 0},
    {"sox_s16_stereo_44100_music", 44100, 2, Int16, 22050, 0},
    {"sox_s24_stereo_44100_wavpcm", 44100, 2, Int24, 11025, 0},
    {"sox_u8_mono_11025_chord", 11025, 1, UInt8, 8192, 3},  // pad byte after odd data
};

// The data chunk's bytes, found by a walk that does skip pad bytes.
Bytes dataChunkOf(const Bytes& file) {
    for (size_t at = 12; at + 8 <= file.size();) {
        uint32_t size;
        std::memcpy(&size, &file[at + 4], 4);
        if (std::memcmp(&file[at], "data", 4) == 0)
            return Bytes(file.begin() + at + 8, file.begin() + at + 8 + size);
        at += 8 + size + (size & 1);
    }
    return {};
}

}  // namespace

// Every file is read whole in two call sizes; ADPCM must equal sox's decoding,
// 16/24/32-bit files read in their own layout must equal the data chunk.
TEST(AudioFileCorpus, everyWavReadsAsMeasured) {
    REQUIRE_CORPUS();
    for (const CorpusWav& wav : corpusWavs) {
        SCOPED_TRACE(wav.name);
        const std::string stem = corpusPath(std::string("wav/") + wav.name);
        const auto bytes = readWholeFile(stem + ".wav");
        ASSERT_FALSE(bytes.empty());
        OpenedWav<AudioFile> opened(bytes);
        AudioFile& file = opened.file;
        ASSERT_EQ(opened.ok, wav.rate != 0);
        if (!opened.ok) {
            uint32_t got = 0;
            int16_t buffer[8];
            EXPECT_FALSE(file.read(buffer, 4, 1, got, Int16));
            continue;
        }
        EXPECT_EQ(file.sampleRate(), wav.rate);
        EXPECT_EQ(file.channels(), wav.channels);
        EXPECT_EQ(file.fileSampleFormat(), wav.fileFormat);

        Bytes samples;
        int calls = 0;
        EXPECT_EQ(readAll(file, 4096, wav.channels, Int16, samples, &calls), wav.failingCall == 0);
        if (wav.failingCall) {
            EXPECT_EQ(calls, wav.failingCall);
        }
        EXPECT_EQ(int64_t(samples.size()), wav.frames * wav.channels * 2);
        if (wav.fileFormat == 0) {
            EXPECT_EQ(samples, readWholeFile(stem + ".sox.s16"));
        }
        if (wav.failingCall == 0) {
            Bytes again;
            ASSERT_TRUE(file.restart());
            EXPECT_TRUE(readAll(file, wav.fileFormat == 0 ? 1 : 505, wav.channels, Int16, again));
            EXPECT_EQ(again, samples);
        }
        if (wav.fileFormat == Int16 || wav.fileFormat == Int24 || wav.fileFormat == Float32) {
            Bytes own;
            ASSERT_TRUE(file.restart());
            EXPECT_TRUE(readAll(file, 1000, wav.channels, wav.fileFormat, own));
            EXPECT_EQ(own, dataChunkOf(bytes));
        }
    }
}
