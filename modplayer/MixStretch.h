// MixStretch: the scalar voice loop, one template for every combination of
// output channels, sample frame, interpolation and ramp, and the arithmetic
// every mixing loop shares. Used by the Mixer's loop table, and by the
// vector loops for the frames that do not fill a vector.
#pragma once

#include <cstdint>

#include "modplayer/Mixer.h"
#include "modplayer/Voice.h"

namespace mod {

using MixLoop = void (*)(Voice&, int32_t*, int32_t);

// A term is sample * gain (at most 2^15 * 2^12) shifted down by 3, so 64
// voices at full gain still fit the 32-bit accumulator.
inline constexpr int32_t termShift = 12 - accumulatorShift;
static_assert(termShift >= 0, "gains are 12-bit fractions");

// One frame of the sample at `position`: nearest, or linear between the
// frame and the next (the sample always holds one frame past its end).
template <int SampleChannels, bool Interpolate>
inline int32_t sampleAt(const int16_t* frames, uint64_t position, int side) {
    const int16_t* frame = frames + (position >> 32) * SampleChannels + side;
    int32_t value = frame[0];
    if constexpr (Interpolate) {
        int32_t fraction = int32_t(uint32_t(position) >> 17);  // 15 bits
        value += ((frame[SampleChannels] - value) * fraction) >> 15;
    }
    return value;
}

// Mixes `frames` output frames without looking at loop or sample ends: the
// driver only asks for as many as fit before the next one. With Ramp the
// gains move by rampStep every frame; without, they are constant.
template <int OutChannels, int SampleChannels, bool Interpolate, bool Ramp>
void mixStretch(Voice& voice, int32_t* out, int32_t frames) {
    const int16_t* data = voice.frames;
    const uint64_t step = voice.step;
    uint64_t position = voice.position;
    int32_t left = voice.level[0];
    int32_t right = voice.level[1];
    const int32_t leftStep = voice.rampStep[0];
    const int32_t rightStep = voice.rampStep[1];
    for (int32_t i = 0; i < frames; ++i, position += step) {
        if constexpr (Ramp) {
            left += leftStep;
            right += rightStep;
        }
        int32_t a = sampleAt<SampleChannels, Interpolate>(data, position, 0);
        if constexpr (OutChannels == 1) {
            if constexpr (SampleChannels == 2)
                a = (a + sampleAt<2, Interpolate>(data, position, 1)) >> 1;
            out[i] += (a * (left >> 16)) >> termShift;
        } else {
            int32_t b = a;
            if constexpr (SampleChannels == 2)
                b = sampleAt<2, Interpolate>(data, position, 1);
            out[2 * i] += (a * (left >> 16)) >> termShift;
            out[2 * i + 1] += (b * (right >> 16)) >> termShift;
        }
    }
    voice.position = position;
    voice.level[0] = left;
    voice.level[1] = right;
}

}  // namespace mod
