// MixerTables: process-wide lookup tables of the module mixer, built once by
// buildMixerTables (audio start-up, or the first sample conversion) and
// read-only afterwards. Used by SampleData and the mixing loops.
#pragma once

#include <cstdint>

// Entry i = i * 256: a signed 8-bit sample (as its byte) widened to 16 bits.
extern uint16_t signedByteToSample[256];
// Entry i = signedByteToSample[i ^ 128]: the same for unsigned 8-bit samples.
extern uint16_t unsignedByteToSample[256];
// Entry i = floor(sqrt(i / 4095) * 16777215 + 0.5): a square-root curve in 24 bits.
extern uint32_t squareRootCurve[4096];

// Builds the tables on the first call; later calls do nothing.
void buildMixerTables();
