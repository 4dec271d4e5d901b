// PlayerTables: computes the module player's lookup tables from their rules.
#include "modplayer/PlayerTables.h"

#include <cmath>
#include <cstring>

#include "modplayer/QuickSort.h"

uint32_t linearFrequency[linearPeriodCount];
uint32_t linearFrequencyReversed[linearPeriodCount];
uint16_t linearPeriods[noteCount];
uint16_t linearPeriodsSorted[noteCount];
uint16_t amigaPeriods[noteCount];
uint16_t amigaPeriodsSorted[noteCount];
uint32_t finetuneFactors[256];
int32_t waveSine256[256];
int32_t waveSquare256[256];
int32_t waveRampUp256[256];
int32_t waveRampDown256[256];
int32_t waveRandom64[64];
int32_t waveSquare64[64];
int32_t waveRampUp64[64];
int32_t waveSine64[64];

namespace {

constexpr double pi = 3.14159265358979323846;

double rounded(double x) { return std::floor(x + 0.5); }

// 768 linear units make an octave; period 4608 is 8363 Hz: entry p is
// round(8363 * 2^((4608 - p) / 768)). The power is taken once per step of
// one octave and scaled by whole octaves exactly: a tenth of the start-up
// cost of a power per entry, and the same table (the tests compare every
// entry with the formula).
void buildLinearTables() {
    double octaveSteps[768];
    for (int32_t r = 0; r < 768; ++r)
        octaveSteps[r] = std::pow(2.0, r / 768.0);
    int32_t p = 0;
    for (int32_t octaves = 6; octaves >= -5; --octaves) {
        const double scale = std::ldexp(1.0, octaves);  // exact, as is the product with it
        for (int32_t r = 4608 - p - 768 * octaves; r >= 0 && p < linearPeriodCount; --r, ++p)
            linearFrequency[p] = uint32_t(8363.0 * (octaveSteps[r] * scale) + 0.5);  // positive: truncation is floor
    }
    for (int32_t k = 0; k < linearPeriodCount; ++k)
        linearFrequencyReversed[k] = linearFrequency[linearPeriodCount - 1 - k];
    for (int32_t n = 0; n < noteCount; ++n)
        linearPeriods[n] = uint16_t(n > 120 ? 0 : 7680 - 64 * n);
}

// Note n sits one semitone above base entry (n + 1) mod 12 of its octave.
// The shortest periods are held at 27 on purpose.
void buildAmigaPeriods() {
    static const double base[12] = {907, 856, 808, 762, 720, 678, 640, 604, 570, 538, 508, 480};
    for (int32_t n = 0; n < noteCount; ++n) {
        int32_t m = n + 1;
        double period = 2.0 * base[m % 12] * 16.0 / std::pow(2.0, m / 12);
        amigaPeriods[n] = uint16_t(period < 27.0 ? 27 : rounded(period));
    }
}

void buildSortedCopies() {
    std::memcpy(linearPeriodsSorted, linearPeriods, sizeof linearPeriods);
    quickSort(linearPeriodsSorted, noteCount);
    std::memcpy(amigaPeriodsSorted, amigaPeriods, sizeof amigaPeriods);
    quickSort(amigaPeriodsSorted, noteCount);
}

// f counts 1/128 semitone: 2^(f / 1536) in 16.16 fixed point.
void buildFinetuneFactors() {
    for (int32_t f = -128; f < 128; ++f)
        finetuneFactors[f + 128] = uint32_t(rounded(std::pow(1.0004513695322617, f) * 65536.0));
}

// xorshift32 (13, 17, 5): small, and good enough for a vibrato's randomness.
// Seeded afresh for this table only.
class RandomBits {
public:
    uint32_t next() {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    }

private:
    uint32_t state = 0x2545F491u;
};

void buildWaveforms() {
    for (int32_t i = 0; i < 256; ++i) {
        int32_t ramp = ((i & 127) * 64) / 127;
        waveSine256[i] = int32_t(rounded(std::sin(i * pi / 128.0) * 32.0));
        waveSquare256[i] = i < 128 ? 32 : -32;
        waveRampUp256[i] = ramp - 32;
        waveRampDown256[i] = 32 - ramp;
    }
    RandomBits random;
    for (int32_t i = 0; i < 64; ++i) {
        waveSine64[i] = int32_t(rounded(std::sin(i * pi / 32.0) * 32.0));
        waveSquare64[i] = i < 32 ? 32 : -32;
        waveRampUp64[i] = ((i & 31) * 64) / 31 - 32;
        waveRandom64[i] = int32_t(random.next() % 65) - 32;
    }
}

bool fillPlayerTables() {
    buildLinearTables();
    buildAmigaPeriods();
    buildSortedCopies();
    buildFinetuneFactors();
    buildWaveforms();
    return true;
}

}  // namespace

void buildPlayerTables() {
    // Initialised exactly once, whoever calls first.
    static const bool built = fillPlayerTables();
    (void)built;
}
