// Mixer: the family of voice loops and the stretch-by-stretch driver.
#include "modplayer/Mixer.h"

#include <algorithm>

namespace mod {

namespace {

// A term is sample * gain (at most 2^15 * 2^12) shifted down by 3, so 64
// voices at full gain still fit the 32-bit accumulator.
constexpr int32_t termShift = 12 - accumulatorShift;
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

using MixLoop = void (*)(Voice&, int32_t*, int32_t);

// mixLoops[outChannels - 1][sampleChannels - 1][interpolate][ramp]
template <int Out, int Sample>
constexpr MixLoop loopsFor(bool interpolate, bool ramp) {
    if (interpolate)
        return ramp ? mixStretch<Out, Sample, true, true> : mixStretch<Out, Sample, true, false>;
    return ramp ? mixStretch<Out, Sample, false, true> : mixStretch<Out, Sample, false, false>;
}

const MixLoop mixLoops[2][2][2][2] = {
    {{{loopsFor<1, 1>(false, false), loopsFor<1, 1>(false, true)},
      {loopsFor<1, 1>(true, false), loopsFor<1, 1>(true, true)}},
     {{loopsFor<1, 2>(false, false), loopsFor<1, 2>(false, true)},
      {loopsFor<1, 2>(true, false), loopsFor<1, 2>(true, true)}}},
    {{{loopsFor<2, 1>(false, false), loopsFor<2, 1>(false, true)},
      {loopsFor<2, 1>(true, false), loopsFor<2, 1>(true, true)}},
     {{loopsFor<2, 2>(false, false), loopsFor<2, 2>(false, true)},
      {loopsFor<2, 2>(true, false), loopsFor<2, 2>(true, true)}}},
};

// Output frames until the position reaches `end` (at least 1).
int32_t framesBefore(uint64_t position, uint64_t end, uint64_t step, int32_t limit) {
    uint64_t needed = (end - position + step - 1) / step;
    return needed < uint64_t(limit) ? int32_t(needed) : limit;
}

// At or past the end: back into the loop, or the voice stops.
bool wrapOrStop(Voice& voice) {
    if (!voice.looped) {
        voice.active = false;
        return false;
    }
    uint32_t frame = uint32_t(voice.position >> 32);
    voice.sample->wrapPosition(frame);
    voice.position = uint64_t(frame) << 32 | uint32_t(voice.position);
    voice.active = frame < voice.end;  // a loop the data does not hold cannot play
    return voice.active;
}

}  // namespace

void mixVoice(Voice& voice, int32_t* accumulator, int32_t frames, int32_t outChannels, bool interpolate) {
    const uint64_t end = uint64_t(voice.end) << 32;
    while (frames > 0 && voice.active) {
        if (voice.step == 0) {  // period 0: silent, and the voice stays where it is
            voice.finishRamp();
            return;
        }
        if (voice.position >= end && !wrapOrStop(voice))
            return;
        bool ramp = voice.rampFrames > 0;
        int32_t stretch = framesBefore(voice.position, end, voice.step, ramp ? std::min(frames, voice.rampFrames) : frames);
        mixLoops[outChannels - 1][voice.sampleChannels - 1][interpolate][ramp](voice, accumulator, stretch);
        if (ramp && (voice.rampFrames -= stretch) == 0)
            voice.finishRamp();
        accumulator += stretch * outChannels;
        frames -= stretch;
    }
}

void clipToInt16(const int32_t* accumulator, int16_t* out, int32_t samples) {
    for (int32_t i = 0; i < samples; ++i)
        out[i] = int16_t(std::clamp(accumulator[i] >> accumulatorShift, -32768, 32767));
}

}  // namespace mod
