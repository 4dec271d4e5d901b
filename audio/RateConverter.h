// RateConverter: changes the sample rate of interleaved frames in any sample
// format, keeping format and channel count. The converter SoundSource and
// WaveSink use whenever the rates differ.
//
// Positions are 16.16 fixed point (whole input frames plus a 1/65536
// fraction). Raising the rate interpolates linearly; lowering it takes K
// interpolated sub-samples per output frame and averages them, optionally
// through a windowed-sinc low-pass filter per channel. Input frames the walk
// still needs are kept as history for the next call. process() allocates nothing.
#pragma once

#include <cstdint>

#include "audio/LowPassFilter.h"
#include "audio/Resampler.h"
#include "core/Array.h"

class RateConverter final : public Resampler {
public:
    static constexpr int32_t MaxChannels = 256;
    // Lowering the rate costs K sub-samples per output sample, each through a
    // filter of 8K taps, and K input frames of buffer per output frame. Rates
    // further apart than this are not converted: the output is silent. 128
    // covers a 1 MHz recording played at 8 kHz.
    static constexpr uint32_t MaxOversampling = 128;

    RateConverter() = default;
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    void setFormat(uint32_t format, int32_t channels) override;
    void setInputRate(uint32_t rate) override;
    void setOutputRate(uint32_t rate) override;
    void setOption(uint32_t flag, uint32_t value) override;  // a non-zero flag turns the filter on
    void reconfigure() override;
    int32_t inputFramesFor(int32_t outputFrames) override;
    void* inputBuffer(int32_t frames) override;
    // Writes outputFrames frames. Frames the input cannot reach (the caller
    // gave fewer than inputFramesFor asked) come out silent.
    void process(void* output, int32_t outputFrames) override;
    int32_t outputFramesFor(int32_t inputFrames) override;

    uint32_t step() const { return (stepWhole << 16) | stepFraction; }
    int32_t oversamplingFactor() const { return oversampling; }
    uint32_t oversampledSampleRate() const { return oversampledRate; }
    int32_t filterTaps() const { return filters.count() ? filters[0].tapCount() : 0; }
    int32_t heldFrames() const { return historyFrames; }

private:
    bool usable() const;
    bool sameRates() const { return inputRate == outputRate; }
    int32_t frameBytes() const;
    template <typename Sample, bool Filtered>
    void walk(uint8_t* output, int32_t outputFrames);
    void keepHistory();

    uint32_t format = 2;  // Int16
    int32_t channels = 2;
    uint32_t inputRate = 44100;
    uint32_t outputRate = 44100;
    uint32_t oversampledRate = 0;
    Array<uint8_t> input;  // the first historyFrames frames are kept from the previous call
    int32_t inputFrames = 0;
    int32_t historyFrames = 0;
    uint32_t position = 0;  // whole input frames
    uint32_t stepWhole = 0;
    uint16_t fraction = 0;
    uint16_t stepFraction = 0;
    Array<LowPassFilter> filters;  // one per channel, only when filtered
    uint32_t subStepWhole = 0;
    int32_t oversampling = 1;  // K
    uint16_t subStepFraction = 0;
    bool filtered = false;
};
