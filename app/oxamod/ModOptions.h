// ModOptions: what the OxaMod command line asks for, its parser and its usage
// text. The parser prints one line on standard error for each argument it
// refuses; the commands judge what only the loaded module can tell (whether
// the sub-song exists). Used by runOxaMod.
#pragma once

#include <cstdint>

#include "core/String.h"

struct ModOptions {
    String inputName;
    String outputName;           // -o: render to this WAV file instead of playing
    uint32_t sampleRate = 44100; // -r
    int32_t subsong = 0;         // -s
    int32_t latencyMs = 50;      // -l: playback period
    bool showInfo = false;       // -i
    bool verbose = false;        // -v: progress while rendering
};

enum class ParseOutcome { Run, ShowUsage, Failed };

// -h, --help or no input name: ShowUsage. A refused argument: its line on
// standard error, then Failed.
ParseOutcome parseModOptions(int argc, char** argv, ModOptions& options);

// The usage text, on standard output.
void printModUsage();
