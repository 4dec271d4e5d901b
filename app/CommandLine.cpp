// CommandLine: argument parsing and the usage text.
#include "app/CommandLine.h"

#include <cstdio>
#include <cstdlib>

#include "app/Commands.h"
#include "app/Settings.h"

namespace {

bool setRunMode(int32_t mode) {
    int32_t other = mode == RunDecompress ? RunPlay : RunDecompress;
    if (settings.runMode == other) {
        std::fputs("cannot combine -d and -p\n", stderr);
        return false;
    }
    settings.runMode = mode;
    return true;
}

int32_t valueCodeOf(char letter) {
    switch (letter) {
    case 'o': return FlagOutput;
    case 't': return FlagAth;
    case 'q': return FlagQbits;
    case 'w': return FlagWindow;
    case 'l': return FlagLatency;
    default: return 0;
    }
}

void storeValue(int32_t code, const char* value) {
    switch (code) {
    case FlagAth: settings.athOffset = float(std::strtod(value, nullptr)); break;
    case FlagQbits: settings.qbits = uint8_t(std::strtol(value, nullptr, 10)); break;
    case FlagWindow: settings.windowSize = int32_t(std::strtol(value, nullptr, 10)); break;
    case FlagLatency: settings.latencyMs = int32_t(std::strtol(value, nullptr, 10)); break;
    default: break;
    }
}

bool invalidArgument(const char* argument) {
    std::fprintf(stderr, "invalid argument: %s\n", argument);
    return false;
}

}  // namespace

int32_t parseFlagLetters(const char* letters) {
    int32_t valueCode = 0;
    for (const char* c = letters; *c; ++c) {
        if (int(static_cast<signed char>(*c)) <= 32)
            continue;  // blanks, control characters and bytes above 127 pass silently
        switch (*c) {
        case 'd':
            if (!setRunMode(RunDecompress))
                return 1;
            break;
        case 'p':
            if (!setRunMode(RunPlay))
                return 1;
            break;
        case 'v': settings.verbose = true; break;
        case 'f': settings.force = true; break;
        case 'o': case 't': case 'q': case 'w': case 'l':
            if (valueCode != 0) {
                std::fputs("cannot pack -o, -t, -q, -w, -l into one\n", stderr);
                return 1;
            }
            valueCode = valueCodeOf(*c);
            break;
        default:
            return 1;
        }
    }
    return valueCode;
}

bool parseArguments(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (argument[0] == '-') {
            int32_t code = parseFlagLetters(argument + 1);
            if (code == 0)
                continue;
            if (code == 1 || i + 1 >= argc)
                return invalidArgument(argument);
            const char* value = argv[++i];
            if (code != FlagOutput) {
                storeValue(code, value);
            } else if (!settings.outputName.isEmpty()) {
                std::fprintf(stderr, "invalid extra output filename: %s\n", value);
                return false;
            } else {
                settings.outputName = value;
            }
        } else if (!settings.inputName.isEmpty()) {
            std::fprintf(stderr, "invalid extra filename: %s\n", argument);
            return false;
        } else {
            settings.inputName = argument;
        }
    }
    settings.inputName = settings.inputName.trimmed();
    settings.outputName = settings.outputName.trimmed();
    if (settings.runMode == RunPlay && !settings.outputName.isEmpty()) {
        std::fputs("cannot combine -p and -o\n", stderr);
        return false;
    }
    if (settings.inputName.isEmpty()) {
        std::fputs("input file not specified\n", stderr);
        return false;
    }
    return true;
}

void printUsage() {
    std::fputs("Oxa audio codec v1.0\n"
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
               "              increase this if you experience playback problems\n",
               stdout);
}

int runCommandLine(int argc, char** argv) {
    if (!parseArguments(argc, argv)) {
        std::fflush(stderr);
        printUsage();
        return 0;
    }
    return runCommand();
}
