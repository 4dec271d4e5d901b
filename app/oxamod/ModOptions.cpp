// ModOptions: switches may be packed (-iv); a value letter (-o, -r, -s, -l)
// takes the next argument, and only one of them may stand in a packed
// argument, as in Oxa. Numbers must be whole decimal numbers in range:
// unlike Oxa, nothing is taken as 0 silently.
#include "app/oxamod/ModOptions.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Accepted ranges. Rates outside 8 kHz..192 kHz are no use for music, and a
// period above ten seconds is no longer "playing".
constexpr long MinRate = 8000, MaxRate = 192000;
constexpr long MaxSubsong = 65535;
constexpr long MinLatencyMs = 1, MaxLatencyMs = 10000;

bool refuse(const char* format, const char* argument) {
    std::fprintf(stderr, format, argument);
    return false;
}

// A whole decimal number in [low, high]; false for anything else.
bool parseNumber(const char* text, long low, long high, long& value) {
    if (*text == '\0')
        return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtol(text, &end, 10);
    return errno == 0 && *end == '\0' && value >= low && value <= high;
}

bool storeValue(char letter, const char* value, ModOptions& options) {
    long number = 0;
    switch (letter) {
    case 'o':
        if (!options.outputName.isEmpty())
            return refuse("invalid extra output filename: %s\n", value);
        options.outputName = String(value).trimmed();
        if (options.outputName.isEmpty())
            return refuse("invalid output filename: '%s'\n", value);
        return true;
    case 'r':
        if (!parseNumber(value, MinRate, MaxRate, number))
            return refuse("invalid value for -r: %s\n", value);
        options.sampleRate = uint32_t(number);
        return true;
    case 's':
        if (!parseNumber(value, 0, MaxSubsong, number))
            return refuse("invalid value for -s: %s\n", value);
        options.subsong = int32_t(number);
        return true;
    default:  // 'l'
        if (!parseNumber(value, MinLatencyMs, MaxLatencyMs, number))
            return refuse("invalid value for -l: %s\n", value);
        options.latencyMs = int32_t(number);
        return true;
    }
}

// The letters of one "-..." argument: switches take effect at once; the
// value letter, if any, is returned in `valueLetter`.
bool parseLetters(const char* argument, ModOptions& options, bool& wantsUsage, char& valueLetter) {
    valueLetter = 0;
    if (argument[1] == '\0')
        return refuse("invalid argument: %s\n", argument);
    for (const char* c = argument + 1; *c; ++c) {
        switch (*c) {
        case 'h': wantsUsage = true; break;
        case 'i': options.showInfo = true; break;
        case 'v': options.verbose = true; break;
        case 'o': case 'r': case 's': case 'l':
            if (valueLetter != 0)
                return refuse("invalid argument: %s\n", argument);
            valueLetter = *c;
            break;
        default:
            return refuse("invalid argument: %s\n", argument);
        }
    }
    return true;
}

}  // namespace

ParseOutcome parseModOptions(int argc, char** argv, ModOptions& options) {
    bool wantsUsage = false;
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (std::strcmp(argument, "--help") == 0) {
            wantsUsage = true;
        } else if (argument[0] == '-') {
            char valueLetter = 0;
            if (!parseLetters(argument, options, wantsUsage, valueLetter))
                return ParseOutcome::Failed;
            if (valueLetter == 0)
                continue;
            if (i + 1 >= argc) {
                refuse("invalid argument: %s\n", argument);
                return ParseOutcome::Failed;
            }
            if (!storeValue(valueLetter, argv[++i], options))
                return ParseOutcome::Failed;
        } else if (!options.inputName.isEmpty()) {
            refuse("invalid extra filename: %s\n", argument);
            return ParseOutcome::Failed;
        } else {
            options.inputName = String(argument).trimmed();
        }
    }
    return wantsUsage || options.inputName.isEmpty() ? ParseOutcome::ShowUsage : ParseOutcome::Run;
}

void printModUsage() {
    std::fputs("OxaMod module player v1.0\n"
               "usage: OxaMod [args] <file> [-o <outfile.wav>]\n"
               "       plays a MOD, S3M or XM module until a key is pressed\n"
               "       -o <file> render the song once to a 16-bit stereo WAV file\n"
               "       -r <n> sample rate in Hz (8000-192000, 44100=default)\n"
               "       -s <n> sub-song to play (0=default)\n"
               "       -i show what the module holds and how long it plays\n"
               "       -v show progress while rendering\n"
               "       -l <n> specify playback latency in msec (50=default)\n"
               "       -h show this help\n",
               stdout);
}
