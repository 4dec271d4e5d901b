// Tests of AlsaPlayback through a scripted PcmApi: the parameter sequence of
// start, and every error path of the feeding step.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "AlsaPlayback.h"
#include "Clock.h"

namespace {

// Records every call as one line and answers from per-call scripts; an
// empty script gives success (writei takes the whole period, avail is 0).
class ScriptedPcm : public PcmApi {
public:
    std::deque<long> writes, avails, resumes, recovers, prepares;
    std::string failingCall;  // this parameter call returns -EINVAL
    unsigned chosenRate = 0;  // when set, the "hardware" picks this rate...
    snd_pcm_uframes_t chosenPeriod = 0;  // ...and this period
    bool pace = false;  // writei naps 1 ms, as a real device would block

    std::vector<std::string> takeCalls() {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::string> taken;
        taken.swap(calls);
        return taken;
    }
    void note(const std::string& call) {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(call);
    }
    void renderInto(int16_t*, uint32_t frames, const DeviceSettings&) { note("render " + std::to_string(frames)); }

    int open(snd_pcm_t** pcm, const char* name, snd_pcm_stream_t, int) override {
        note(std::string("open ") + name);
        *pcm = reinterpret_cast<snd_pcm_t*>(this);
        return 0;
    }
    int close(snd_pcm_t*) override { return noted("close"); }
    int freeGlobalConfig() override { return noted("freeGlobalConfig"); }
    int hwParamsMalloc(snd_pcm_hw_params_t** params) override {
        *params = reinterpret_cast<snd_pcm_hw_params_t*>(this);
        return noted("hwMalloc");
    }
    int hwParamsAny(snd_pcm_t*, snd_pcm_hw_params_t*) override { return noted("hwAny"); }
    int hwParamsSetAccess(snd_pcm_t*, snd_pcm_hw_params_t*, snd_pcm_access_t access) override {
        return noted("access " + std::to_string(access));
    }
    int hwParamsSetFormat(snd_pcm_t*, snd_pcm_hw_params_t*, snd_pcm_format_t format) override {
        return noted("format " + std::to_string(format));
    }
    int hwParamsSetRateNear(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned* rate, int*) override {
        int result = noted("rate " + std::to_string(*rate));
        if (chosenRate)
            *rate = chosenRate;
        return result;
    }
    int hwParamsSetChannels(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned channels) override {
        return noted("channels " + std::to_string(channels));
    }
    int hwParamsSetBufferSizeNear(snd_pcm_t*, snd_pcm_hw_params_t*, snd_pcm_uframes_t* frames) override {
        return noted("buffer " + std::to_string(*frames));
    }
    int hwParamsSetPeriodSizeNear(snd_pcm_t*, snd_pcm_hw_params_t*, snd_pcm_uframes_t* frames, int*) override {
        int result = noted("period " + std::to_string(*frames));
        if (chosenPeriod)
            *frames = chosenPeriod;
        return result;
    }
    int hwParamsSetPeriodsNear(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned* periods, int*) override {
        return noted("periods " + std::to_string(*periods));
    }
    int hwParams(snd_pcm_t*, snd_pcm_hw_params_t*) override { return noted("hwParams"); }
    void hwParamsFree(snd_pcm_hw_params_t*) override { note("hwFree"); }
    int swParamsMalloc(snd_pcm_sw_params_t** params) override {
        *params = reinterpret_cast<snd_pcm_sw_params_t*>(this);
        return noted("swMalloc");
    }
    int swParamsCurrent(snd_pcm_t*, snd_pcm_sw_params_t*) override { return noted("swCurrent"); }
    int swParamsSetStartThreshold(snd_pcm_t*, snd_pcm_sw_params_t*, snd_pcm_uframes_t frames) override {
        return noted("startThreshold " + std::to_string(frames));
    }
    int swParamsSetAvailMin(snd_pcm_t*, snd_pcm_sw_params_t*, snd_pcm_uframes_t frames) override {
        return noted("availMin " + std::to_string(frames));
    }
    int swParams(snd_pcm_t*, snd_pcm_sw_params_t*) override { return noted("swParams"); }
    void swParamsFree(snd_pcm_sw_params_t*) override { note("swFree"); }
    int nonblock(snd_pcm_t*, int nonblocking) override { return noted("nonblock " + std::to_string(nonblocking)); }
    snd_pcm_sframes_t writei(snd_pcm_t*, const void*, snd_pcm_uframes_t frames) override {
        note("writei " + std::to_string(frames));
        if (pace)
            ::sleepMs(1);
        return scripted(writes, long(frames));
    }
    snd_pcm_sframes_t availUpdate(snd_pcm_t*) override {
        note("avail");
        return scripted(avails, 0);
    }
    int recover(snd_pcm_t*, int error, int silent) override {
        note("recover " + std::to_string(error) + " " + std::to_string(silent));
        return int(scripted(recovers, 0));
    }
    int resume(snd_pcm_t*) override {
        note("resume");
        return int(scripted(resumes, 0));
    }
    int prepare(snd_pcm_t*) override {
        note("prepare");
        return int(scripted(prepares, 0));
    }
    int drop(snd_pcm_t*) override { return noted("drop"); }
    void sleepMs(uint32_t ms) override { note("sleep " + std::to_string(ms)); }

private:
    int noted(const std::string& call) {
        note(call);
        return call.compare(0, failingCall.size(), failingCall) == 0 && !failingCall.empty() ? -EINVAL : 0;
    }
    long scripted(std::deque<long>& script, long otherwise) {
        std::lock_guard<std::mutex> lock(mutex);
        if (script.empty())
            return otherwise;
        long value = script.front();
        script.pop_front();
        return value;
    }

    std::mutex mutex;
    std::vector<std::string> calls;
};

// Lets a test run the feeding step by hand, without the thread.
struct DrivenPlayback : AlsaPlayback {
    explicit DrivenPlayback(ScriptedPcm& pcm) : AlsaPlayback(pcm) {
        setRenderCallback(RenderCallback::fromMethod<&ScriptedPcm::renderInto>(&pcm));
        pcm.takeCalls();
    }
    using AlsaPlayback::configure;
    using AlsaPlayback::feedStep;
};

using Calls = std::vector<std::string>;

}  // namespace

TEST(AlsaPlaybackTest, startAsksForTwoPeriodsOfTheLatency) {
    ScriptedPcm pcm;
    {
        DrivenPlayback device(pcm);
        EXPECT_TRUE(device.isOpen());
        pcm.pace = true;
        ASSERT_TRUE(device.start(48000, 2, 0.05f));
        Calls calls = pcm.takeCalls();
        Calls expected = {"hwMalloc", "hwAny", "access 3", "format 2", "rate 48000", "channels 2",
                          "buffer 4800", "period 2400", "periods 2", "hwParams", "hwFree",
                          "swMalloc", "swCurrent", "startThreshold 1", "availMin 2400", "swParams",
                          "swFree", "nonblock 0", "writei 2400"};
        ASSERT_GE(calls.size(), expected.size());
        EXPECT_EQ(Calls(calls.begin(), calls.begin() + long(expected.size())), expected);

        DeviceSettings settings = device.getSettings();
        EXPECT_EQ(settings.name, String("AlsaPlayback"));
        EXPECT_EQ(settings.sampleRate, 48000u);
        EXPECT_EQ(settings.channels, 2u);
        EXPECT_EQ(settings.latency, 2400.0f / 48000.0f);
        EXPECT_EQ(settings.coarseFrames, 139u);
        EXPECT_EQ(settings.fineFrames, 17u);

        EXPECT_TRUE(device.stop());
        EXPECT_EQ(device.getSettings().sampleRate, 0u);
        EXPECT_TRUE(device.getSettings().name.isEmpty());
        Calls stopping = pcm.takeCalls();
        EXPECT_EQ(std::count(stopping.begin(), stopping.end(), "drop"), 1);
    }
    EXPECT_EQ(pcm.takeCalls(), (Calls{"close", "freeGlobalConfig"}));
}

TEST(AlsaPlaybackTest, settingsFollowTheHardwareChoice) {
    ScriptedPcm pcm;
    pcm.chosenRate = 44100;
    pcm.chosenPeriod = 2205;
    DrivenPlayback device(pcm);
    ASSERT_TRUE(device.configure(48000, 1, 0.05f));
    DeviceSettings settings = device.getSettings();
    EXPECT_EQ(settings.sampleRate, 44100u);
    EXPECT_EQ(settings.latency, 2205.0f / 48000.0f);  // the chosen period over the rate asked for
    EXPECT_EQ(settings.coarseFrames, 128u);
    EXPECT_EQ(settings.fineFrames, 16u);
    Calls calls = pcm.takeCalls();
    EXPECT_NE(std::find(calls.begin(), calls.end(), "availMin 2205"), calls.end());
    device.feedStep();
    EXPECT_EQ(pcm.takeCalls(), (Calls{"avail", "render 2205", "writei 2205", "avail"}));
}

TEST(AlsaPlaybackTest, unsupportedChannelCountsTouchNothing) {
    ScriptedPcm pcm;
    DrivenPlayback device(pcm);
    for (uint32_t channels : {0u, 3u, 6u}) {
        EXPECT_FALSE(device.start(44100, channels, 0.05f));
        EXPECT_TRUE(pcm.takeCalls().empty()) << channels;
    }
}

TEST(AlsaPlaybackTest, anyFailingParameterCallFailsStartAndLeavesTheDeviceUsable) {
    // The hardware calls after hwAny are all made even when one of them fails.
    const std::string setCalls[] = {"access", "format", "rate", "channels", "buffer", "period", "periods"};
    const std::string otherCalls[] = {"hwParams", "hwAny", "startThreshold", "availMin", "swParams", "swCurrent"};
    std::vector<std::string> calls(std::begin(setCalls), std::end(setCalls));
    calls.insert(calls.end(), std::begin(otherCalls), std::end(otherCalls));
    for (const std::string& failing : calls) {
        ScriptedPcm pcm;
        DrivenPlayback device(pcm);
        pcm.failingCall = failing;
        EXPECT_FALSE(device.start(44100, 2, 0.05f)) << failing;
        Calls made = pcm.takeCalls();
        EXPECT_EQ(std::count(made.begin(), made.end(), "writei 2205"), 0) << failing;
        EXPECT_EQ(std::count(made.begin(), made.end(), "hwFree"), 1) << failing;
        if (std::find(std::begin(setCalls), std::end(setCalls), failing) != std::end(setCalls)) {
            EXPECT_EQ(std::count(made.begin(), made.end(), "hwParams"), 1) << failing;
        }
        pcm.failingCall.clear();
        pcm.pace = true;
        EXPECT_TRUE(device.start(44100, 2, 0.05f)) << failing;
        device.stop();
    }
}

TEST(AlsaPlaybackTest, feedingStepHandlesEachDeviceError) {
    struct Case {
        const char* name;
        std::deque<long> writes, avails, resumes, recovers, prepares;
        Calls expected;
    };
    const Case cases[] = {
        {"room for three periods", {}, {0, 2400, 2400, 100}, {}, {}, {},
         {"avail", "render 2400", "writei 2400", "avail", "render 2400", "writei 2400", "avail",
          "render 2400", "writei 2400", "avail"}},
        {"short write is not completed", {100}, {}, {}, {}, {},
         {"avail", "render 2400", "writei 2400", "avail"}},
        {"underrun prepares and drops the period", {-EPIPE}, {}, {}, {}, {},
         {"avail", "render 2400", "writei 2400", "prepare", "avail"}},
        {"try again writes again", {-EAGAIN, -EAGAIN}, {}, {}, {}, {},
         {"avail", "render 2400", "writei 2400", "writei 2400", "writei 2400", "avail"}},
        {"suspend resumes with naps, then writes again", {-ESTRPIPE}, {}, {-EAGAIN, -EAGAIN, 0}, {}, {},
         {"avail", "render 2400", "writei 2400", "resume", "sleep 1", "resume", "sleep 1", "resume",
          "writei 2400", "avail"}},
        {"failed resume with underrun prepares twice", {-ESTRPIPE}, {}, {-EPIPE}, {}, {},
         {"avail", "render 2400", "writei 2400", "resume", "prepare", "prepare", "avail"}},
        {"failed resume recovers and prepares", {-ESTRPIPE}, {}, {-EIO}, {}, {},
         {"avail", "render 2400", "writei 2400", "resume", "prepare", "recover -5 0", "prepare", "avail"}},
        {"failed resume and failed prepare give up", {-ESTRPIPE}, {}, {-EIO}, {}, {-EIO},
         {"avail", "render 2400", "writei 2400", "resume", "prepare", "avail"}},
        {"other error recovers, then prepares", {-EIO}, {}, {}, {}, {},
         {"avail", "render 2400", "writei 2400", "recover -5 0", "prepare", "avail"}},
        {"other error with failed recover", {-EBADFD}, {}, {}, {-EBADFD}, {},
         {"avail", "render 2400", "writei 2400", "recover -77 0", "avail"}},
        {"underrun seen by avail still renders", {}, {-EPIPE}, {}, {}, {},
         {"avail", "render 2400", "writei 2400", "avail"}},
        {"avail error recovered", {}, {-EIO}, {}, {}, {},
         {"avail", "recover -5 0", "render 2400", "writei 2400", "avail"}},
        {"avail error not recovered ends the step", {}, {-EIO}, {}, {-EIO}, {},
         {"avail", "recover -5 0"}},
        {"error in a later period leaves the loop going", {0, -EPIPE}, {0, 2400, 2400, 0}, {}, {}, {},
         {"avail", "render 2400", "writei 2400", "avail", "render 2400", "writei 2400", "prepare", "avail",
          "render 2400", "writei 2400", "avail"}},
    };
    for (const Case& c : cases) {
        ScriptedPcm pcm;
        DrivenPlayback device(pcm);
        ASSERT_TRUE(device.configure(48000, 2, 0.05f));
        pcm.takeCalls();
        pcm.writes = c.writes;
        pcm.avails = c.avails;
        pcm.resumes = c.resumes;
        pcm.recovers = c.recovers;
        pcm.prepares = c.prepares;
        device.feedStep();
        EXPECT_EQ(pcm.takeCalls(), c.expected) << c.name;
        // The next step runs normally.
        device.feedStep();
        EXPECT_EQ(pcm.takeCalls(), (Calls{"avail", "render 2400", "writei 2400", "avail"})) << c.name;
    }
}

TEST(AlsaPlaybackTest, stopEndsTheLoopWhileTheDeviceKeepsReportingRoom) {
    ScriptedPcm pcm;
    pcm.avails.assign(1000000, 4800);  // room forever, as the null plugin says after a drop
    pcm.pace = true;
    DrivenPlayback device(pcm);
    ASSERT_TRUE(device.start(48000, 2, 0.05f));
    sleepMs(20);
    EXPECT_TRUE(device.stop());
    Calls calls = pcm.takeCalls();
    EXPECT_GT(std::count(calls.begin(), calls.end(), "render 2400"), 1);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "drop"), 1);
    sleepMs(5);
    EXPECT_TRUE(pcm.takeCalls().empty());  // the thread is gone
}
