// Test helpers of the codec tests: generated music-like signals and the
// plain, unoptimised evaluation of the encoder's formulas used as an oracle.
#pragma once

#include <cstdint>
#include <vector>

// Interleaved Int16 frames: a few notes, each a sum of harmonics under an
// attack/decay envelope, plus a little noise. Fixed by the seed.
std::vector<int16_t> musicLikeSignal(int32_t frames, int32_t channels, uint32_t rate, uint32_t seed);

// X[k] = (4/(2N)) sum x[j] w[j] cos(pi/N (j + 0.5 + N/2)(k + 0.5)) in double,
// over the 2N samples at `input` (windowed products taken in float).
std::vector<double> directMdct(const float* input, int32_t n, const float* window);

// The encoder's quantiser as written: drop when ath > 8.685889 ln|c|,
// peak normalisation, y = x^0.2 in double, q = floor(y sign m + 0.5) clamped.
// Returns the peak; `codes` gets N bytes.
float plainQuantise(const float* coefficients, int32_t n, const float* athTable, int32_t qbits, uint8_t* codes);
