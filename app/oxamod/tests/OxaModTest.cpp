// OxaMod as a user meets it: the usage, every failure's one line and exit
// status, the -i report on a module built here and on real ones, the WAV
// that -o writes, and play through the real libasound.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "app/tests/support/ChildProcess.h"
#include "core/tests/support/TestSupport.h"

namespace {

const char* const usageText =
    "OxaMod module player v1.0\n"
    "usage: OxaMod [args] <file> [-o <outfile.wav>]\n"
    "       plays a MOD, S3M or XM module until a key is pressed\n"
    "       -o <file> render the song once to a 16-bit stereo WAV file\n"
    "       -r <n> sample rate in Hz (8000-192000, 44100=default)\n"
    "       -s <n> sub-song to play (0=default)\n"
    "       -i show what the module holds and how long it plays\n"
    "       -v show progress while rendering\n"
    "       -l <n> specify playback latency in msec (50=default)\n"
    "       -h show this help\n";

constexpr size_t PeriodFrames = 2205;  // the device's 50 ms period at 44100 Hz

// A 4-channel "M.K." module written byte by byte, two short sub-songs at
// speed 3: pattern 0 ends after 16 rows with a jump to itself, so order 1
// (pattern 1, broken off after 16 rows) is reachable only from its own start.
// Sample 1 is a looped square wave.
std::vector<uint8_t> twoSongModule() {
    std::vector<uint8_t> bytes(1084 + 2 * 1024, 0);
    std::memcpy(bytes.data(), "built tune", 10);
    uint8_t* sample = &bytes[20];
    std::memcpy(sample, "square", 6);
    sample[22] = 0, sample[23] = 32;  // length 32 words
    sample[25] = 64;                  // volume
    sample[28] = 0, sample[29] = 32;  // loop 0..32 words
    for (int i = 1; i < 31; ++i)
        bytes[20 + 30 * i + 29] = 1;  // empty slots: loop length 1 word
    bytes[950] = 2;                   // song length
    bytes[951] = 127;
    bytes[952] = 0, bytes[953] = 1;   // orders
    std::memcpy(&bytes[1080], "M.K.", 4);
    auto cell = [&](int pattern, int row, int channel, int period, int instrument, int effect, int parameter) {
        uint8_t* c = &bytes[1084 + pattern * 1024 + row * 16 + channel * 4];
        c[0] = uint8_t((instrument & 0xF0) | (period >> 8)), c[1] = uint8_t(period);
        c[2] = uint8_t((instrument & 0x0F) << 4 | effect), c[3] = uint8_t(parameter);
    };
    for (int pattern : {0, 1})
        cell(pattern, 0, 3, 0, 0, 0xF, 3);  // speed 3
    cell(0, 0, 0, 428, 1, 0, 0);
    cell(0, 8, 1, 214, 1, 0, 0);
    cell(0, 15, 0, 0, 0, 0xB, 0);     // position jump to order 0
    cell(1, 0, 2, 320, 1, 0, 0);
    cell(1, 15, 0, 0, 0, 0xD, 0x00);  // pattern break
    for (int i = 0; i < 64; ++i)
        bytes.push_back(uint8_t(i < 32 ? 0x40 : 0xC0));
    return bytes;
}

// "key: value" lines of an -i report.
std::map<std::string, std::string> infoFields(const std::string& text) {
    std::map<std::string, std::string> fields;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        size_t colon = line.find(':');
        if (colon != std::string::npos)
            fields[line.substr(0, colon)] = colon + 2 <= line.size() ? line.substr(colon + 2) : "";
    }
    return fields;
}

std::vector<double> numbers(const std::string& text) {
    std::vector<double> values;
    std::istringstream in(text);
    for (double v; in >> v;)
        values.push_back(v);
    return values;
}

uint32_t le32(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | uint32_t(b[at + 3]) << 24;
}
uint16_t le16(const std::vector<uint8_t>& b, size_t at) { return uint16_t(b[at] | b[at + 1] << 8); }

bool exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

class OxaModTest : public testing::Test {
protected:
    void SetUp() override {
        dir = temporaryDirectory();
        writeWholeFile(dir + "/tune.mod", twoSongModule());
    }
    ProcessResult run(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {}) {
        return runProgram(OXAMOD_EXECUTABLE, arguments, nullptr, dir, environment);
    }
    std::string dir;
};

}  // namespace

TEST_F(OxaModTest, usageAndFailuresPrintOneLineWithTheirStatus) {
    writeWholeFile(dir + "/notes.txt", std::vector<uint8_t>(100, 'x'));  // below any format's header
    writeWholeFile(dir + "/empty-alsa.conf", {});                         // a system without a sound card
    const std::string noCard = "ALSA_CONFIG_PATH=" + dir + "/empty-alsa.conf";
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string out, err;
        std::string environment = "";
    } cases[] = {
        {{}, 0, usageText, ""},
        {{"-h", "tune.mod"}, 0, usageText, ""},
        {{"-v", "--help"}, 0, usageText, ""},
        {{"-x", "tune.mod"}, 1, "", "invalid argument: -x\n"},
        {{"-", "tune.mod"}, 1, "", "invalid argument: -\n"},
        {{"-or", "a.wav", "tune.mod"}, 1, "", "invalid argument: -or\n"},
        {{"tune.mod", "-r"}, 1, "", "invalid argument: -r\n"},
        {{"-r", "44k", "tune.mod"}, 1, "", "invalid value for -r: 44k\n"},
        {{"-r", "7999", "tune.mod"}, 1, "", "invalid value for -r: 7999\n"},
        {{"-s", "-1", "tune.mod"}, 1, "", "invalid value for -s: -1\n"},
        {{"-l", "0", "tune.mod"}, 1, "", "invalid value for -l: 0\n"},
        {{"tune.mod", "other.mod"}, 1, "", "invalid extra filename: other.mod\n"},
        {{"-o", "a.wav", "-o", "b.wav", "tune.mod"}, 1, "", "invalid extra output filename: b.wav\n"},
        {{"-i", "missing.mod"}, 1, "", "failed to open missing.mod\n"},
        {{"-i", "notes.txt"}, 1, "", "not a module: notes.txt\n"},
        {{"-i", "-s", "2", "tune.mod"}, 1, "", "invalid sub-song: 2 (tune.mod has 2)\n"},
        {{"-o", "no/such/dir/out.wav", "tune.mod"}, 1, "", "failed to create: no/such/dir/out.wav\n"},
        {{"-o", "/dev/full", "tune.mod"}, 1, "", "failed to write /dev/full\n"},
        {{"-o", "/dev/full", "-r", "8000", "tune.mod"}, 1, "", "failed to write /dev/full\n"},  // all in the buffer
        {{"tune.mod"}, 1, "", "failed to open playback device @44kHz\n", noCard},
        {{"-r", "22050", "tune.mod"}, 1, "", "failed to open playback device @22kHz\n", noCard},
    };
    for (const Case& c : cases) {
        if (c.arguments.size() > 1 && c.arguments[1] == "/dev/full" && !exists("/dev/full"))
            continue;  // a disk that is always full: not every sandbox has one
        std::vector<std::string> environment;
        if (!c.environment.empty())
            environment.push_back(c.environment);
        expectOutcome(run(c.arguments, environment), {c.status, c.out, c.err}, c.arguments);
    }
    EXPECT_FALSE(exists(dir + "/a.wav"));
}

TEST_F(OxaModTest, infoReportsWhatTheFileDeclares) {
    struct Case {
        std::string path;
        std::string expected;  // every line before "duration"
        size_t subsongs;
    } cases[] = {
        {dir + "/tune.mod",
         "format: MOD\ntitle: built tune\ntracker: Unknown (Amiga Module)\nchannels: 4\norders: 2\npatterns: 2\n"
         "instruments: 31\nsamples: 31\nsubsongs: 2\n", 2},
        {corpusPath("mod/AnarchyMenu1.mod"),
         "format: MOD\ntitle: an1\ntracker: Unknown (Amiga Module)\nchannels: 4\norders: 17\npatterns: 11\n"
         "instruments: 31\nsamples: 31\nsubsongs: 1\n", 1},
        {corpusPath("mod/starpaws.mod"),
         "format: MOD\ntitle:\ntracker: Unknown (Amiga Module)\nchannels: 6\norders: 22\npatterns: 20\n"
         "instruments: 31\nsamples: 31\nsubsongs: 1\n", 1},
        {corpusPath("s3m/pachi_menu.s3m"),
         "format: S3M\ntitle: Realm of Chaos\ntracker: Impulse Tracker 2.14\nchannels: 9\norders: 44\n"
         "patterns: 41\ninstruments: 22\nsamples: 22\nsubsongs: 1\n", 1},
        {corpusPath("xm/heroes_heroes02.xm"),  // four instruments without a sample
         "format: XM\ntitle: <-- Caeros -->\ntracker: FastTracker v2.00\nchannels: 10\norders: 58\n"
         "patterns: 39\ninstruments: 16\nsamples: 12\nsubsongs: 1\n", 1},
    };
    for (const Case& c : cases) {
        if (!exists(c.path)) {
            std::printf("skipped %s: shared corpus not found\n", c.path.c_str());
            continue;
        }
        ProcessResult result = run({"-i", c.path});
        ASSERT_EQ(result.status, 0) << c.path << ": " << result.err;
        EXPECT_EQ(result.err, "");
        size_t durationLine = result.out.find("duration:");
        ASSERT_NE(durationLine, std::string::npos) << result.out;
        EXPECT_EQ(result.out.substr(0, durationLine), c.expected) << c.path;
        std::vector<double> durations = numbers(result.out.substr(durationLine + 9));
        ASSERT_EQ(durations.size(), c.subsongs) << result.out;
        for (double seconds : durations)
            EXPECT_GT(seconds, 0.0) << c.path;
        EXPECT_EQ(result.out.back(), '\n');
    }
}

// One pass of the sub-song -i describes, at several rates: a canonical header
// whose sizes match the file, and as many frames as the reported duration.
TEST_F(OxaModTest, renderWritesOnePassAsAStereoWav) {
    std::vector<double> durations = numbers(infoFields(run({"-i", "tune.mod"}).out)["duration"]);
    ASSERT_EQ(durations.size(), 2u);
    struct Case { uint32_t rate; int subsong; bool verbose; } cases[] = {
        {44100, 0, false}, {22050, 1, true}, {8000, 0, true}, {48000, 1, false},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments = {"-o", "out.wav", "-r", std::to_string(c.rate),
                                              "-s", std::to_string(c.subsong), "tune.mod"};
        if (c.verbose)
            arguments.insert(arguments.begin(), "-v");
        ProcessResult result = run(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.empty(), !c.verbose) << result.err;
        if (c.verbose) {
            EXPECT_NE(result.err.find("\nrendered "), std::string::npos) << result.err;
        }
        std::vector<uint8_t> wav = readWholeFile(dir + "/out.wav");
        ASSERT_GE(wav.size(), 44u);
        EXPECT_EQ(std::string(wav.begin(), wav.begin() + 4), "RIFF");
        EXPECT_EQ(le32(wav, 4), wav.size() - 8);
        EXPECT_EQ(std::string(wav.begin() + 8, wav.begin() + 16), "WAVEfmt ");
        EXPECT_EQ(le32(wav, 16), 16u);
        EXPECT_EQ(le16(wav, 20), 1) << "PCM";
        EXPECT_EQ(le16(wav, 22), 2) << "stereo";
        EXPECT_EQ(le32(wav, 24), c.rate);
        EXPECT_EQ(le32(wav, 28), c.rate * 4);
        EXPECT_EQ(le16(wav, 32), 4);
        EXPECT_EQ(le16(wav, 34), 16);
        EXPECT_EQ(std::string(wav.begin() + 36, wav.begin() + 40), "data");
        EXPECT_EQ(le32(wav, 40), wav.size() - 44);
        double seconds = double(le32(wav, 40) / 4) / c.rate;
        EXPECT_NEAR(seconds, durations[c.subsong], 0.02) << c.rate << " Hz, sub-song " << c.subsong;
    }
}

// Play sends what -o writes: after the device's primed period of silence
// the capture is the render's frames, and it keeps going past the song's end.
TEST_F(OxaModTest, playSendsTheRenderedSongToTheDevice) {
    ASSERT_EQ(run({"-o", "once.wav", "tune.mod"}).status, 0);
    std::vector<uint8_t> once = readWholeFile(dir + "/once.wav");
    ASSERT_GT(once.size(), 44u);
    size_t songBytes = once.size() - 44;
    int status = -1;
    std::vector<uint8_t> captured =
        capturePlayback(OXAMOD_EXECUTABLE, dir, {"tune.mod"}, PeriodFrames * 4 + songBytes + 4096, status);
    EXPECT_EQ(status, 0);
    ASSERT_GE(captured.size(), PeriodFrames * 4 + songBytes + 4096) << "playback stopped at the song's end";
    for (size_t i = 0; i < PeriodFrames * 4; ++i)
        ASSERT_EQ(captured[i], 0) << "primed silence at byte " << i;
    size_t mismatches = 0, first = 0;
    for (size_t i = 0; i < songBytes; ++i) {
        if (captured[PeriodFrames * 4 + i] != once[44 + i] && mismatches++ == 0)
            first = i;
    }
    EXPECT_EQ(mismatches, 0u) << "first difference at byte " << first << " of " << songBytes;
}
