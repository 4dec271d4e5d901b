// Tests of AlsaPlayback through a scripted PcmApi: the parameter sequence of
// start, and every error path of the feeding step.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "audio/AlsaPlayback.h"
#include "core/Clock.h"

namespace {

using Calls = std::vector<std::string>;
std::string n(long value) { return std::to_string(value); }

// Records every call as one line ("rate 48000") and answers from the script
// kept under the line's first word; an unscripted call succeeds, writei
// taking the whole period and avail reporting no room. A positive answer to
// a "near" call is the value the hardware chose.
class ScriptedPcm : public PcmApi {
    using P = snd_pcm_t*;
    using H = snd_pcm_hw_params_t*;
    using S = snd_pcm_sw_params_t*;
    using F = snd_pcm_uframes_t;

public:
    std::map<std::string, std::deque<long>> script;
    bool pace = false;  // writei naps 1 ms, as a real device would block

    Calls takeCalls() {
        std::lock_guard<std::mutex> lock(mutex);
        Calls taken;
        taken.swap(calls);
        return taken;
    }
    long call(const std::string& line, long otherwise = 0) {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(line);
        std::deque<long>& answers = script[line.substr(0, line.find(' '))];
        if (answers.empty())
            return otherwise;
        const long answer = answers.front();
        answers.pop_front();
        return answer;
    }
    template <typename Value>
    int near(const std::string& name, Value* value) {
        const long answer = call(name + " " + n(long(*value)));
        if (answer > 0)
            *value = Value(answer);
        return answer > 0 ? 0 : int(answer);
    }
    template <typename Handle>
    int handOut(Handle* handle, const std::string& name) {
        *handle = reinterpret_cast<Handle>(this);
        return int(call(name));
    }
    void renderInto(int16_t*, uint32_t frames, const DeviceSettings&) { call("render " + n(frames)); }

    int open(P* pcm, const char*, snd_pcm_stream_t, int) override { return handOut(pcm, "open"); }
    int close(P) override { return int(call("close")); }
    int freeGlobalConfig() override { return int(call("freeGlobalConfig")); }
    int hwParamsMalloc(H* params) override { return handOut(params, "hwMalloc"); }
    int hwParamsAny(P, H) override { return int(call("hwAny")); }
    int hwParamsSetAccess(P, H, snd_pcm_access_t access) override { return int(call("access " + n(access))); }
    int hwParamsSetFormat(P, H, snd_pcm_format_t format) override { return int(call("format " + n(format))); }
    int hwParamsSetRateNear(P, H, unsigned* rate, int*) override { return near("rate", rate); }
    int hwParamsSetChannels(P, H, unsigned channels) override { return int(call("channels " + n(channels))); }
    int hwParamsSetBufferSizeNear(P, H, F* frames) override { return near("buffer", frames); }
    int hwParamsSetPeriodSizeNear(P, H, F* frames, int*) override { return near("period", frames); }
    int hwParamsSetPeriodsNear(P, H, unsigned* periods, int*) override { return near("periods", periods); }
    int hwParams(P, H) override { return int(call("hwParams")); }
    void hwParamsFree(H) override { call("hwFree"); }
    int swParamsMalloc(S* params) override { return handOut(params, "swMalloc"); }
    int swParamsCurrent(P, S) override { return int(call("swCurrent")); }
    int swParamsSetStartThreshold(P, S, F frames) override { return int(call("startThreshold " + n(frames))); }
    int swParamsSetAvailMin(P, S, F frames) override { return int(call("availMin " + n(frames))); }
    int swParams(P, S) override { return int(call("swParams")); }
    void swParamsFree(S) override { call("swFree"); }
    int nonblock(P, int nonblocking) override { return int(call("nonblock " + n(nonblocking))); }
    snd_pcm_sframes_t writei(P, const void*, F frames) override {
        if (pace)
            ::sleepMs(1);
        return call("writei " + n(frames), long(frames));
    }
    snd_pcm_sframes_t availUpdate(P) override { return call("avail"); }
    int recover(P, int error, int silent) override { return int(call("recover " + n(error) + " " + n(silent))); }
    int resume(P) override { return int(call("resume")); }
    int prepare(P) override { return int(call("prepare")); }
    int drop(P) override { return int(call("drop")); }
    void sleepMs(uint32_t ms) override { call("sleep " + n(ms)); }

private:
    std::mutex mutex;
    Calls calls;
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

std::string joined(const Calls& calls) {
    std::string line;
    for (const std::string& call : calls)
        line += (line.empty() ? "" : ", ") + call;
    return line;
}

long countOf(const Calls& calls, const std::string& call) { return std::count(calls.begin(), calls.end(), call); }

const std::string oneFeedStep = "avail, render 2400, writei 2400, avail";

}  // namespace

// Start asks for two periods of the latency; the settings follow what the
// hardware chose, the latency being the chosen period over the rate asked for.
TEST(AlsaPlaybackTest, startSequenceAndSettings) {
    struct Case { long chosenRate, chosenPeriod; uint32_t channels, rate, period, coarseFrames, fineFrames; };
    for (const Case& c : {Case{0, 0, 2, 48000, 2400, 139, 17}, Case{44100, 2205, 1, 44100, 2205, 128, 16}}) {
        ScriptedPcm pcm;
        pcm.script["rate"] = {c.chosenRate};
        pcm.script["period"] = {c.chosenPeriod};
        {
            DrivenPlayback device(pcm);
            EXPECT_TRUE(device.isOpen());
            pcm.pace = true;
            ASSERT_TRUE(device.start(48000, c.channels, 0.05f));
            EXPECT_EQ(joined(pcm.takeCalls()).rfind("hwMalloc, hwAny, access 3, format 2, rate 48000, channels " +
                                                        n(c.channels) +
                                                        ", buffer 4800, period 2400, periods 2, hwParams, hwFree, "
                                                        "swMalloc, swCurrent, startThreshold 1, availMin " +
                                                        n(c.period) + ", swParams, swFree, nonblock 0, writei " +
                                                        n(c.period),
                                                    0),
                      0u);
            const DeviceSettings settings = device.getSettings();
            EXPECT_EQ(settings.name, String("AlsaPlayback"));
            EXPECT_EQ(settings.sampleRate, c.rate);
            EXPECT_EQ(settings.channels, c.channels);
            EXPECT_EQ(settings.latency, float(c.period) / 48000.0f);
            EXPECT_EQ(settings.coarseFrames, c.coarseFrames);
            EXPECT_EQ(settings.fineFrames, c.fineFrames);

            EXPECT_TRUE(device.stop());
            EXPECT_EQ(device.getSettings().sampleRate, 0u);
            EXPECT_TRUE(device.getSettings().name.isEmpty());
            EXPECT_EQ(countOf(pcm.takeCalls(), "drop"), 1);
        }
        EXPECT_EQ(joined(pcm.takeCalls()), "close, freeGlobalConfig");
    }
}

// Bad channel counts touch nothing; after hwAny every parameter call is made
// even when one of them fails, and the device stays usable.
TEST(AlsaPlaybackTest, aRefusedStartLeavesTheDeviceUsable) {
    ScriptedPcm pcm;
    DrivenPlayback device(pcm);
    for (uint32_t channels : {0u, 3u, 6u}) {
        EXPECT_FALSE(device.start(44100, channels, 0.05f));
        EXPECT_TRUE(pcm.takeCalls().empty()) << channels;
    }
    const char* const parameterCalls[] = {"access",   "format", "rate",           "channels", "buffer",
                                          "period",   "periods", "hwParams",      "hwAny",    "startThreshold",
                                          "availMin", "swParams", "swCurrent"};
    for (size_t i = 0; i < std::size(parameterCalls); ++i) {
        const char* failing = parameterCalls[i];
        ScriptedPcm pcm;
        DrivenPlayback device(pcm);
        pcm.script[failing] = {-EINVAL};
        EXPECT_FALSE(device.start(44100, 2, 0.05f)) << failing;
        Calls made = pcm.takeCalls();
        EXPECT_EQ(countOf(made, "writei 2205"), 0) << failing;
        EXPECT_EQ(countOf(made, "hwFree"), 1) << failing;
        if (i < 7) {  // a failing setter
            EXPECT_EQ(countOf(made, "hwParams"), 1) << failing;
        }
        pcm.pace = true;
        EXPECT_TRUE(device.start(44100, 2, 0.05f)) << failing;
        device.stop();
    }
}

TEST(AlsaPlaybackTest, feedingStepHandlesEachDeviceError) {
    struct Case {
        const char* name;
        std::map<std::string, std::deque<long>> script;
        std::string expected;
    };
    const Case cases[] = {
        {"room for three periods", {{"avail", {0, 2400, 2400, 100}}},
         "avail, render 2400, writei 2400, avail, render 2400, writei 2400, avail, render 2400, writei 2400, avail"},
        {"short write is not completed", {{"writei", {100}}}, oneFeedStep},
        {"underrun prepares and drops the period", {{"writei", {-EPIPE}}},
         "avail, render 2400, writei 2400, prepare, avail"},
        {"try again writes again", {{"writei", {-EAGAIN, -EAGAIN}}},
         "avail, render 2400, writei 2400, writei 2400, writei 2400, avail"},
        {"suspend resumes with naps, then writes again", {{"writei", {-ESTRPIPE}}, {"resume", {-EAGAIN, -EAGAIN, 0}}},
         "avail, render 2400, writei 2400, resume, sleep 1, resume, sleep 1, resume, writei 2400, avail"},
        {"failed resume with underrun prepares twice", {{"writei", {-ESTRPIPE}}, {"resume", {-EPIPE}}},
         "avail, render 2400, writei 2400, resume, prepare, prepare, avail"},
        {"failed resume recovers and prepares", {{"writei", {-ESTRPIPE}}, {"resume", {-EIO}}},
         "avail, render 2400, writei 2400, resume, prepare, recover -5 0, prepare, avail"},
        {"failed resume and failed prepare give up",
         {{"writei", {-ESTRPIPE}}, {"resume", {-EIO}}, {"prepare", {-EIO}}},
         "avail, render 2400, writei 2400, resume, prepare, avail"},
        {"other error recovers, then prepares", {{"writei", {-EIO}}},
         "avail, render 2400, writei 2400, recover -5 0, prepare, avail"},
        {"other error with failed recover", {{"writei", {-EBADFD}}, {"recover", {-EBADFD}}},
         "avail, render 2400, writei 2400, recover -77 0, avail"},
        {"underrun seen by avail still renders", {{"avail", {-EPIPE}}}, oneFeedStep},
        {"avail error recovered", {{"avail", {-EIO}}}, "avail, recover -5 0, render 2400, writei 2400, avail"},
        {"avail error not recovered ends the step", {{"avail", {-EIO}}, {"recover", {-EIO}}}, "avail, recover -5 0"},
        {"error in a later period leaves the loop going", {{"writei", {0, -EPIPE}}, {"avail", {0, 2400, 2400, 0}}},
         "avail, render 2400, writei 2400, avail, render 2400, writei 2400, prepare, avail, render 2400, writei "
         "2400, avail"},
    };
    for (const Case& c : cases) {
        ScriptedPcm pcm;
        DrivenPlayback device(pcm);
        ASSERT_TRUE(device.configure(48000, 2, 0.05f));
        pcm.takeCalls();
        pcm.script = c.script;
        device.feedStep();
        EXPECT_EQ(joined(pcm.takeCalls()), c.expected) << c.name;
        device.feedStep();  // the next step runs normally
        EXPECT_EQ(joined(pcm.takeCalls()), oneFeedStep) << c.name;
    }
}

TEST(AlsaPlaybackTest, stopEndsTheLoopWhileTheDeviceKeepsReportingRoom) {
    ScriptedPcm pcm;
    pcm.script["avail"].assign(1000000, 4800);  // room forever, as the null plugin says after a drop
    pcm.pace = true;
    DrivenPlayback device(pcm);
    ASSERT_TRUE(device.start(48000, 2, 0.05f));
    sleepMs(20);
    EXPECT_TRUE(device.stop());
    Calls calls = pcm.takeCalls();
    EXPECT_GT(countOf(calls, "render 2400"), 1);
    EXPECT_EQ(countOf(calls, "drop"), 1);
    sleepMs(5);
    EXPECT_TRUE(pcm.takeCalls().empty());  // the thread is gone
}
