// Mixer: adds voices into a 32-bit accumulator and clips the sum to 16-bit
// output. One specialised loop per combination of output channels (1, 2),
// sample frame (mono, stereo), linear interpolation and volume ramp, all
// from one template; the combination is chosen once per stretch of frames,
// never per frame. Loop ends, sample ends and ramp ends are handled between
// stretches. Used by ModulePlayer; tests compare every loop with a plain
// reference.
#pragma once

#include <cstdint>

#include "modplayer/Voice.h"

namespace mod {

// Accumulator scale: a voice at unity gain adds its sample << accumulatorShift.
constexpr int32_t accumulatorShift = 9;

// Adds `frames` output frames of `voice` to `accumulator` (interleaved,
// `outChannels` 1 or 2), advancing, wrapping, ramping and stopping it.
void mixVoice(Voice& voice, int32_t* accumulator, int32_t frames, int32_t outChannels, bool interpolate);

// Vector loops (VectorMixLoops.h) where the processor has them: on by
// default; off leaves the scalar family, for tests and benchmarks.
void useVectorLoops(bool on);

// out[i] = accumulator[i] >> accumulatorShift, clipped to 16 bits.
void clipToInt16(const int32_t* accumulator, int16_t* out, int32_t samples);

}  // namespace mod
