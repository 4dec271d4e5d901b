// Tests of RateConverter: the fixed-point walk, set-up figures, call-size
// independence and frequency preservation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "RateConverter.h"
#include "SampleFormat.h"
#include "WavBuilder.h"

namespace {

// Feeds `input` through the converter asking `perCall` output frames at a
// time, as SoundSource does, until `outputFrames` came out.
std::vector<uint8_t> convertInCalls(RateConverter& converter, const std::vector<uint8_t>& input, int32_t frameBytes,
                                    int32_t outputFrames, int32_t perCall) {
    std::vector<uint8_t> output;
    size_t used = 0;
    for (int32_t produced = 0; produced < outputFrames;) {
        const int32_t n = std::min(perCall, outputFrames - produced);
        const int32_t need = converter.inputFramesFor(n);
        uint8_t* in = static_cast<uint8_t*>(converter.inputBuffer(need));
        EXPECT_NE(in, nullptr);
        for (int64_t i = 0; i < int64_t(need) * frameBytes; ++i, ++used)
            in[i] = used < input.size() ? input[used] : 0;
        std::vector<uint8_t> chunk(size_t(n) * frameBytes);
        converter.process(chunk.data(), n);
        output.insert(output.end(), chunk.begin(), chunk.end());
        produced += n;
    }
    return output;
}

void setUp(RateConverter& converter, uint32_t format, int32_t channels, uint32_t from, uint32_t to, bool filtered) {
    converter.setOption(filtered ? 1 : 0, 0);
    converter.setInputRate(from);
    converter.setOutputRate(to);
    converter.setFormat(format, channels);
}

std::vector<int16_t> sine(int32_t frames, int32_t channels, double cyclesPerFrame) {
    std::vector<int16_t> samples(size_t(frames) * channels);
    for (int32_t i = 0; i < frames; ++i)
        for (int32_t c = 0; c < channels; ++c)
            samples[size_t(i) * channels + c] = int16_t(std::lround(12000 * std::sin(2 * M_PI * cyclesPerFrame * i)));
    return samples;
}

int zeroCrossings(const int16_t* samples, size_t frames, int32_t channels) {
    int crossings = 0;
    for (size_t i = 1; i < frames; ++i)
        crossings += (samples[(i - 1) * channels] < 0) != (samples[i * channels] < 0);
    return crossings;
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

TEST(RateConverter, setUpFigures) {
    RateConverter converter;
    setUp(converter, Int16, 2, 48000, 44100, false);
    EXPECT_EQ(converter.oversamplingFactor(), 2);
    EXPECT_EQ(converter.oversampledSampleRate(), 88200u);
    EXPECT_EQ(converter.filterTaps(), 0);
    setUp(converter, Int16, 2, 44100, 32000, true);
    EXPECT_EQ(converter.oversamplingFactor(), 2);
    EXPECT_EQ(converter.filterTaps(), 17);
    setUp(converter, Int16, 2, 22050, 44100, true);
    EXPECT_EQ(converter.oversamplingFactor(), 1);
    EXPECT_EQ(converter.filterTaps(), 0);
}

TEST(RateConverter, equalRatesPassFramesUnchanged) {
    RateConverter converter;
    setUp(converter, Int24, 3, 44100, 44100, false);
    const auto input = randomBytes(9 * 500, 21);
    EXPECT_EQ(converter.outputFramesFor(500), 500);
    EXPECT_EQ(convertInCalls(converter, input, 9, 500, 37), input);
}

// Many small calls give the frames of one large call, in every format,
// raising and lowering, with and without the filter.
TEST(RateConverter, callSizeDoesNotChangeTheOutput) {
    struct Pair { uint32_t from, to; bool filtered; };
    const Pair pairs[] = {{22050, 44100, false}, {8000, 44100, false}, {48000, 44100, false}, {48000, 44100, true},
                          {44100, 32000, true},  {44100, 8000, false}, {44100, 11025, true}};
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
            for (int32_t perCall : {1, 7, 256}) {
                setUp(converter, format, channels, pair.from, pair.to, pair.filtered);
                EXPECT_EQ(convertInCalls(converter, input, frameBytes, outputFrames, perCall), once)
                    << "per call " << perCall;
            }
        }
}

TEST(RateConverter, outputFramesForNeverAsksMoreThanGiven) {
    RateConverter converter;
    for (uint32_t to : {8000u, 32000u, 44100u, 96000u}) {
        setUp(converter, Int16, 2, 48000, to, false);
        for (int32_t m : {0, 1, 2, 3, 10, 1000, 4097}) {
            const int32_t n = converter.outputFramesFor(m);
            EXPECT_LE(converter.inputFramesFor(n), m) << to << " " << m;
            EXPECT_GE(n, (int64_t(m) - 3) * to / 48000 - 2) << to << " " << m;
        }
    }
}

TEST(RateConverter, aSineKeepsItsFrequency) {
    struct Case { uint32_t from, to; bool filtered; };
    for (const Case& c : {Case{48000, 44100, false}, Case{48000, 44100, true}, Case{22050, 44100, false},
                          Case{44100, 32000, true}, Case{44100, 8000, false}}) {
        SCOPED_TRACE(testing::Message() << c.from << " -> " << c.to << (c.filtered ? " filtered" : ""));
        const double hertz = 440.0;
        const auto input = sine(int32_t(c.from), 2, hertz / c.from);  // one second
        std::vector<uint8_t> bytes(reinterpret_cast<const uint8_t*>(input.data()),
                                   reinterpret_cast<const uint8_t*>(input.data() + input.size()));
        RateConverter converter;
        setUp(converter, Int16, 2, c.from, c.to, c.filtered);
        const int32_t outputFrames = int32_t(c.to) - 64;  // stay clear of the zero padding at the end
        const auto output = convertInCalls(converter, bytes, 4, outputFrames, 500);
        const int16_t* samples = reinterpret_cast<const int16_t*>(output.data());
        const int32_t settle = 32;  // the filter starts from silence and rings for a few frames
        const double seconds = double(outputFrames - settle) / c.to;
        EXPECT_NEAR(zeroCrossings(samples + 2 * settle, size_t(outputFrames - settle), 2), 2 * hertz * seconds, 2.0);
    }
}
