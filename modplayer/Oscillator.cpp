// Oscillator: waveform lookup in the player tables.
#include "modplayer/Oscillator.h"

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

}  // namespace mod
