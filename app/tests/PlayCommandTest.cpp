// Play, end to end through the real libasound: "plughw" is redefined as the
// file plugin over the null device, writing into a FIFO that this test reads.
// The capture must be one period of primed silence followed by exactly the
// source's frames as stereo, looping, until standard input closes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "app/tests/ProcessRunner.h"
#include "audio/tests/WavBuilder.h"
#include "core/tests/support/TestSupport.h"

TEST(PlayCommandTest, primedSilenceThenTheSourceLoopingUntilAKey) {
    const std::string dir = temporaryDirectory();
    // Longer than a period even after decoding drops a block: a read wraps
    // around at most once, so a shorter file would leave silence, deliberately.
    std::vector<int16_t> stereo, mono, monoAsStereo;
    for (int i = 0; i < 6000; ++i)
        stereo.insert(stereo.end(), {int16_t(i * 7 - 10000), int16_t(-i * 5 + 3000)});
    for (int i = 0; i < 5000; ++i) {
        mono.push_back(int16_t(i * 11 - 8000));
        monoAsStereo.insert(monoAsStereo.end(), 2, mono.back());
    }
    writeWholeFile(dir + "/stereo.wav", pcm16Wav(stereo, 44100, 2));
    writeWholeFile(dir + "/mono.wav", pcm16Wav(mono, 44100, 1));
    ASSERT_EQ(runOxa({"-f", "stereo.wav"}, nullptr, dir).status, 0);
    ASSERT_EQ(runOxa({"-f", "-d", "stereo.oxa", "-o", "decoded.wav"}, nullptr, dir).status, 0);
    const std::vector<uint8_t> decodedWav = readWholeFile(dir + "/decoded.wav");
    std::vector<int16_t> decoded(decodedWav.size() / 2 - 22);
    std::memcpy(decoded.data(), decodedWav.data() + 44, decoded.size() * 2);

    struct Case { std::vector<std::string> arguments; const std::vector<int16_t>& samples; size_t periodFrames; };
    const Case cases[] = {
        {{"-p", "stereo.wav"}, stereo, 2205},  // 50 ms at 44100 Hz
        {{"-p", "-l", "100", "mono.wav"}, monoAsStereo, 4410},
        {{"stereo.oxa"}, decoded, 2205},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.back());
        const size_t primed = 2 * c.periodFrames, wanted = 2 * (primed + 2 * c.samples.size());
        int status = -1;
        const std::vector<uint8_t> captured = capturePlayback(OXA_EXECUTABLE, dir, c.arguments, wanted, status);
        EXPECT_EQ(status, 0);
        ASSERT_GE(captured.size(), wanted) << "capture too short";
        const int16_t* s = reinterpret_cast<const int16_t*>(captured.data());
        size_t mismatches = 0, first = 0;
        for (size_t i = 0; i < captured.size() / 2; ++i) {
            const int16_t expected = i < primed ? 0 : c.samples[(i - primed) % c.samples.size()];
            if (s[i] != expected && mismatches++ == 0)
                first = i;
        }
        EXPECT_EQ(mismatches, 0u) << "first mismatch at sample " << first << " of " << captured.size() / 2;
    }
}
