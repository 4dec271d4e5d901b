// Resampler: the interface of a sample-rate converter, as SoundSource and
// WaveSink drive it. RateConverter is the one implementation.
//
// Use: set the format and both rates; ask inputFramesFor(n) how many new
// input frames n output frames need, place them at inputBuffer(that many),
// then process(output, n). outputFramesFor(m) answers the other way round.
#pragma once

#include <cstdint>

class Resampler {
public:
    virtual ~Resampler() = default;

    virtual void setFormat(uint32_t format, int32_t channels) = 0;
    virtual void setInputRate(uint32_t rate) = 0;
    virtual void setOutputRate(uint32_t rate) = 0;
    virtual void setOption(uint32_t flag, uint32_t value) = 0;
    virtual void reconfigure() = 0;
    virtual int32_t inputFramesFor(int32_t outputFrames) = 0;
    // Where the caller places `frames` new input frames; null when the
    // converter is not usable or memory ran out.
    virtual void* inputBuffer(int32_t frames) = 0;
    virtual void process(void* output, int32_t outputFrames) = 0;
    virtual int32_t outputFramesFor(int32_t inputFrames) = 0;
};
