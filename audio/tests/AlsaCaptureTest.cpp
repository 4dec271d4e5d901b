// Plays through real libasound with "plughw" redefined as its file plugin
// over the null plugin, and checks what reached the file. Each play runs in
// a child process, so that ALSA_CONFIG_PATH is in place before libasound
// reads its configuration.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "audio/AlsaPlayback.h"
#include "core/Clock.h"
#include "core/Event.h"
#include "core/tests/support/TestSupport.h"

namespace {

const int32_t rampPeriods = 20;

// Counts up from 1 for a fixed number of periods, then renders silence
// slowly: the null plugin never blocks, so the capture would otherwise
// grow as fast as the thread can run. `done` is set on the first silent
// period, when the last counted one has been written.
struct Ramp {
    int32_t periodsLeft = rampPeriods;
    uint16_t next = 1;
    Event done{false};

    void render(int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
        for (uint32_t i = 0; i < frames * settings.channels; ++i)
            buffer[i] = periodsLeft > 0 ? int16_t(next++) : 0;
        if (periodsLeft-- > 0)
            return;
        done.set();
        sleepMs(1);
    }
};

// Plays 44100 Hz `channels` in a child, leaving its capture and standard
// error in `directory`. The child's exit status has a bit for each check
// that failed: 1 start, 2 ramp unfinished, 4 settings, 8 settings kept after
// stop.
int playThroughFilePlugin(uint32_t channels, const std::string& directory) {
    const std::string configPath = directory + "/asound.conf";
    writeAlsaCaptureConfig(configPath, directory + "/capture.raw");
    const pid_t child = fork();
    if (child == 0) {
        dup2(open((directory + "/stderr.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
        setenv("ALSA_CONFIG_PATH", configPath.c_str(), 1);
        snd_config_update_free_global();  // forget whatever the parent process loaded
        int failed = 0;
        {
            Ramp ramp;
            SharedRef<AlsaPlayback> device(new AlsaPlayback);
            device->setRenderCallback(RenderCallback::fromMethod<&Ramp::render>(&ramp));
            if (!device->start(44100, channels, 0.05f))
                _exit(1);
            const DeviceSettings settings = device->getSettings();
            const bool asAsked = settings.sampleRate == 44100 && settings.channels == channels &&
                                 settings.latency == 2205.0f / 44100.0f;  // one 50 ms period
            failed |= (ramp.done.wait(10000) ? 0 : 2) | (asAsked ? 0 : 4);
            device->stop();
            failed |= device->getSettings().sampleRate == 0 ? 0 : 8;
        }
        _exit(failed);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

}  // namespace

TEST(AlsaCaptureTest, captureHoldsPrimedSilenceThenExactlyTheRenderedFrames) {
    for (uint32_t channels : {2u, 1u}) {
        SCOPED_TRACE("channels " + std::to_string(channels));
        const std::string directory = temporaryDirectory();
        ASSERT_EQ(playThroughFilePlugin(channels, directory), 0) << "1 start, 2 ramp, 4 settings, 8 stop";
        EXPECT_TRUE(readWholeFile(directory + "/stderr.txt").empty());

        const std::vector<uint8_t> bytes = readWholeFile(directory + "/capture.raw");
        const size_t periodSamples = size_t(2205) * channels, rampSamples = periodSamples * rampPeriods;
        ASSERT_EQ(bytes.size() % (periodSamples * 2), 0u);
        ASSERT_GE(bytes.size() / 2, periodSamples + rampSamples);
        const int16_t* samples = reinterpret_cast<const int16_t*>(bytes.data());
        size_t wrong = 0;
        for (size_t i = 0; i < bytes.size() / 2; ++i) {
            const bool inRamp = i >= periodSamples && i < periodSamples + rampSamples;
            wrong += samples[i] != (inRamp ? int16_t(uint16_t(i - periodSamples + 1)) : 0);
        }
        EXPECT_EQ(wrong, 0u);
    }
}
