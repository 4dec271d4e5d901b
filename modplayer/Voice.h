// Voice: one sample being played into the mix: where in the sample it is,
// how fast it moves and how loud it is on each side. ModulePlayer starts and
// steers voices once per tick; the Mixer advances them frame by frame.
#pragma once

#include <cstdint>

#include "modplayer/SampleData.h"

namespace mod {

struct Voice {
    // Gains count 1 << 12 for a sample passed through unchanged; `level`
    // and `target` hold them with 16 more fractional bits for the ramps.
    static constexpr int32_t unityGain = 1 << 12;

    const SampleData* sample = nullptr;  // borrowed; the module keeps it alive
    const int16_t* frames = nullptr;     // sample->pcm, interleaved
    uint32_t end = 0;                    // frame after the last one that plays (loop end when looped)
    uint8_t sampleChannels = 1;
    bool looped = false;
    bool active = false;
    bool stopAfterRamp = false;          // a fade-out: silent once the ramp ends
    bool hasQueued = false;              // at the end, go on with `queued` (MOD sample swap)
    const SampleData* queued = nullptr;  // its loop plays next; null: the voice stops

    uint64_t position = 0;  // frames, 32.32 fixed point
    uint64_t step = 0;      // frames per output frame, 32.32

    int32_t level[2] = {};     // current gain per output side (mono uses [0]), << 16
    int32_t target[2] = {};
    int32_t rampStep[2] = {};  // per output frame while rampFrames > 0
    int32_t rampFrames = 0;

    // Starts `data` at `frame`; false (and inactive) when nothing can play.
    bool start(const SampleData& data, uint32_t frame) {
        active = hasQueued = false;
        if (!data.pcm.count() || data.channels < 1 || data.channels > 2)
            return false;
        sample = &data;
        frames = data.pcm.data();
        sampleChannels = data.channels;
        looped = data.isLooped();
        end = looped ? data.loopEnd : data.length;
        uint32_t available = uint32_t(data.frameCount()) - 1;  // the last frame only pads
        if (end > available)
            end = available;
        position = uint64_t(frame) << 32;
        active = end > 0;
        return active;
    }

    // Goes on with `data` from where it stands (a sample changed under a
    // playing note); the mixer wraps or stops a position past its end.
    void switchTo(const SampleData& data) {
        uint64_t at = position;
        if (start(data, 0))
            position = at;
    }

    // At the end of the sample or loop: on into the queued sample's loop,
    // carrying the overshoot. False (and inactive) when there is none.
    bool startQueued() {
        uint64_t beyond = position - (uint64_t(end) << 32);
        if (!queued || !start(*queued, queued->loopStart)) {
            active = hasQueued = false;
            return false;
        }
        position += beyond;
        return true;
    }

    // Moves towards new gains over `frames` output frames (at once when 0).
    void steer(int32_t left, int32_t right, int32_t frames) {
        target[0] = left << 16;
        target[1] = right << 16;
        if (frames <= 0 || (target[0] == level[0] && target[1] == level[1])) {
            level[0] = target[0];
            level[1] = target[1];
            rampFrames = 0;
            return;
        }
        rampStep[0] = (target[0] - level[0]) / frames;
        rampStep[1] = (target[1] - level[1]) / frames;
        rampFrames = frames;
    }

    void finishRamp() {
        level[0] = target[0];
        level[1] = target[1];
        rampFrames = 0;
        if (stopAfterRamp)
            active = false;
    }
};

}  // namespace mod
