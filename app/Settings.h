// Settings: the process-wide option record filled from the command line.
// The parser stores values as given; the commands and the encoder judge them.
#pragma once

#include <cstdint>

#include "core/String.h"

enum RunMode : int32_t { RunByFileName = 0, RunDecompress = 1, RunPlay = 2 };

struct Settings {
    int32_t runMode = RunByFileName;
    bool verbose = false;
    bool force = false;        // overwrite an existing output without asking
    float athOffset = 0.0f;    // dB added to the threshold of hearing
    uint8_t qbits = 5;         // quantisation bits
    int32_t windowSize = 2048; // samples per block, a power of two
    int32_t latencyMs = 50;    // playback buffer length
    String outputName;
    String inputName;
};

extern Settings settings;
