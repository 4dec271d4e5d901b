// Oscillator: waveform lookup in the player tables.
#include "modplayer/Oscillator.h"

#include <cstdlib>

#include "modplayer/PlayerTables.h"

namespace mod {

int32_t Oscillator::value() const {
    switch (waveform) {
    case Sine:
        return waveSine256[position];
    case RampDown:
        // The 256-entry ramp holds two teeth; half steps read one tooth a cycle,
        // started half a cycle early so the wave is 0 at position 0.
        return waveRampUp256[uint8_t(position + 128) >> 1];
    case Square:
        return waveSquare256[position];
    default:
        return waveRandom64[position >> 2];
    }
}

namespace {

// A quarter of the sine cycle, round(127 * sin(i * 2pi / 64)) for i = 0..16.
constexpr int32_t sineQuarter[17] = {0, 12, 25, 37, 49, 60, 71, 81, 90, 98, 106, 112, 117, 122, 125, 126, 127};

int32_t sine127(int32_t step) {
    int32_t inHalf = step & 31;
    int32_t magnitude = sineQuarter[inHalf <= 16 ? inHalf : 32 - inHalf];
    return step < 32 ? magnitude : -magnitude;
}

// -127..127 in 64 steps: 0 at the start, up to 124, then from -127 back.
int32_t ramp127(int32_t step) { return step < 32 ? 4 * step : 4 * step - 255; }

}  // namespace

int32_t Oscillator::fineValue() const {
    int32_t step = position >> 2;
    switch (waveform) {
    case Sine:
        return 2 * sine127(step);
    case RampDown:
        return 2 * ramp127(step);
    case Square:
        return step < 32 ? 254 : -254;
    default:
        return waveRandom64[step] * 254 / 32;
    }
}

int32_t Oscillator::scaledFineValue(int32_t depth, int32_t shift) const {
    int32_t wave = fineValue();
    int32_t magnitude = (std::abs(wave) * depth) >> shift;
    return wave < 0 ? -magnitude : magnitude;
}

}  // namespace mod
