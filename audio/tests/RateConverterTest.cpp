// Tests of RateConverter: the fixed-point walk, set-up figures, call-size
// independence and frequency preservation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "audio/LowPassFilter.h"
#include "audio/RateConverter.h"
#include "audio/pcm/SampleFormat.h"
#include "audio/tests/WavBuilder.h"

namespace {

void setUp(RateConverter& converter, uint32_t format, int32_t channels, uint32_t from, uint32_t to, bool filtered) {
    converter.setOption(filtered ? 1 : 0, 0);
    converter.setInputRate(from);
    converter.setOutputRate(to);
    converter.setFormat(format, channels);
}

}  // namespace

TEST(RateConverter, doublingTheRateGivesMidpoints) {
    RateConverter converter;
    setUp(converter, Int16, 1, 22050, 44100, false);
    EXPECT_EQ(converter.step(), 0x8000u);
    const int16_t input[] = {0, 100, -100, 1001, 32767, -32768, 7};
    const int32_t need = converter.inputFramesFor(12);
    ASSERT_LE(need, 7);
    std::memcpy(converter.inputBuffer(need), input, size_t(need) * 2);
    int16_t output[12];
    converter.process(output, 12);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(output[2 * i], input[i]);
        EXPECT_EQ(output[2 * i + 1], input[i] + ((input[i + 1] - input[i]) >> 1)) << i;
    }
}

// The set-up figures. Lowering the rate costs K sub-samples through up to 8K
// filter taps each: the taps are capped, and past the oversampling limit
// nothing is converted and nothing is asked for. An oversampled rate of 0 is
// not checked.
TEST(RateConverter, setUpFiguresAndTheOversamplingLimit) {
    struct Case { uint32_t from, to; bool filtered; int32_t factor; uint32_t oversampledRate; int32_t taps; };
    const uint32_t limit = RateConverter::MaxOversampling;
    for (const Case& c : {Case{48000, 44100, false, 2, 88200, 0}, Case{44100, 32000, true, 2, 64000, 17},
                          Case{22050, 44100, true, 1, 0, 0},
                          Case{8000 * limit, 8000, true, int32_t(limit), 0, LowPassFilter::MaxTaps},
                          Case{8000 * (limit + 1), 8000, true, 1, 0, 0}}) {
        SCOPED_TRACE(testing::Message() << c.from << " -> " << c.to);
        RateConverter converter;
        setUp(converter, Int16, 2, c.from, c.to, c.filtered);
        EXPECT_EQ(converter.oversamplingFactor(), c.factor);
        if (c.oversampledRate) {
            EXPECT_EQ(converter.oversampledSampleRate(), c.oversampledRate);
        }
        EXPECT_EQ(converter.filterTaps(), c.taps);
        const bool converts = c.from <= 8000 * limit;
        EXPECT_EQ(converter.inputFramesFor(10) > 0, converts);
        int16_t output[20];
        std::memset(output, 0x55, sizeof output);
        converter.process(output, 10);
        EXPECT_TRUE(converts || (output[0] | output[19]) == 0);
    }
}

// Many small calls give the frames of one large call, in every format,
// raising and lowering, with and without the filter; equal rates pass the
// frames through unchanged.
TEST(RateConverter, callSizeDoesNotChangeTheOutput) {
    struct Pair { uint32_t from, to; bool filtered; };
    const Pair pairs[] = {{22050, 44100, false}, {8000, 44100, false}, {48000, 44100, false}, {48000, 44100, true},
                          {44100, 32000, true},  {44100, 8000, false}, {44100, 11025, true}, {44100, 44100, true}};
    for (uint32_t format : {Int8, Int16, Int24, Float32})
        for (const Pair& pair : pairs) {
            SCOPED_TRACE(testing::Message() << "format " << format << " " << pair.from << " -> " << pair.to
                                            << (pair.filtered ? " filtered" : ""));
            const int32_t channels = 2, frameBytes = 2 * bytesPerSample(format), outputFrames = 3000;
            auto input = randomBytes(size_t(frameBytes) * 20000, format * 31 + pair.from);
            if (format == Float32)
                for (size_t i = 3; i < input.size(); i += 4)
                    input[i] &= 0x3E;
            RateConverter converter;
            setUp(converter, format, channels, pair.from, pair.to, pair.filtered);
            const auto once = convertInCalls(converter, input, frameBytes, outputFrames, outputFrames);
            if (pair.from == pair.to) {
                EXPECT_EQ(once, Bytes(input.begin(), input.begin() + outputFrames * frameBytes));
            }
            for (int32_t perCall : {1, 7, 256}) {
                setUp(converter, format, channels, pair.from, pair.to, pair.filtered);
                EXPECT_EQ(convertInCalls(converter, input, frameBytes, outputFrames, perCall), once)
                    << "per call " << perCall;
            }
        }
}

TEST(RateConverter, aSineKeepsItsFrequency) {
    struct Case { uint32_t from, to; bool filtered; };
    for (const Case& c : {Case{48000, 44100, false}, Case{48000, 44100, true}, Case{22050, 44100, false},
                          Case{44100, 32000, true}, Case{44100, 8000, false}}) {
        SCOPED_TRACE(testing::Message() << c.from << " -> " << c.to << (c.filtered ? " filtered" : ""));
        const double hertz = 440.0;
        std::vector<int16_t> input(2 * c.from);  // one second
        for (size_t i = 0; i < input.size(); ++i)
            input[i] = int16_t(std::lround(12000 * std::sin(2 * M_PI * hertz / c.from * double(i / 2))));
        RateConverter converter;
        setUp(converter, Int16, 2, c.from, c.to, c.filtered);
        const int32_t outputFrames = int32_t(c.to) - 64;  // stay clear of the zero padding at the end
        const Bytes bytes(reinterpret_cast<const uint8_t*>(input.data()),
                          reinterpret_cast<const uint8_t*>(input.data() + input.size()));
        const auto output = convertInCalls(converter, bytes, 4, outputFrames, 500);
        const int16_t* samples = reinterpret_cast<const int16_t*>(output.data());
        const int32_t settle = 32;  // the filter starts from silence and rings for a few frames
        int crossings = 0;
        for (int32_t i = settle + 1; i < outputFrames; ++i)
            crossings += (samples[2 * (i - 1)] < 0) != (samples[2 * i] < 0);
        EXPECT_NEAR(crossings, 2 * hertz * (outputFrames - settle) / c.to, 2.0);
    }
}
