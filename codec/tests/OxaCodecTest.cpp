// Tests of OxaCodec: round trips, the exact bytes of the stream (checked
// with zlib as the reference inflater) and the decoder's header checks.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "Mdct.h"
#include "MemoryStream.h"
#include "OxaCodec.h"
#include "OxaFormat.h"
#include "Quantiser.h"
#include "SampleFormat.h"
#include "CodecTestSupport.h"

namespace {

double snrDb(const std::vector<int16_t>& input, const std::vector<int16_t>& output) {
    double signal = 0, noise = 0;
    for (size_t i = 0; i < output.size(); ++i) {
        signal += double(input[i]) * input[i];
        noise += (double(input[i]) - output[i]) * (double(input[i]) - output[i]);
    }
    return noise == 0 ? 999.0 : 10 * std::log10(signal / noise);
}

// Least-squares gain of output against input: 1 when the level is kept.
double gainOf(const std::vector<int16_t>& input, const std::vector<int16_t>& output) {
    double cross = 0, power = 0;
    for (size_t i = 0; i < output.size(); ++i) {
        cross += double(input[i]) * output[i];
        power += double(input[i]) * input[i];
    }
    return power == 0 ? 0 : cross / power;
}

std::vector<int16_t> squareWave(int32_t frames, int32_t period) {
    std::vector<int16_t> pcm(frames);
    for (int32_t i = 0; i < frames; ++i)
        pcm[i] = (i / (period / 2)) % 2 ? -32768 : 32767;
    return pcm;
}

}  // namespace

TEST(OxaCodec, roundTripKeepsTimeAndLevel) {
    struct Case { int32_t window; uint8_t qbits; double minSnr; };
    // Floors sit under the measured values printed below. Windows of 1 and 2
    // keep almost nothing: their only coefficients sit at 0 Hz, under the
    // threshold of hearing, and (for 2) at half the Nyquist frequency.
    const Case cases[] = {{1, 5, -1}, {2, 5, -1}, {256, 5, 11}, {2048, 5, 15}, {8192, 5, 15},
                          {1, 8, -1}, {2, 8, -1}, {256, 8, 13}, {2048, 8, 29}, {8192, 8, 29}};
    const std::vector<int16_t> pcm = musicLikeSignal(3 * 44100, 2, 44100, 1);
    for (const Case& c : cases) {
        Settings settings;
        settings.window = c.window;
        settings.qbits = c.qbits;
        std::vector<int16_t> decoded = asInt16(decodeAll(encodeInt16(pcm, settings), 2));
        // (blocks - 1) whole windows come back: every complete window of the input.
        const size_t frames = pcm.size() / 2 / c.window * c.window;
        ASSERT_EQ(decoded.size(), frames * 2) << "window " << c.window;
        double snr = snrDb(pcm, decoded), gain = gainOf(pcm, decoded);
        std::printf("    q%d window %5d: SNR %6.2f dB, gain %.3f\n", c.qbits, c.window, snr, gain);
        EXPECT_GT(snr, c.minSnr) << "q" << int(c.qbits) << " window " << c.window;
        if (c.minSnr > 0) {
            // The power law rounds small coefficients down, which costs a few per cent.
            EXPECT_NEAR(gain, 1.0, 0.15) << "q" << int(c.qbits) << " window " << c.window;
        }
    }
}

TEST(OxaCodec, silenceStaysExactSilence) {
    for (int32_t window : {1, 64, 2048}) {
        Settings settings;
        settings.window = window;
        std::vector<int16_t> silence(2 * 10000, 0);
        std::vector<int16_t> decoded = asInt16(decodeAll(encodeInt16(silence, settings), 2));
        ASSERT_EQ(decoded.size(), size_t(10000 / window * window * 2));
        for (int16_t sample : decoded)
            ASSERT_EQ(sample, 0);
    }
}

TEST(OxaCodec, fullScaleSquareNeverWrapsAround) {
    for (uint8_t qbits : {5, 8}) {
        Settings settings;
        settings.channels = 1;
        settings.qbits = qbits;
        const int32_t period = 200;
        const Bytes stream = encodeInt16(squareWave(8 * 2048, period), settings);
        const std::vector<int16_t> pcm = squareWave(8 * 2048, period);
        const std::vector<int16_t> decoded = asInt16(decodeAll(stream, 1));
        const Bytes floats = decodeAll(stream, 1, Float32);
        ASSERT_EQ(decoded.size(), pcm.size() / 2048 * 2048);
        int32_t high = 0, low = 0;
        for (size_t i = 0; i < decoded.size(); ++i) {
            float s;
            std::memcpy(&s, &floats[i * 4], 4);
            // The overshoot beyond full scale clamps instead of wrapping.
            if (s >= 1.0f) {
                ASSERT_EQ(decoded[i], 32767);
                ++high;
            }
            if (s <= -1.0f) {
                ASSERT_EQ(decoded[i], -32768);
                ++low;
            }
            int32_t phase = int32_t(i % (period / 2));
            if (phase >= 10 && phase <= period / 2 - 10) {  // away from the ringing edges
                ASSERT_EQ(decoded[i] > 0, pcm[i] > 0) << "sample " << i;
            }
        }
        EXPECT_GT(high, 0);
        EXPECT_GT(low, 0);
    }
}

TEST(OxaCodec, streamBytesFollowTheFormat) {
    struct Case { int32_t channels; uint8_t qbits; int32_t window; int32_t frames; };
    const Case cases[] = {{2, 5, 2048, 3 * 2048}, {1, 8, 256, 5000}, {3, 2, 64, 640}, {2, 5, 1, 7}};
    for (const Case& c : cases) {
        Settings settings;
        settings.channels = c.channels;
        settings.qbits = c.qbits;
        settings.window = c.window;
        settings.rate = 22050;
        Bytes stream = encodeInt16(musicLikeSignal(c.frames, c.channels, 22050, 3), settings);
        OxaHeader header = headerOf(stream);
        EXPECT_EQ(std::memcmp(stream.data(), "oxa\x1A", 4), 0);
        EXPECT_EQ(header.version, 256);
        EXPECT_EQ(header.flags, 1);
        EXPECT_EQ(header.sampleRate, 22050u);
        EXPECT_EQ(header.channels, c.channels);
        EXPECT_EQ(header.qbits, c.qbits);
        EXPECT_EQ(header.windowSize, c.window);
        EXPECT_EQ(header.windowSize2, c.window);
        EXPECT_EQ(header.blockCount, uint32_t(c.frames / c.window + 1));  // the last block always follows
        for (uint8_t reserved : header.reserved)
            EXPECT_EQ(reserved, 0);
        EXPECT_EQ(stream[OxaHeaderSize], 0x78);
        EXPECT_EQ(stream[OxaHeaderSize + 1], 0xDA);

        Bytes payload = inflatePayload(stream);
        ASSERT_EQ(payload.size(), size_t(header.blockCount) * c.channels * (4 + c.window));
        const int32_t limit = 1 << c.qbits;
        for (size_t record = 0; record < payload.size(); record += 4 + c.window)
            for (int32_t i = 0; i < c.window; ++i) {
                uint8_t code = payload[record + 4 + i];
                ASSERT_LT(code, limit);
                ASSERT_NE(code, 0);  // normalised values never reach -1
            }
    }
}

TEST(OxaCodec, silentBlockIsUnitPeakAndMiddleCodes) {
    for (uint8_t qbits : {2, 5, 8}) {
        Settings settings;
        settings.qbits = qbits;
        settings.window = 512;
        Bytes payload = inflatePayload(encodeInt16(std::vector<int16_t>(2 * 512, 0), settings));
        ASSERT_EQ(payload.size(), size_t(2 * 2 * (4 + 512)));
        for (size_t record = 0; record < payload.size(); record += 4 + 512) {
            float peak;
            std::memcpy(&peak, &payload[record], 4);
            EXPECT_EQ(peak, 1.0f);
            for (int32_t i = 0; i < 512; ++i)
                ASSERT_EQ(payload[record + 4 + i], 1 << (qbits - 1));
        }
    }
}

TEST(OxaCodec, hugeThresholdOffsetDropsEverything) {
    Settings settings;
    settings.ath = 200.0f;
    Bytes payload = inflatePayload(encodeInt16(musicLikeSignal(4096, 2, 44100, 9), settings));
    for (size_t record = 0; record < payload.size(); record += 4 + 2048)
        for (int32_t i = 0; i < 2048; ++i)
            ASSERT_EQ(payload[record + 4 + i], 16);
}

// Every code byte and peak the encoder wrote, recomputed from the input with
// the plain formulas: direct-sum MDCT in double, log level, double pow. The
// FFT rounds differently from the direct sum, which may move a coefficient
// lying within a few ULPs of a decision bound; such flips are counted and
// must stay rare, while the same coefficients through the plain quantiser
// must give every byte.
TEST(OxaCodec, codeBytesEqualThePlainEvaluation) {
    struct Case { int32_t window; uint8_t qbits; int32_t blocks; };
    const Case cases[] = {{256, 5, 40}, {256, 8, 40}, {2048, 5, 6}, {2048, 8, 6}, {64, 2, 100}};
    int64_t codes = 0, flips = 0;
    for (const Case& c : cases) {
        Settings settings;
        settings.window = c.window;
        settings.qbits = c.qbits;
        const int32_t n = c.window, frames = n * c.blocks - n / 3;
        std::vector<int16_t> pcm = musicLikeSignal(frames, 2, 44100, uint32_t(n + c.qbits));
        Bytes payload = inflatePayload(encodeInt16(pcm, settings));
        ASSERT_EQ(payload.size(), size_t(c.blocks) * 2 * (4 + n));

        Quantiser quantiser;
        ASSERT_TRUE(quantiser.build(n, 44100, 0.0f, c.qbits));
        SharedRef<Mdct> transform(Mdct::create(n, true));
        std::vector<float> input(2 * n), fast(n), direct(n);
        std::vector<uint8_t> plainCodes(n), fastCodes(n);
        for (int32_t b = 0; b < c.blocks; ++b)
            for (int32_t channel = 0; channel < 2; ++channel) {
                for (int32_t i = 0; i < 2 * n; ++i) {
                    int64_t frame = int64_t(b - 1) * n + i;
                    input[i] = frame >= 0 && frame < frames ? pcm[frame * 2 + channel] * (1.0f / 32768) : 0.0f;
                }
                std::vector<double> sum = directMdct(input.data(), n, transform->window());
                for (int32_t k = 0; k < n; ++k)
                    direct[k] = float(sum[k]);
                transform->forward(input.data(), input.data() + n, fast.data());
                const uint8_t* written = &payload[(size_t(b) * 2 + channel) * (4 + n)];
                float fastPeak = plainQuantise(fast.data(), n, quantiser.athTable(), c.qbits, fastCodes.data());
                ASSERT_EQ(std::memcmp(written, &fastPeak, 4), 0);
                ASSERT_EQ(std::memcmp(written + 4, fastCodes.data(), n), 0) << "block " << b;
                plainQuantise(direct.data(), n, quantiser.athTable(), c.qbits, plainCodes.data());
                for (int32_t k = 0; k < n; ++k)
                    flips += plainCodes[k] != written[4 + k];
                codes += n;
            }
    }
    std::printf("    %lld of %lld codes differ from the direct-sum evaluation\n", (long long)flips, (long long)codes);
    EXPECT_LE(flips * 10000, codes);
}
