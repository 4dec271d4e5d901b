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

#include "AlsaPlayback.h"
#include "Clock.h"
#include "Event.h"
#include "TestSupport.h"

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

struct PlayReport {
    bool started = false, rampFinished = false;
    uint32_t sampleRate = 0, channels = 0, rateAfterStop = 1;
    float latency = 0;
};

// Plays 44100 Hz `channels` in a child; its capture and standard error are
// left in `directory`.
PlayReport playThroughFilePlugin(uint32_t channels, const std::string& directory) {
    const std::string configPath = directory + "/asound.conf";
    writeAlsaCaptureConfig(configPath, directory + "/capture.raw");
    int pipeEnds[2];
    PlayReport report;
    if (pipe(pipeEnds) != 0)
        return report;
    const pid_t child = fork();
    if (child == 0) {
        dup2(open((directory + "/stderr.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
        setenv("ALSA_CONFIG_PATH", configPath.c_str(), 1);
        snd_config_update_free_global();  // forget whatever the parent process loaded
        {
            Ramp ramp;
            SharedRef<AlsaPlayback> device(new AlsaPlayback);
            device->setRenderCallback(RenderCallback::fromMethod<&Ramp::render>(&ramp));
            report.started = device->start(44100, channels, 0.05f);
            if (report.started) {
                const DeviceSettings settings = device->getSettings();
                report.sampleRate = settings.sampleRate, report.channels = settings.channels;
                report.latency = settings.latency;
                report.rampFinished = ramp.done.wait(10000);
                device->stop();
                report.rateAfterStop = device->getSettings().sampleRate;
            }
        }
        _exit(write(pipeEnds[1], &report, sizeof report) == sizeof report ? 0 : 1);
    }
    close(pipeEnds[1]);
    if (read(pipeEnds[0], &report, sizeof report) != sizeof report)
        report = PlayReport();
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return report;
}

}  // namespace

TEST(AlsaCaptureTest, captureHoldsPrimedSilenceThenExactlyTheRenderedFrames) {
    for (uint32_t channels : {2u, 1u}) {
        SCOPED_TRACE("channels " + std::to_string(channels));
        const std::string directory = temporaryDirectory();
        const PlayReport report = playThroughFilePlugin(channels, directory);
        ASSERT_TRUE(report.started);
        EXPECT_TRUE(report.rampFinished);
        const uint32_t period = 44100 / 20;  // 50 ms
        EXPECT_EQ(report.sampleRate, 44100u);
        EXPECT_EQ(report.channels, channels);
        EXPECT_EQ(report.latency, float(period) / 44100.0f);
        EXPECT_EQ(report.rateAfterStop, 0u);
        EXPECT_TRUE(readWholeFile(directory + "/stderr.txt").empty());

        const std::vector<uint8_t> bytes = readWholeFile(directory + "/capture.raw");
        const size_t periodSamples = size_t(period) * channels, rampSamples = periodSamples * rampPeriods;
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
