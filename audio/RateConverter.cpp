// RateConverter: set-up, the fixed-point walk for each sample format, and the
// history kept between calls.
#include "audio/RateConverter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "audio/pcm/SampleFormat.h"

namespace {

// Per-format loading, interpolation at a 1/65536 fraction, and storing.
struct Int8Sample {
    using Value = int32_t;
    using Sum = int64_t;
    static constexpr int32_t bytes = 1;
    static constexpr float scale = 0.0078125f;
    static Value load(const uint8_t* p) { return int8_t(p[0]); }
    static Value interpolate(Value a, Value b, uint32_t f) { return a + (b - a) * int32_t(f) / 65536; }
    static void store(uint8_t* p, Value v) { p[0] = uint8_t(v); }
};

struct Int16Sample {
    using Value = int32_t;
    using Sum = int64_t;
    static constexpr int32_t bytes = 2;
    static constexpr float scale = 3.0517578e-5f;
    static Value load(const uint8_t* p) { return int16_t(uint16_t(p[0] | (p[1] << 8))); }
    // |b - a| < 2^16 and f >> 1 < 2^15: the product stays inside 32 bits.
    static Value interpolate(Value a, Value b, uint32_t f) { return a + (((b - a) * int32_t(f >> 1)) >> 15); }
    static void store(uint8_t* p, Value v) {
        p[0] = uint8_t(v);
        p[1] = uint8_t(v >> 8);
    }
};

struct Int24Sample {
    using Value = int32_t;
    using Sum = int64_t;
    static constexpr int32_t bytes = 3;
    static constexpr float scale = 1.1920929e-7f;
    static Value load(const uint8_t* p) {
        int32_t v = p[0] | (p[1] << 8) | (p[2] << 16);
        return v >= 0x800000 ? v - 0x1000000 : v;
    }
    static Value interpolate(Value a, Value b, uint32_t f) { return a + int32_t(int64_t(b - a) * f / 65536); }
    static void store(uint8_t* p, Value v) {
        p[0] = uint8_t(v);
        p[1] = uint8_t(v >> 8);
        p[2] = uint8_t(v >> 16);
    }
};

struct Float32Sample {
    using Value = float;
    using Sum = float;
    static constexpr int32_t bytes = 4;
    static constexpr float scale = 1.0f;
    static Value load(const uint8_t* p) {
        float v;
        std::memcpy(&v, p, 4);
        return v;
    }
    static Value interpolate(Value a, Value b, uint32_t f) { return a + (b - a) * float(f) * (1.0f / 65536.0f); }
    static void store(uint8_t* p, Value v) { std::memcpy(p, &v, 4); }
};

}  // namespace

void RateConverter::setFormat(uint32_t newFormat, int32_t newChannels) {
    format = newFormat;
    channels = newChannels;
    reconfigure();
}

void RateConverter::setInputRate(uint32_t rate) {
    inputRate = rate;
    reconfigure();
}

void RateConverter::setOutputRate(uint32_t rate) {
    outputRate = rate;
    reconfigure();
}

void RateConverter::setOption(uint32_t flag, uint32_t) {
    filtered = flag != 0;
    reconfigure();
}

bool RateConverter::usable() const {
    return inputRate != 0 && outputRate != 0 && uint64_t(inputRate) <= uint64_t(outputRate) * MaxOversampling &&
           channels >= 1 && channels <= MaxChannels && format >= Int8 && format <= Float32;
}

int32_t RateConverter::frameBytes() const { return bytesPerSample(format) * channels; }

void RateConverter::reconfigure() {
    fraction = 0;
    position = 0;
    historyFrames = 0;
    inputFrames = 0;
    oversampling = 1;
    oversampledRate = inputRate;
    filters.clear();
    if (!usable())
        return;
    // A step below 1/65536 would never advance; such ratios take the finest step instead.
    uint64_t step = std::max<uint64_t>((uint64_t(inputRate) << 16) / outputRate, 1);
    stepWhole = uint32_t(step >> 16);
    stepFraction = uint16_t(step);
    uint64_t subStep = step;
    if (inputRate > outputRate) {
        const uint64_t oversampled = (uint64_t(inputRate) + outputRate - 1) / outputRate * outputRate;
        oversampledRate = uint32_t(oversampled);
        oversampling = int32_t(oversampled / outputRate);
        subStep = std::max<uint64_t>(step / uint64_t(oversampling), 1);
        if (filtered && filters.resize(channels)) {
            for (LowPassFilter& filter : filters)
                if (!filter.design(oversampledRate, outputRate / 2)) {
                    filters.clear();
                    break;
                }
        }
    }
    subStepWhole = uint32_t(subStep >> 16);
    subStepFraction = uint16_t(subStep);
}

int32_t RateConverter::inputFramesFor(int32_t outputFrames) {
    if (outputFrames <= 0 || !usable())
        return 0;
    if (sameRates())
        return outputFrames;
    if (double(outputFrames) * oversampling > double(int64_t(1) << 40))
        return INT32_MAX;
    // The last input frame touched, plus its right neighbour, as a count, less what is held.
    const int64_t d = int64_t(outputFrames) * oversampling - 1;
    const int64_t needed = int64_t(position) + 2 - historyFrames + d * subStepWhole +
                           ((d * subStepFraction + fraction) >> 16);
    return int32_t(std::clamp<int64_t>(needed, 0, INT32_MAX));
}

int32_t RateConverter::outputFramesFor(int32_t newFrames) {
    if (newFrames <= 0 || !usable())
        return 0;
    if (sameRates())
        return newFrames;
    const double held = double(std::max<int64_t>(int64_t(newFrames) + historyFrames - 2, 0));
    const double start = position + fraction / 65536.0;
    const double subStep = subStepWhole + subStepFraction / 65536.0;
    const double estimate = std::floor(((held - start) / subStep - 1.0) / oversampling + 0.5);
    int32_t n = estimate <= 0.0 ? 0 : estimate >= double(INT32_MAX) ? INT32_MAX : int32_t(estimate);
    while (n > 0 && inputFramesFor(n) > newFrames)
        --n;
    return n;
}

void* RateConverter::inputBuffer(int32_t frames) {
    if (frames < 0 || !usable())
        return nullptr;
    const int64_t total = int64_t(frames) + historyFrames;
    if (total * frameBytes() > INT32_MAX || !input.resize(int32_t(total * frameBytes())))
        return nullptr;
    inputFrames = int32_t(total);
    return input.data() + int64_t(historyFrames) * frameBytes();
}

void RateConverter::process(void* output, int32_t outputFrames) {
    if (!output || outputFrames <= 0)
        return;
    uint8_t* out = static_cast<uint8_t*>(output);
    if (!usable()) {
        std::memset(out, 0, size_t(outputFrames) * size_t(std::max(frameBytes(), 0)));
        return;
    }
    if (sameRates()) {
        const int32_t copied = std::min(outputFrames, inputFrames);
        std::memcpy(out, input.data(), size_t(copied) * size_t(frameBytes()));
        std::memset(out + int64_t(copied) * frameBytes(), 0, size_t(outputFrames - copied) * size_t(frameBytes()));
        return;
    }
    const bool withFilter = filtered && filters.count() == channels;
    switch (format) {
    case Int8:
        withFilter ? walk<Int8Sample, true>(out, outputFrames) : walk<Int8Sample, false>(out, outputFrames);
        break;
    case Int16:
        withFilter ? walk<Int16Sample, true>(out, outputFrames) : walk<Int16Sample, false>(out, outputFrames);
        break;
    case Int24:
        withFilter ? walk<Int24Sample, true>(out, outputFrames) : walk<Int24Sample, false>(out, outputFrames);
        break;
    default:
        withFilter ? walk<Float32Sample, true>(out, outputFrames) : walk<Float32Sample, false>(out, outputFrames);
        break;
    }
    keepHistory();
}

// Each output frame: per channel, K sub-samples from (position, fraction)
// on, summed (through the channel's filter when filtered) and averaged.
// Channels are walked one after another from the same start, which gives
// the same sums as walking them side by side and keeps the sum in a register.
template <typename Sample, bool Filtered>
void RateConverter::walk(uint8_t* out, int32_t outputFrames) {
    const int64_t stride = int64_t(Sample::bytes) * channels;
    const uint8_t* in = input.data();
    const uint32_t whole = subStepWhole;
    const uint32_t part = subStepFraction;
    const int32_t k = oversampling;
    const uint64_t span = uint64_t(k - 1) * ((uint64_t(whole) << 16) | part);  // first to last sub-sample
    uint32_t startPosition = position;
    uint32_t startFraction = fraction;
    int32_t done = 0;
    for (; done < outputFrames; ++done, out += stride) {
        if (startPosition + ((span + startFraction) >> 16) + 1 >= uint64_t(inputFrames))
            break;  // the input given does not reach this frame
        uint32_t p = startPosition;
        uint32_t f = startFraction;
        for (int32_t c = 0; c < channels; ++c) {
            p = startPosition;
            f = startFraction;
            const uint8_t* column = in + c * Sample::bytes;
            typename Sample::Sum sum = 0;
            float filteredSum = 0.0f;
            for (int32_t i = 0; i < k; ++i) {
                const uint8_t* a = column + int64_t(p) * stride;
                const typename Sample::Value v = Sample::interpolate(Sample::load(a), Sample::load(a + stride), f);
                if constexpr (Filtered)
                    filteredSum += filters[c].filter(float(v) * Sample::scale);
                else
                    sum += v;
                f += part;
                p += whole + (f >> 16);
                f &= 0xFFFF;
            }
            if constexpr (Filtered)
                encodeSample(format, filteredSum / float(k), out + c * Sample::bytes);
            else
                Sample::store(out + c * Sample::bytes, typename Sample::Value(k == 1 ? sum : sum / k));
        }
        startPosition = p;
        startFraction = f;
    }
    if (done < outputFrames)
        std::memset(out, 0, size_t(outputFrames - done) * size_t(stride));
    position = startPosition;
    fraction = uint16_t(startFraction);
}

void RateConverter::keepHistory() {
    const int64_t total = inputFrames;
    const int64_t bytes = frameBytes();
    int64_t cut;
    if (fraction == 0) {
        cut = position != 0 && total > position ? int64_t(position) : total;
        position = 0;
    } else {
        // One sub-step back, so that the next interpolation keeps its left neighbour.
        cut = int64_t(position) - subStepWhole - (fraction < subStepFraction ? 1 : 0);
        cut = std::clamp<int64_t>(cut, 0, total);
        position -= uint32_t(cut);
    }
    historyFrames = int32_t(total - cut);
    if (cut > 0 && historyFrames > 0)
        std::memmove(input.data(), input.data() + cut * bytes, size_t(historyFrames * bytes));
    inputFrames = historyFrames;
}
