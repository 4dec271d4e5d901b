// OxaMod as a user meets it: the usage, every failure's one line and exit
// status, the -i report on a module built here and on real ones, the WAV
// that -o writes, read back by our reader, and play through the real libasound.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "app/tests/support/ChildProcess.h"
#include "audio/tests/WavBuilder.h"
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

// The seconds on the "duration:" line of an -i report, one per sub-song.
std::vector<double> durationsIn(const std::string& report) {
    std::vector<double> values;
    const size_t at = report.find("duration:");
    std::istringstream in(at == std::string::npos ? "" : report.substr(at + 9));
    for (double v; in >> v;)
        values.push_back(v);
    return values;
}

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
        EXPECT_EQ(result.out.substr(0, result.out.find("duration:")), c.expected) << c.path;
        std::vector<double> durations = durationsIn(result.out);
        ASSERT_EQ(durations.size(), c.subsongs) << result.out;
        for (double seconds : durations)
            EXPECT_GT(seconds, 0.0) << c.path;
        EXPECT_EQ(result.out.back(), '\n');
    }
}

// One pass of the sub-song -i describes, at several rates: a stereo 16-bit
// WAV file that our reader takes whole, as long as the reported duration.
TEST_F(OxaModTest, renderWritesOnePassAsAStereoWav) {
    std::vector<double> durations = durationsIn(run({"-i", "tune.mod"}).out);
    ASSERT_EQ(durations.size(), 2u);
    struct Case { uint32_t rate; int subsong; bool verbose; } cases[] = {
        {44100, 0, false}, {22050, 1, true}, {8000, 0, true}, {48000, 1, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz, sub-song " << c.subsong);
        std::vector<std::string> arguments = {"-o", "out.wav", "-r", std::to_string(c.rate),
                                              "-s", std::to_string(c.subsong), "tune.mod"};
        if (c.verbose)
            arguments.insert(arguments.begin(), "-v");
        ProcessResult result = run(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.empty(), !c.verbose) << result.err;
        EXPECT_EQ(result.err.find("\nrendered ") != std::string::npos, c.verbose) << result.err;
        const Bytes wav = readWholeFile(dir + "/out.wav");
        OpenedWav<AudioFile> opened(wav);
        ASSERT_TRUE(opened.ok);
        EXPECT_EQ(opened.file.sampleRate(), c.rate);
        EXPECT_EQ(opened.file.channels(), 2);
        EXPECT_EQ(opened.file.fileSampleFormat(), Int16);
        Bytes frames;
        ASSERT_TRUE(readAll(opened.file, 4096, 2, Int16, frames));  // the sizes in the header are right
        EXPECT_EQ(frames.size(), wav.size() - 44);
        EXPECT_NEAR(double(frames.size() / 4) / c.rate, durations[c.subsong], 0.02);
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
