// LowPassFilter: a windowed-sinc FIR filter over a ring of its last inputs.
// RateConverter keeps one per channel when it lowers the rate with filtering.
//
// filter() forms its output before storing the new input, so the current
// input first counts in the next call: the filter lags one sample, deliberately.
#pragma once

#include <cstdint>

#include "core/Array.h"

class LowPassFilter {
public:
    // Taps grow with the oversampled rate over the cut-off (about 8 K); 255
    // covers lowering the rate 32-fold. Beyond that the cost per output frame
    // (K sub-samples times the taps) would grow with the square of the ratio.
    static constexpr int32_t MaxTaps = 255;

    // Designs for `sampleRate` with cut-off `cutoff`; highPass inverts the
    // taps and adds 1 to the centre. The ring is cleared. False when memory ran out.
    bool design(uint32_t sampleRate, uint32_t cutoff, bool highPass = false);

    float filter(float input) {
        // ring holds each input twice (at w and w + N), so the N newest are contiguous.
        const float* oldest = ring.data() + writeIndex;
        const float* tap = taps.data();
        float sum = 0.0f;
        for (int32_t k = 0; k < length; ++k)
            sum += tap[k] * oldest[k];
        ring[writeIndex] = input;
        ring[writeIndex + length] = input;
        if (++writeIndex == length)
            writeIndex = 0;
        return sum;
    }

    int32_t tapCount() const { return length; }
    float tap(int32_t i) const { return taps[i]; }

private:
    Array<float> taps;
    Array<float> ring;
    int32_t length = 0;
    int32_t writeIndex = 0;
};
