// The command line as a user meets it: messages on standard error, the usage
// text on standard output, exit status 0; and the values the parser stores.
#include <gtest/gtest.h>

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/tests/ProcessRunner.h"

TEST(CommandLineTest, syntaxErrorsPrintTheirMessagesThenTheUsage) {
    struct Case {
        std::vector<std::string> arguments;
        std::string err;
    } cases[] = {
        {{}, "input file not specified\n"},
        {{"-v", "-f"}, "input file not specified\n"},
        {{"-dp", "x.oxa"}, "cannot combine -d and -p\ninvalid argument: -dp\n"},
        {{"-d", "-p", "x.oxa"}, "cannot combine -d and -p\ninvalid argument: -p\n"},
        {{"-qw", "5", "x.wav"}, "cannot pack -o, -t, -q, -w, -l into one\ninvalid argument: -qw\n"},
        {{"x.wav", "-q"}, "invalid argument: -q\n"},
        {{"a.wav", "b.wav"}, "invalid extra filename: b.wav\n"},
        {{"-o", "a.wav", "-o", "b.wav", "x.oxa"}, "invalid extra output filename: b.wav\n"},
        {{"-p", "-o", "x", "y.oxa"}, "cannot combine -p and -o\n"},
        {{"   "}, "input file not specified\n"},
        {{"-z", "x.wav"}, "invalid argument: -z\n"},
        {{"-vz", "x.wav"}, "invalid argument: -vz\n"},
    };
    for (const Case& c : cases) {
        ProcessResult result = runOxa(c.arguments);
        std::string shown;
        for (const std::string& a : c.arguments)
            shown += "[" + a + "] ";
        EXPECT_EQ(result.status, 0) << shown;
        EXPECT_EQ(result.err, c.err) << shown;
        EXPECT_EQ(result.out, usageText) << shown;
    }
}

namespace {

bool parse(std::vector<const char*> arguments) {
    settings = Settings();
    arguments.insert(arguments.begin(), "Oxa");
    std::vector<char*> argv;
    for (const char* a : arguments)
        argv.push_back(const_cast<char*>(a));
    testing::internal::CaptureStderr();
    bool ok = parseArguments(int(argv.size()), argv.data());
    testing::internal::GetCapturedStderr();
    return ok;
}

}  // namespace

TEST(CommandLineTest, valuesAreStoredAsGiven) {
    ASSERT_TRUE(parse({"-vq", "6", " song.wav ", "-t", "-10.5", "-w", "1024", "-l", "120", "-f"}));
    EXPECT_TRUE(settings.verbose);
    EXPECT_TRUE(settings.force);
    EXPECT_EQ(settings.qbits, 6);
    EXPECT_FLOAT_EQ(settings.athOffset, -10.5f);
    EXPECT_EQ(settings.windowSize, 1024);
    EXPECT_EQ(settings.latencyMs, 120);
    EXPECT_STREQ(settings.inputName.c_str(), "song.wav");

    ASSERT_TRUE(parse({"-qv", "6", "x"}));
    EXPECT_EQ(settings.qbits, 6);
    EXPECT_TRUE(settings.verbose);

    ASSERT_TRUE(parse({"-q", "abc", "-w", "x11", "x"}));  // not numbers: stored as 0, unreported
    EXPECT_EQ(settings.qbits, 0);
    EXPECT_EQ(settings.windowSize, 0);

    ASSERT_TRUE(parse({"-q", "300", "-q", "4", "-w", "65536", "x"}));  // later values win
    EXPECT_EQ(settings.qbits, 4);
    EXPECT_EQ(settings.windowSize, 65536);
    ASSERT_TRUE(parse({"-q", "300", "x"}));
    EXPECT_EQ(settings.qbits, 300 & 0xFF);

    ASSERT_TRUE(parse({"-", "-d", "-o", " out.wav ", "x"}));  // a lone "-" is ignored
    EXPECT_EQ(settings.runMode, RunDecompress);
    EXPECT_STREQ(settings.outputName.c_str(), "out.wav");

    ASSERT_TRUE(parse({"-\x01v\xC3\xA9", "x"}));  // control characters and high bytes pass silently
    EXPECT_TRUE(settings.verbose);
    settings = Settings();
}

TEST(CommandLineTest, flagLettersReportTheirValueCode) {
    struct Case { const char* letters; int32_t code; } cases[] = {
        {"", 0}, {"vf", 0}, {"o", FlagOutput}, {"t", FlagAth}, {"q", FlagQbits}, {"w", FlagWindow},
        {"l", FlagLatency}, {"vl", FlagLatency}, {"lv", FlagLatency}, {"x", 1}, {"qt", 1},
    };
    for (const Case& c : cases) {
        settings = Settings();
        testing::internal::CaptureStderr();
        EXPECT_EQ(parseFlagLetters(c.letters), c.code) << c.letters;
        testing::internal::GetCapturedStderr();
    }
    settings = Settings();
}
