// PlayerTables: process-wide lookup tables of the module player (periods,
// frequencies, finetune factors, modulation waveforms). Built once by
// buildPlayerTables at audio start-up; read-only afterwards, so the
// sequencer reads them without locking.
#pragma once

#include <cstdint>

constexpr int32_t linearPeriodCount = 7745;  // linear periods 0..7744
constexpr int32_t noteCount = 128;

extern uint32_t linearFrequency[linearPeriodCount];          // Hz of linear period p
extern uint32_t linearFrequencyReversed[linearPeriodCount];  // entry k = linearFrequency[7744 - k]
extern uint16_t linearPeriods[noteCount];                    // linear period of note n
extern uint16_t linearPeriodsSorted[noteCount];              // ascending
extern uint16_t amigaPeriods[noteCount];                     // Amiga period of note n, quarter steps
extern uint16_t amigaPeriodsSorted[noteCount];               // ascending
extern uint32_t finetuneFactors[256];  // 16.16 factor for finetune f = -128..127 at f + 128

// Modulation waveforms, amplitude +-32.
extern int32_t waveSine256[256];
extern int32_t waveSquare256[256];
extern int32_t waveRampUp256[256];
extern int32_t waveRampDown256[256];
extern int32_t waveRandom64[64];
extern int32_t waveSquare64[64];
extern int32_t waveRampUp64[64];
extern int32_t waveSine64[64];

// Builds every table on the first call; later calls do nothing.
void buildPlayerTables();
