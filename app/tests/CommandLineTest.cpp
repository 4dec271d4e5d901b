// The command line as a user meets it: messages on standard error, the usage
// text on standard output, exit status 0. The values the parser stores show
// in the commands' output (CommandsTest).
#include <gtest/gtest.h>

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
    for (const Case& c : cases)
        expectOutcome(runOxa(c.arguments), {0, usageText, c.err}, c.arguments);
}
