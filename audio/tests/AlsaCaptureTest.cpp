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

// Counts up from 1 for a fixed number of periods, then renders silence
// slowly: the null plugin never blocks, so the capture would otherwise
// grow as fast as the thread can run. `done` is set on the first silent
// period, when the last counted one has been written.
struct Ramp {
    int32_t periodsLeft;
    uint16_t next = 1;
    Event done{false};

    void render(int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
        uint32_t samples = frames * settings.channels;
        for (uint32_t i = 0; i < samples; ++i)
            buffer[i] = periodsLeft > 0 ? int16_t(next++) : 0;
        if (periodsLeft-- > 0)
            return;
        done.set();
        sleepMs(1);
    }
};

struct PlayReport {
    bool started = false;
    bool rampFinished = false;
    uint32_t sampleRate = 0, channels = 0;
    float latency = 0;
    unsigned long bufferFrames = 0, periodFrames = 0;  // as the PCM was configured
    uint32_t rateAfterStop = 1;
};

struct Play {
    uint32_t rate;
    uint32_t channels;
    int32_t rampPeriods;
};

void readConfiguredSizes(snd_pcm_t* pcm, PlayReport& report) {
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_malloc(&params);
    if (snd_pcm_hw_params_current(pcm, params) == 0) {
        snd_pcm_uframes_t frames = 0;
        snd_pcm_hw_params_get_buffer_size(params, &frames);
        report.bufferFrames = frames;
        snd_pcm_hw_params_get_period_size(params, &frames, nullptr);
        report.periodFrames = frames;
    }
    snd_pcm_hw_params_free(params);
}

[[noreturn]] void playInChild(const Play& play, const std::string& configPath, const std::string& errorPath,
                              int reportPipe) {
    int errorFile = open(errorPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(errorFile, 2);
    setenv("ALSA_CONFIG_PATH", configPath.c_str(), 1);
    snd_config_update_free_global();  // forget whatever the parent process loaded
    PlayReport report;
    {
        Ramp ramp{play.rampPeriods};
        SharedRef<AlsaPlayback> device(new AlsaPlayback);
        device->setRenderCallback(RenderCallback::fromMethod<&Ramp::render>(&ramp));
        report.started = device->start(play.rate, play.channels, 0.05f);
        if (report.started) {
            DeviceSettings settings = device->getSettings();
            report.sampleRate = settings.sampleRate;
            report.channels = settings.channels;
            report.latency = settings.latency;
            readConfiguredSizes(device->pcmHandle(), report);
            report.rampFinished = ramp.done.wait(10000);
            device->stop();
            report.rateAfterStop = device->getSettings().sampleRate;
        }
    }
    ssize_t written = write(reportPipe, &report, sizeof report);
    _exit(written == sizeof report ? 0 : 1);
}

// Runs the play in a child; the capture and the child's standard error are
// left in `directory`.
PlayReport playThroughFilePlugin(const Play& play, const std::string& directory) {
    std::string configPath = directory + "/asound.conf";
    std::string config =
        "</usr/share/alsa/alsa.conf>\n"
        "pcm.!plughw {\n"
        "  @args [ CARD DEV SUBDEV ]\n"
        "  @args.CARD { type string }\n"
        "  @args.DEV { type integer }\n"
        "  @args.SUBDEV { type integer default -1 }\n"
        "  type file\n"
        "  slave.pcm \"null\"\n"
        "  file \"" + directory + "/capture.raw\"\n"
        "  format \"raw\"\n"
        "}\n";
    writeWholeFile(configPath, std::vector<uint8_t>(config.begin(), config.end()));

    int pipeEnds[2];
    PlayReport report;
    if (pipe(pipeEnds) != 0)
        return report;
    pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        playInChild(play, configPath, directory + "/stderr.txt", pipeEnds[1]);
    }
    close(pipeEnds[1]);
    PlayReport received;
    if (read(pipeEnds[0], &received, sizeof received) == sizeof received)
        report = received;
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return report;
}

}  // namespace

TEST(AlsaCaptureTest, captureHoldsPrimedSilenceThenExactlyTheRenderedFrames) {
    const Play plays[] = {{44100, 2, 20}, {44100, 1, 20}, {48000, 2, 10}};
    for (const Play& play : plays) {
        SCOPED_TRACE(std::to_string(play.rate) + " Hz, channels " + std::to_string(play.channels));
        std::string directory = temporaryDirectory();
        PlayReport report = playThroughFilePlugin(play, directory);
        ASSERT_TRUE(report.started);
        EXPECT_TRUE(report.rampFinished);
        uint32_t period = play.rate / 20;  // 50 ms
        EXPECT_EQ(report.sampleRate, play.rate);
        EXPECT_EQ(report.channels, play.channels);
        EXPECT_EQ(report.latency, float(period) / float(play.rate));
        EXPECT_EQ(report.periodFrames, period);
        EXPECT_EQ(report.bufferFrames, 2 * period);
        EXPECT_EQ(report.rateAfterStop, 0u);
        EXPECT_TRUE(readWholeFile(directory + "/stderr.txt").empty());

        std::vector<uint8_t> bytes = readWholeFile(directory + "/capture.raw");
        size_t periodSamples = size_t(period) * play.channels;
        size_t rampSamples = periodSamples * size_t(play.rampPeriods);
        ASSERT_EQ(bytes.size() % (periodSamples * 2), 0u);
        ASSERT_GE(bytes.size() / 2, periodSamples + rampSamples);
        const int16_t* samples = reinterpret_cast<const int16_t*>(bytes.data());
        size_t wrong = 0;
        for (size_t i = 0; i < bytes.size() / 2; ++i) {
            bool inRamp = i >= periodSamples && i < periodSamples + rampSamples;
            int16_t expected = inRamp ? int16_t(uint16_t(i - periodSamples + 1)) : 0;
            wrong += samples[i] != expected;
        }
        EXPECT_EQ(wrong, 0u);
    }
}
