// Mixer: the family of voice loops and the stretch-by-stretch driver.
#include "modplayer/Mixer.h"

#include <algorithm>
#include <atomic>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "modplayer/MixStretch.h"
#include "modplayer/VectorMixLoops.h"

namespace mod {

namespace {

// The scalar family: scalarLoops[outChannels - 1][sampleChannels - 1][interpolate][ramp].
template <int Out, int Sample>
constexpr MixLoop loopsFor(bool interpolate, bool ramp) {
    if (interpolate)
        return ramp ? mixStretch<Out, Sample, true, true> : mixStretch<Out, Sample, true, false>;
    return ramp ? mixStretch<Out, Sample, false, true> : mixStretch<Out, Sample, false, false>;
}

constexpr MixLoop scalarLoops[2][2][2][2] = {
    {{{loopsFor<1, 1>(false, false), loopsFor<1, 1>(false, true)},
      {loopsFor<1, 1>(true, false), loopsFor<1, 1>(true, true)}},
     {{loopsFor<1, 2>(false, false), loopsFor<1, 2>(false, true)},
      {loopsFor<1, 2>(true, false), loopsFor<1, 2>(true, true)}}},
    {{{loopsFor<2, 1>(false, false), loopsFor<2, 1>(false, true)},
      {loopsFor<2, 1>(true, false), loopsFor<2, 1>(true, true)}},
     {{loopsFor<2, 2>(false, false), loopsFor<2, 2>(false, true)},
      {loopsFor<2, 2>(true, false), loopsFor<2, 2>(true, true)}}},
};

// The loops in use: the scalar family, with the steady mono-sample loops
// replaced by vector ones where the processor has them.
struct LoopTable {
    MixLoop loops[2][2][2][2];

    explicit LoopTable(bool vector) {
        for (int out = 0; out < 2; ++out)
            for (int sample = 0; sample < 2; ++sample)
                for (int interpolate = 0; interpolate < 2; ++interpolate)
                    for (int ramp = 0; ramp < 2; ++ramp)
                        loops[out][sample][interpolate][ramp] = scalarLoops[out][sample][interpolate][ramp];
        for (int out = 0; out < 2 && vector; ++out)
            for (int interpolate = 0; interpolate < 2; ++interpolate)
                if (MixLoop loop = vectorMixLoop(out + 1, interpolate))
                    loops[out][0][interpolate][0] = loop;
    }
};

const LoopTable& loopTable(bool vector) {
    static const LoopTable withVectors(true);
    static const LoopTable scalarOnly(false);
    return vector ? withVectors : scalarOnly;
}

std::atomic<bool> vectorLoopsOn{true};

// Output frames until the position reaches `end` (at least 1).
int32_t framesBefore(uint64_t position, uint64_t end, uint64_t step, int32_t limit) {
    uint64_t needed = (end - position + step - 1) / step;
    return needed < uint64_t(limit) ? int32_t(needed) : limit;
}

// At or past the end: on into a queued sample, back into the loop, or the
// voice stops.
void wrapOrStop(Voice& voice) {
    if (voice.hasQueued) {
        voice.startQueued();
        return;
    }
    if (!voice.looped) {
        voice.active = false;
        return;
    }
    uint32_t frame = uint32_t(voice.position >> 32);
    voice.sample->wrapPosition(frame);
    voice.position = uint64_t(frame) << 32 | uint32_t(voice.position);
    voice.active = frame < voice.end;  // a loop the data does not hold cannot play
}

}  // namespace

void useVectorLoops(bool on) { vectorLoopsOn.store(on, std::memory_order_relaxed); }

void mixVoice(Voice& voice, int32_t* accumulator, int32_t frames, int32_t outChannels, bool interpolate) {
    const auto& loops = loopTable(vectorLoopsOn.load(std::memory_order_relaxed)).loops[outChannels - 1];
    while (frames > 0 && voice.active) {
        if (voice.step == 0) {  // period 0: silent, and the voice stays where it is
            voice.finishRamp();
            return;
        }
        uint64_t end = uint64_t(voice.end) << 32;
        if (voice.position >= end) {
            wrapOrStop(voice);
            continue;
        }
        bool ramp = voice.rampFrames > 0;
        int32_t limit = ramp ? std::min(frames, voice.rampFrames) : frames;
        int32_t stretch = framesBefore(voice.position, end, voice.step, limit);
        loops[voice.sampleChannels - 1][interpolate][ramp](voice, accumulator, stretch);
        if (ramp && (voice.rampFrames -= stretch) == 0)
            voice.finishRamp();
        accumulator += stretch * outChannels;
        frames -= stretch;
    }
}

void clipToInt16(const int32_t* accumulator, int16_t* out, int32_t samples) {
    int32_t i = 0;
#ifdef __SSE2__
    // Saturating pack: eight samples shifted and clipped in three instructions.
    for (; i + 8 <= samples; i += 8) {
        const __m128i* in = reinterpret_cast<const __m128i*>(accumulator + i);
        __m128i low = _mm_srai_epi32(_mm_loadu_si128(in), accumulatorShift);
        __m128i high = _mm_srai_epi32(_mm_loadu_si128(in + 1), accumulatorShift);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packs_epi32(low, high));
    }
#endif
    for (; i < samples; ++i)
        out[i] = int16_t(std::clamp(accumulator[i] >> accumulatorShift, -32768, 32767));
}

}  // namespace mod
