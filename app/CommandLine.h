// CommandLine: parses the arguments into Settings, reports syntax errors on
// standard error and prints the usage text on standard output when parsing
// fails. Never touches a file and checks no ranges.
#pragma once

#include <cstdint>

// Codes parseFlagLetters returns besides 0 (switches only) and 1 (error).
enum FlagValue : int32_t {
    FlagOutput = -1,   // o
    FlagAth = -2,      // t
    FlagQbits = -3,    // q
    FlagWindow = -4,   // w
    FlagLatency = -5,  // l
};

int32_t parseFlagLetters(const char* letters);
bool parseArguments(int argc, char** argv);
void printUsage();
// The process exit status: 0 when the usage was shown, else the command's.
int runCommandLine(int argc, char** argv);
