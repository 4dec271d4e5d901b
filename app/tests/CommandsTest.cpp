// The three commands as a user meets them: every message on its stream,
// the exit status, the values the options carry, and the files left behind.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "app/tests/ProcessRunner.h"
#include "audio/tests/WavBuilder.h"
#include "core/tests/support/TestSupport.h"

namespace {

std::vector<int16_t> music(int frames, int channels, uint32_t rate) {
    std::vector<int16_t> samples(size_t(frames) * channels);
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c) {
            double t = double(i) / rate;
            double v = 0.3 * std::sin(2 * M_PI * 220 * t + c) + 0.2 * std::sin(2 * M_PI * 660 * t) * std::exp(-3 * t);
            samples[size_t(i) * channels + c] = int16_t(std::lrint(v * 32767));
        }
    return samples;
}

off_t sizeOf(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_size : -1;
}

// song.wav: one second of 44100 Hz stereo music.
class CommandsTest : public testing::Test {
protected:
    void SetUp() override {
        dir = temporaryDirectory();
        writeWholeFile(dir + "/song.wav", pcm16Wav(music(44100, 2, 44100), 44100, 2));
    }
    ProcessResult run(const std::vector<std::string>& arguments, const char* input = nullptr,
                      const std::vector<std::string>& environment = {}) {
        return runOxa(arguments, input, dir, environment);
    }
    std::string dir;
};

}  // namespace

TEST_F(CommandsTest, everyOutcomePrintsItsLinesOnTheirStreamsWithItsStatus) {
    writeWholeFile(dir + "/noise.wav", std::vector<uint8_t>(100, 0x55));
    writeWholeFile(dir + "/songwav", readWholeFile(dir + "/song.wav"));
    writeWholeFile(dir + "/song", std::vector<uint8_t>(64, 0));
    writeWholeFile(dir + "/tune.mod", std::vector<uint8_t>(2000, 0));
    writeWholeFile(dir + "/wide.wav", pcm16Wav(music(100, 257, 8000), 8000, 257));
    writeWholeFile(dir + "/low.wav", pcm16Wav(music(2000, 1, 22050), 22050, 1));
    writeWholeFile(dir + "/no-card.conf", {});  // an ALSA configuration without any card
    writeAlsaCaptureConfig(dir + "/to-null.conf", "/dev/null");
    ASSERT_EQ(run({"song.wav", "-o", "good.oxa"}).status, 0);
    const std::string noCard = "ALSA_CONFIG_PATH=" + dir + "/no-card.conf";
    const std::string toNull = "ALSA_CONFIG_PATH=" + dir + "/to-null.conf";
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string out, err, environment = "";
    } cases[] = {
        {{"missing.wav"}, 1, "", "failed to open missing.wav\n"},
        {{"-d", "missing.oxa"}, 1, "", "failed to open missing.oxa\n"},
        {{"songwav"}, 1, "failed to create: songwav/.oxa\n", ""},
        {{"-d", "songwav"}, 1, "failed to create: songwav/.oxa\n", ""},  // a name ending in wav is compressed
        {{"-d", "song"}, 1, "failed to create: song/.wav\n", ""},
        {{"-f", "noise.wav"}, 1, "failed to open input: noise.wav\n", ""},
        {{"-f", "-q", "9", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-q", "1", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-q", "abc", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},  // stored as 0
        {{"-f", "-q", "300", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},  // low 8 bits: 44
        {{"-f", "-w", "3000", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-w", "65536", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-w", "11", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-d", "tune.mod"}, 1, "failed to open input: tune.mod\n", ""},
        {{"-f", "wide.wav"}, 1, "failed to create output: wide.oxa\n", ""},  // the encoder takes 256 channels
        {{"-p", "missing.oxa"}, 0, "", "failed to open input: missing.oxa\n"},
        {{"missing.oxa"}, 0, "", "failed to open input: missing.oxa\n"},
        {{"good.oxa"}, 0, "", "failed to open playback device @44kHz\n", noCard},
        {{"-p", "song.wav"}, 0, "", "failed to open playback device @44kHz\n", noCard},
        {{"-p", "low.wav"}, 0, "", "failed to open playback device @22kHz\n", noCard},
        {{"good.oxa"}, 0, "playing ... any key to exit\n", "", toNull},  // standard input is closed
    };
    for (const Case& c : cases) {
        std::vector<std::string> environment;
        if (!c.environment.empty())
            environment.push_back(c.environment);
        expectOutcome(run(c.arguments, nullptr, environment), {c.status, c.out, c.err}, c.arguments);
    }
    // The encoder refuses its settings after the output was created: it stays, empty.
    EXPECT_EQ(sizeOf(dir + "/song.oxa"), 0);
    EXPECT_EQ(sizeOf(dir + "/wide.oxa"), 0);
    EXPECT_EQ(sizeOf(dir + "/tune.wav"), 0);
    EXPECT_EQ(sizeOf(dir + "/missing.oxa"), -1);
    EXPECT_EQ(sizeOf(dir + "/low.oxa"), -1);  // -p plays a WAV file instead of compressing it
}

// The last writes (the final flush, the header patch, the file's close) count
// like the others, for outputs that never leave the 8192-byte buffer before
// the end as much as for larger ones.
TEST_F(CommandsTest, aFullDiskFailsTheCommandWhateverTheOutputSize) {
    if (sizeOf("/dev/full") < 0)
        GTEST_SKIP() << "no /dev/full here: it stands for a full disk";
    writeWholeFile(dir + "/short.wav", pcm16Wav(music(3000, 1, 8000), 8000, 1));
    writeWholeFile(dir + "/long.wav", WavBuilder().fmt(1, 2, 44100, 16).data(randomBytes(22050 * 4, 9)).bytes());
    for (const char* name : {"short", "long"})
        ASSERT_EQ(run({"-f", std::string(name) + ".wav"}).status, 0) << name;
    ASSERT_LT(sizeOf(dir + "/short.oxa"), 8192);
    ASSERT_GT(sizeOf(dir + "/long.oxa"), 8192);  // noise hardly compresses
    // Names ending in wav are compressed, -d or not.
    for (const char* input : {"short.wav", "long.wav", "short.oxa", "long.oxa"})
        expectOutcome(run({"-f", "-d", input, "-o", "/dev/full"}), {1, "", "failed to write /dev/full\n"}, {input});
    ASSERT_EQ(run({"-f", "-d", "short.oxa", "-o", "short-back.wav"}).status, 0);
    const off_t shortWav = sizeOf(dir + "/short-back.wav");
    EXPECT_GT(shortWav, 44) << "samples as well as the header wait in the buffer";
    EXPECT_LT(shortWav, 8192);
}

TEST_F(CommandsTest, existingOutputAsksBeforeOverwriting) {
    writeWholeFile(dir + "/song.oxa", {1, 2, 3});
    const std::string question = "file already exists: song.oxa\noverwrite? (Y/N)\n";
    struct Case { const char* answer; int status; std::string out; } cases[] = {
        {"n\n", 1, question + "aborting...\n"},
        {"\n", 1, question + "aborting...\n"},
        {nullptr, 1, question + "aborting...\n"},
        {"Y\n", 0, question},
    };
    for (const Case& c : cases)
        expectOutcome(run({"song.wav"}, c.answer), {c.status, c.out, ""}, {c.answer ? c.answer : "end of input"});
    EXPECT_GT(sizeOf(dir + "/song.oxa"), 3);
    expectOutcome(run({"-d", "song.oxa"}, "y"), {0, "file already exists: song.wav\noverwrite? (Y/N)\n", ""},
                  {"-d"});
}

// The parser's leniencies show in what the command echoes: packed letters,
// a value letter anywhere in its argument, later values winning, -q kept to
// 8 bits, a lone "-", control characters and high bytes, blanks around names.
TEST_F(CommandsTest, verboseCompressionEchoesSettingsAndStatistics) {
    struct Case { std::vector<std::string> arguments; std::string echo; } cases[] = {
        {{"-v", "-f", "song.wav"}, ""},
        {{"-vf", "-t", "0.0", "song.wav"}, ""},
        {{"-", "-\x01 v\xC3\xA9", "-f", " song.wav "}, ""},
        {{"-vq", "3", "-f", "song.wav"}, "using qbits: 3\n"},
        {{"-fqv", "9", "-q", "259", "song.wav"}, "using qbits: 3\n"},
        {{"-v", "-f", "-t", "-10", "song.wav"}, "using ATH ofs: -10.00 dB\n"},
        {{"-v", "-f", "-w", "1024", "-q", "8", "song.wav"}, "using qbits: 8\nusing win size: 1024\n"},
    };
    for (const Case& c : cases) {
        ProcessResult result = run(c.arguments);
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        ASSERT_EQ(result.out.rfind(c.echo, 0), 0u) << result.out;
        std::string stats = result.out.substr(c.echo.size());
        double ratio = 0, kbps = 0, seconds = -1;
        ASSERT_EQ(std::sscanf(stats.c_str(), "ratio: %lf%%\naverage bitrate: %lf kbps\ncompressed in %lf sec\n",
                              &ratio, &kbps, &seconds), 3) << stats;
        double expectedRatio = 100.0 * double(sizeOf(dir + "/song.oxa")) / double(sizeOf(dir + "/song.wav"));
        EXPECT_NEAR(ratio, expectedRatio, 0.051);
        // 22 blocks of 2048 frames (or 44 of 1024) at 44100 Hz last 1.0217 s.
        EXPECT_NEAR(kbps, 0.008 * double(sizeOf(dir + "/song.oxa")) / 1.0217, 0.51);
        EXPECT_GE(seconds, 0);
    }
}

TEST_F(CommandsTest, roundTripThroughTheToolKeepsTheMusic) {
    ASSERT_EQ(run({"-f", "song.wav"}).status, 0);
    ProcessResult result = run({"-v", "-f", "-d", "song.oxa", "-o", " back.wav "});
    ASSERT_EQ(result.status, 0) << result.err;
    double ratio = 0, kbps = 0, seconds = -1;
    ASSERT_EQ(std::sscanf(result.out.c_str(), "ratio: %lf%%\naverage bitrate: %lf kbps\ndecompressed in %lf sec\n",
                          &ratio, &kbps, &seconds), 3) << result.out;
    std::vector<uint8_t> original = readWholeFile(dir + "/song.wav");
    std::vector<uint8_t> back = readWholeFile(dir + "/back.wav");
    EXPECT_NEAR(ratio, 100.0 * double(sizeOf(dir + "/song.oxa")) / double(back.size()), 0.051);
    ASSERT_GE(back.size(), 44u);
    EXPECT_EQ(std::memcmp(back.data() + 8, original.data() + 8, 28), 0) << "same layout in the header";
    // One second at 44100 Hz is 21.5 blocks of 2048: 22 whole blocks come back, less the first.
    uint32_t dataBytes = back[40] | back[41] << 8 | back[42] << 16 | uint32_t(back[43]) << 24;
    EXPECT_EQ(dataBytes, 21u * 2048 * 4);
    ASSERT_EQ(back.size(), 44 + size_t(dataBytes));
    double signal = 0, noise = 0;
    for (size_t i = 44; i + 1 < back.size(); i += 2) {
        int16_t a = int16_t(original[i] | original[i + 1] << 8), b = int16_t(back[i] | back[i + 1] << 8);
        signal += double(a) * a;
        noise += double(a - b) * (a - b);
    }
    EXPECT_GT(10 * std::log10(signal / noise), 12.0);
}
