// ProcessRunner: runs the built Oxa executable as a user would, feeding its
// standard input and capturing both output streams separately.
#pragma once

#include <string>
#include <vector>

#include "app/tests/support/ChildProcess.h"

inline ProcessResult runOxa(const std::vector<std::string>& arguments, const char* stdinText = nullptr,
                            const std::string& workingDirectory = "",
                            const std::vector<std::string>& environment = {}) {
    return runProgram(OXA_EXECUTABLE, arguments, stdinText, workingDirectory, environment);
}

// The usage text exactly as the tool prints it.
inline const char* const usageText =
    "Oxa audio codec v1.0\n"
    "usage: Oxa [args] <file> [-o <outfile>]\n"
    "       -d decompress\n"
    "       -p force playback\n"
    "       -f force to overwrite output\n"
    "       -o override output file\n"
    "       -v verbose mode\n"
    "       -t <n> ATH offset in dB (0=default, <0 causes less cutoffs)\n"
    "       -q <n> set quantization bits (4-8, 5=default)\n"
    "       -w <n> specify window size (2^n, 2048=default)\n"
    "       -l <n> specify playback latency in msec (50=default)\n"
    "              increase this if you experience playback problems\n";
