// Tests of OxaCodec: round trips, the exact bytes of the stream (checked
// with zlib as the reference inflater and the plain formulas as the oracle).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "codec/OxaFormat.h"
#include "codec/tests/CodecTestSupport.h"
#include "codec/tests/ReferenceMdct.h"

TEST(OxaCodec, roundTripKeepsTimeAndLevel) {
    struct Case { int32_t window; uint8_t qbits; double minSnr; };
    // Floors sit under the measured values printed below. (Windows of 1 and 2
    // keep almost nothing: their only coefficients sit at 0 Hz, under the
    // threshold of hearing, and at half the Nyquist frequency.)
    const Case cases[] = {{256, 5, 11}, {2048, 5, 15}, {8192, 5, 15}, {256, 8, 13}, {2048, 8, 29}, {8192, 8, 29}};
    const std::vector<int16_t> pcm = musicLikeSignal(3 * 44100, 2, 44100, 1);
    for (const Case& c : cases) {
        std::vector<int16_t> decoded = decodeAll(encodeInt16(pcm, Settings{2, c.qbits, c.window}), 2);
        // (blocks - 1) whole windows come back: every complete window of the input.
        ASSERT_EQ(decoded.size(), pcm.size() / 2 / c.window * c.window * 2) << "window " << c.window;
        // Least-squares gain of the output against the input: 1 when the level is kept.
        double cross = 0, power = 0;
        for (size_t i = 0; i < decoded.size(); ++i) {
            cross += double(pcm[i]) * decoded[i];
            power += double(pcm[i]) * pcm[i];
        }
        const double snr = snrDb(std::vector<int16_t>(pcm.begin(), pcm.begin() + decoded.size()), decoded);
        std::printf("    q%d window %5d: SNR %6.2f dB, gain %.3f\n", c.qbits, c.window, snr, cross / power);
        EXPECT_GT(snr, c.minSnr) << "q" << int(c.qbits) << " window " << c.window;
        // The power law rounds small coefficients down, which costs a few per cent.
        EXPECT_NEAR(cross / power, 1.0, 0.15) << "q" << int(c.qbits) << " window " << c.window;
    }
}

// A full-scale square overshoots at its edges: Int16 output clamps instead of
// wrapping. The same test checks how the decoder maps channels.
TEST(OxaCodec, fullScaleSquareClampsAndChannelsMap) {
    const int32_t frames = 8 * 2048, period = 200;
    std::vector<int16_t> pcm(2 * frames);
    for (int32_t i = 0; i < frames; ++i) {
        pcm[2 * i] = (i / (period / 2)) % 2 ? -32768 : 32767;
        pcm[2 * i + 1] = (i / period) % 2 ? 32767 : -32768;
    }
    for (uint8_t qbits : {5, 8}) {
        const Bytes stream = encodeInt16(pcm, Settings{2, qbits});
        const std::vector<int16_t> stereo = decodeAll(stream, 2), four = decodeAll(stream, 4), mono = decodeAll(stream, 1);
        const std::vector<float> floats = decodeAll<float>(stream, 3);
        ASSERT_EQ(stereo.size(), pcm.size());
        ASSERT_EQ(four.size(), 2 * pcm.size());
        ASSERT_EQ(mono.size(), pcm.size() / 2);
        ASSERT_EQ(floats.size(), 3 * pcm.size() / 2);
        int32_t high = 0, low = 0;
        for (size_t i = 0; i < pcm.size(); ++i) {
            const size_t f = i / 2, c = i % 2;
            const float s = floats[3 * f + c];
            // Int16 output is floor(32768 s + 0.5), clamped; full scale is reached.
            ASSERT_EQ(stereo[i], std::clamp(std::floor(32768.0 * s + 0.5), -32768.0, 32767.0)) << "sample " << i;
            high += s >= 1.0f;
            low += s <= -1.0f;
            ASSERT_EQ(four[4 * f + c], stereo[i]);
            ASSERT_EQ(four[4 * f + 2 + c], 0);
            ASSERT_EQ(floats[3 * f + 2], 0.0f);
            ASSERT_EQ(mono[f], stereo[2 * f]);
        }
        EXPECT_GT(high, 0);
        EXPECT_GT(low, 0);
    }
}

// The exact header and the payload's size; blocks of silence decode to exact
// silence.
TEST(OxaCodec, streamBytesFollowTheFormat) {
    struct Case { int32_t channels; uint8_t qbits; int32_t window; int32_t frames; float ath; bool silent; };
    const Case cases[] = {{2, 5, 2048, 3 * 2048, 0, false}, {1, 8, 256, 5000, 0, false}, {3, 2, 64, 640, 0, false},
                          {2, 5, 1, 7, 0, false},           {2, 2, 512, 5000, 0, true},   {2, 5, 1, 3000, 0, true},
                          {1, 8, 2048, 5000, 0, true},      {2, 5, 2048, 5000, 200, false}};
    for (const Case& c : cases) {
        const std::vector<int16_t> pcm =
            c.silent ? std::vector<int16_t>(c.frames * c.channels) : musicLikeSignal(c.frames, c.channels, 22050, 3);
        const Bytes stream = encodeInt16(pcm, Settings{c.channels, c.qbits, c.window, c.ath, 22050});
        const uint32_t blocks = c.frames / c.window + 1;  // the last block always follows
        const uint8_t low = uint8_t(c.window), high = uint8_t(c.window >> 8);
        // Magic, version 256, flags 1, rate, channels, qbits, window, blocks, window again; reserved is zero.
        Bytes expected = {'o', 'x', 'a', 0x1A, 0, 1, 1, 0, 0x22, 0x56, 0, 0, uint8_t(c.channels), c.qbits,
                          low, high, uint8_t(blocks), uint8_t(blocks >> 8), 0, 0, low, high};
        expected.resize(OxaHeaderSize);
        expected.insert(expected.end(), {0x78, 0xDA});  // zlib framing
        EXPECT_EQ(Bytes(stream.begin(), stream.begin() + OxaHeaderSize + 2), expected);
        const Bytes payload = inflatePayload(stream);
        ASSERT_EQ(payload.size(), size_t(blocks) * c.channels * (4 + c.window));
        if (c.silent || c.ath > 100) {
            EXPECT_EQ(decodeAll(stream, c.channels), std::vector<int16_t>(c.frames / c.window * c.window * c.channels));
        }
    }
}

// Every code byte and peak the encoder wrote, recomputed from the input with
// the plain formulas on the coefficients of the plain transform (the
// algorithm the fast one reproduces bit for bit): the blocks' framing of the
// input, its scaling and zero padding, and the threshold's rate and offset
// must all be the encoder's. Silence (gain 0) and music under a huge
// threshold offset code every coefficient as H.
TEST(OxaCodec, codeBytesEqualThePlainEvaluation) {
    struct Case { int32_t window; uint8_t qbits; float ath; float gain; int32_t blocks; };
    const Case cases[] = {{256, 5, 0, 1, 40}, {256, 8, 10, 0.05f, 40}, {2048, 5, -20, 1, 6}, {2048, 8, 0, 1, 6},
                          {64, 2, 0, 0.3f, 100}, {2, 6, -100, 1, 400}, {1024, 7, 30, 1, 8},
                          {512, 2, 0, 0, 10},    {1, 5, 0, 0, 3000},     {2048, 5, 200, 1, 3}};
    for (const Case& c : cases) {
        const int32_t n = c.window, frames = n * c.blocks - (n + 2) / 3;
        std::vector<int16_t> pcm = musicLikeSignal(frames, 2, 44100, uint32_t(n + c.qbits));
        for (int16_t& sample : pcm)
            sample = int16_t(sample * c.gain);
        const Bytes payload = inflatePayload(encodeInt16(pcm, Settings{2, c.qbits, n, c.ath}));
        ASSERT_EQ(payload.size(), size_t(c.blocks) * 2 * (4 + n));
        const ReferenceMdct transform(n, true);
        std::vector<float> input(2 * n), coefficients(n);
        for (int32_t b = 0; b < c.blocks; ++b)
            for (int32_t channel = 0; channel < 2; ++channel) {
                for (int32_t i = 0; i < 2 * n; ++i) {
                    int64_t frame = int64_t(b - 1) * n + i;
                    input[i] = frame >= 0 && frame < frames ? pcm[frame * 2 + channel] * (1.0f / 32768) : 0.0f;
                }
                transform.forward(input.data(), coefficients.data());
                const auto record = payload.begin() + (size_t(b) * 2 + channel) * (4 + n);
                ASSERT_EQ(Bytes(record, record + 4 + n), plainRecord(coefficients.data(), n, 44100, c.ath, c.qbits))
                    << "window " << n << " block " << b;
            }
    }
}
