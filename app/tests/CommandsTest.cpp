// The three commands as a user meets them: every message on its stream,
// the exit status, and the files left behind.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "app/tests/ProcessRunner.h"
#include "core/tests/support/TestSupport.h"

namespace {

// A canonical 16-bit PCM WAV file, written independently of the product.
std::vector<uint8_t> wavBytes(const std::vector<int16_t>& samples, uint32_t rate, uint16_t channels) {
    uint32_t dataBytes = uint32_t(samples.size() * 2);
    std::vector<uint8_t> out;
    auto put32 = [&](uint32_t v) { for (int i = 0; i < 4; ++i) out.push_back(uint8_t(v >> (8 * i))); };
    auto put16 = [&](uint16_t v) { out.push_back(uint8_t(v)); out.push_back(uint8_t(v >> 8)); };
    auto tag = [&](const char* t) { for (int i = 0; i < 4; ++i) out.push_back(uint8_t(t[i])); };
    tag("RIFF"); put32(36 + dataBytes); tag("WAVE"); tag("fmt "); put32(16);
    put16(1); put16(channels); put32(rate); put32(rate * channels * 2); put16(uint16_t(channels * 2)); put16(16);
    tag("data"); put32(dataBytes);
    for (int16_t s : samples) put16(uint16_t(s));
    return out;
}

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

// Full-scale noise from a fixed seed: it hardly compresses.
std::vector<int16_t> noise(int frames, int channels) {
    std::vector<int16_t> samples(size_t(frames) * channels);
    uint32_t state = 12345;
    for (int16_t& s : samples) {
        state = state * 1664525u + 1013904223u;
        s = int16_t(state >> 16);
    }
    return samples;
}

bool exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

off_t sizeOf(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_size : -1;
}

class CommandsTest : public testing::Test {
protected:
    void SetUp() override {
        dir = temporaryDirectory();
        writeWholeFile(dir + "/song.wav", wavBytes(music(44100, 2, 44100), 44100, 2));
    }
    ProcessResult run(const std::vector<std::string>& arguments, const char* input = nullptr) {
        return runOxa(arguments, input, dir);
    }
    std::string dir;
};

}  // namespace

TEST_F(CommandsTest, failuresPrintTheirLineOnTheirStream) {
    writeWholeFile(dir + "/noise.wav", std::vector<uint8_t>(100, 0x55));
    writeWholeFile(dir + "/songwav", readWholeFile(dir + "/song.wav"));
    writeWholeFile(dir + "/song", std::vector<uint8_t>(64, 0));
    writeWholeFile(dir + "/tune.mod", std::vector<uint8_t>(2000, 0));
    writeWholeFile(dir + "/wide.wav", wavBytes(music(100, 257, 8000), 8000, 257));
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string out, err;
    } cases[] = {
        {{"missing.wav"}, 1, "", "failed to open missing.wav\n"},
        {{"-d", "missing.oxa"}, 1, "", "failed to open missing.oxa\n"},
        {{"songwav"}, 1, "failed to create: songwav/.oxa\n", ""},
        {{"-d", "songwav"}, 1, "failed to create: songwav/.oxa\n", ""},  // a name ending in wav is compressed
        {{"-d", "song"}, 1, "failed to create: song/.wav\n", ""},
        {{"-f", "noise.wav"}, 1, "failed to open input: noise.wav\n", ""},
        {{"-f", "-q", "9", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-q", "1", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-w", "3000", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-w", "65536", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-w", "11", "song.wav"}, 1, "failed to create output: song.oxa\n", ""},
        {{"-f", "-d", "tune.mod"}, 1, "failed to open input: tune.mod\n", ""},
        {{"-f", "wide.wav"}, 1, "failed to create output: wide.oxa\n", ""},  // the encoder takes 256 channels
        {{"-p", "missing.oxa"}, 0, "", "failed to open input: missing.oxa\n"},
        {{"missing.oxa"}, 0, "", "failed to open input: missing.oxa\n"},
    };
    for (const Case& c : cases)
        expectOutcome(run(c.arguments), {c.status, c.out, c.err}, c.arguments);
    // The encoder refuses its settings after the output was created: it stays, empty.
    EXPECT_EQ(sizeOf(dir + "/song.oxa"), 0);
    EXPECT_EQ(sizeOf(dir + "/wide.oxa"), 0);
    EXPECT_EQ(sizeOf(dir + "/tune.wav"), 0);
    EXPECT_FALSE(exists(dir + "/missing.oxa"));
}

// The last writes (the final flush, the header patch, the file's close) count
// like the others, for outputs that never leave the 8192-byte buffer before
// the end as much as for larger ones.
TEST_F(CommandsTest, aFullDiskFailsTheCommandWhateverTheOutputSize) {
    if (!exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full here: it stands for a full disk";
    writeWholeFile(dir + "/short.wav", wavBytes(music(3000, 1, 8000), 8000, 1));
    writeWholeFile(dir + "/long.wav", wavBytes(noise(22050, 2), 44100, 2));
    for (const char* name : {"short", "long"})
        ASSERT_EQ(run({"-f", std::string(name) + ".wav"}).status, 0) << name;
    ASSERT_LT(sizeOf(dir + "/short.oxa"), 8192);
    ASSERT_GT(sizeOf(dir + "/long.oxa"), 8192);
    // Names ending in wav are compressed, -d or not.
    for (const char* input : {"short.wav", "long.wav", "short.oxa", "long.oxa"}) {
        ProcessResult result = run({"-f", "-d", input, "-o", "/dev/full"});
        EXPECT_EQ(result.status, 1) << input;
        EXPECT_EQ(result.out, "") << input;
        EXPECT_EQ(result.err, "failed to write /dev/full\n") << input;
    }
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
    for (const Case& c : cases) {
        ProcessResult result = run({"song.wav"}, c.answer);
        EXPECT_EQ(result.status, c.status) << (c.answer ? c.answer : "end of input");
        EXPECT_EQ(result.out, c.out) << (c.answer ? c.answer : "end of input");
        EXPECT_EQ(result.err, "");
    }
    EXPECT_GT(sizeOf(dir + "/song.oxa"), 3);
    ProcessResult again = run({"-d", "song.oxa"}, "y");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "file already exists: song.wav\noverwrite? (Y/N)\n");
}

TEST_F(CommandsTest, verboseCompressionEchoesSettingsAndStatistics) {
    struct Case { std::vector<std::string> arguments; std::string echo; } cases[] = {
        {{"-v", "-f", "song.wav"}, ""},
        {{"-v", "-f", "-t", "0.0", "song.wav"}, ""},
        {{"-v", "-f", "-q", "3", "song.wav"}, "using qbits: 3\n"},
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
        EXPECT_GT(kbps, 0);
        EXPECT_GE(seconds, 0);
    }
}

TEST_F(CommandsTest, roundTripThroughTheToolKeepsTheMusic) {
    ASSERT_EQ(run({"-f", "song.wav"}).status, 0);
    ProcessResult result = run({"-v", "-f", "-d", "song.oxa", "-o", "back.wav"});
    ASSERT_EQ(result.status, 0) << result.err;
    double ratio = 0, kbps = 0, seconds = -1;
    ASSERT_EQ(std::sscanf(result.out.c_str(), "ratio: %lf%%\naverage bitrate: %lf kbps\ndecompressed in %lf sec\n",
                          &ratio, &kbps, &seconds), 3) << result.out;
    std::vector<uint8_t> original = readWholeFile(dir + "/song.wav");
    std::vector<uint8_t> back = readWholeFile(dir + "/back.wav");
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

TEST_F(CommandsTest, playWithoutASoundCardReportsTheDeviceAndExitsZero) {
    ASSERT_EQ(run({"-f", "song.wav"}).status, 0);
    // A configuration without any card: the null device stands in and cannot start.
    std::string config = dir + "/empty-alsa.conf";
    writeWholeFile(config, std::vector<uint8_t>());
    for (const char* name : {"song.oxa", "song.wav"}) {
        std::vector<std::string> arguments = {name};
        if (std::string(name).find("wav") != std::string::npos)
            arguments.insert(arguments.begin(), "-p");
        ProcessResult result = runOxa(arguments, nullptr, dir, {"ALSA_CONFIG_PATH=" + config});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "failed to open playback device @44kHz\n");
    }
}
