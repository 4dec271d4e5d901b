// Play, end to end through the real libasound: "plughw" is redefined as the
// file plugin over the null device, writing into a FIFO that this test reads.
// The capture must be one period of primed silence followed by exactly the
// source's frames, looping, until standard input closes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/tests/ProcessRunner.h"
#include "core/tests/support/TestSupport.h"

namespace {

constexpr size_t PeriodFrames = 2205;  // 50 ms at 44100 Hz

std::vector<uint8_t> wav16(const std::vector<int16_t>& samples, uint16_t channels) {
    std::vector<uint8_t> out;
    auto put = [&](uint32_t v, int n) { for (int i = 0; i < n; ++i) out.push_back(uint8_t(v >> (8 * i))); };
    auto tag = [&](const char* t) { for (int i = 0; i < 4; ++i) out.push_back(uint8_t(t[i])); };
    uint32_t bytes = uint32_t(samples.size() * 2);
    tag("RIFF"), put(36 + bytes, 4), tag("WAVE"), tag("fmt "), put(16, 4), put(1, 2), put(channels, 2);
    put(44100, 4), put(44100 * 2 * channels, 4), put(2 * channels, 2), put(16, 2), tag("data"), put(bytes, 4);
    for (int16_t s : samples)
        put(uint16_t(s), 2);
    return out;
}

std::vector<int16_t> samplesOf(const std::vector<uint8_t>& wav) {
    std::vector<int16_t> samples;
    for (size_t i = 44; i + 1 < wav.size(); i += 2)
        samples.push_back(int16_t(wav[i] | wav[i + 1] << 8));
    return samples;
}

std::vector<uint8_t> capturePlay(const std::string& dir, const std::vector<std::string>& arguments, size_t wanted,
                                 int& status) {
    return capturePlayback(OXA_EXECUTABLE, dir, arguments, wanted, status);
}

// Checks silence for one period, then `frames` (stereo) repeating at least twice.
void expectPrimedLoop(const std::vector<uint8_t>& captured, const std::vector<int16_t>& frames) {
    size_t samples = captured.size() / 2;
    const int16_t* s = reinterpret_cast<const int16_t*>(captured.data());
    ASSERT_GE(samples, PeriodFrames * 2 + 2 * frames.size()) << "capture too short";
    for (size_t i = 0; i < PeriodFrames * 2; ++i)
        ASSERT_EQ(s[i], 0) << "primed silence at sample " << i;
    size_t mismatches = 0, first = 0;
    for (size_t i = PeriodFrames * 2; i < samples; ++i) {
        if (s[i] != frames[(i - PeriodFrames * 2) % frames.size()] && mismatches++ == 0)
            first = i;
    }
    EXPECT_EQ(mismatches, 0u) << "first mismatch at sample " << first << " of " << samples;
}

class PlayCommandTest : public testing::Test {
protected:
    void SetUp() override {
        dir = temporaryDirectory();
        // Longer than a period even after decoding drops a block: a read wraps
        // around at most once, so a shorter file would leave silence, deliberately.
        for (int i = 0; i < 6000; ++i) {
            stereo.push_back(int16_t(i * 7 - 10000));
            stereo.push_back(int16_t(-i * 5 + 3000));
        }
        writeWholeFile(dir + "/stereo.wav", wav16(stereo, 2));
    }
    std::string dir;
    std::vector<int16_t> stereo;
};

}  // namespace

TEST_F(PlayCommandTest, stereoWavLoopsAfterOnePeriodOfSilence) {
    int status = -1;
    std::vector<uint8_t> captured = capturePlay(dir, {"-p", "stereo.wav"}, (PeriodFrames + 13000) * 4, status);
    EXPECT_EQ(status, 0);
    expectPrimedLoop(captured, stereo);
}

TEST_F(PlayCommandTest, monoWavIsDuplicatedToBothChannels) {
    std::vector<int16_t> mono, both;
    for (int i = 0; i < 2500; ++i) {
        mono.push_back(int16_t(i * 11 - 8000));
        both.push_back(mono.back());
        both.push_back(mono.back());
    }
    writeWholeFile(dir + "/mono.wav", wav16(mono, 1));
    int status = -1;
    std::vector<uint8_t> captured = capturePlay(dir, {"-p", "mono.wav"}, (PeriodFrames + 6000) * 4, status);
    EXPECT_EQ(status, 0);
    expectPrimedLoop(captured, both);
}

TEST_F(PlayCommandTest, oxaStreamPlaysItsDecodedFrames) {
    ASSERT_EQ(runOxa({"-f", "stereo.wav"}, nullptr, dir).status, 0);
    ASSERT_EQ(runOxa({"-f", "-d", "stereo.oxa", "-o", "decoded.wav"}, nullptr, dir).status, 0);
    std::vector<int16_t> decoded = samplesOf(readWholeFile(dir + "/decoded.wav"));
    ASSERT_GE(decoded.size(), PeriodFrames * 2);
    int status = -1;
    std::vector<uint8_t> captured =
        capturePlay(dir, {"stereo.oxa"}, (PeriodFrames * 2 + decoded.size() * 2) * 2, status);
    EXPECT_EQ(status, 0);
    expectPrimedLoop(captured, decoded);
}
