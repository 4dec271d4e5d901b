// AlsaPlayback: the ALSA back end of AudioDevice.
#include "audio/AlsaPlayback.h"

#include <cerrno>

#include "core/Thread.h"

// libasound reports its own troubles (a missing card, an underrun) on standard
// error; the tool speaks for itself, so those reports are swallowed.
static void ignoreAlsaMessage(const char*, int, const char*, int, const char*, ...) {}

AlsaPlayback::AlsaPlayback(PcmApi& api) : api(api) {
    snd_lib_error_set_handler(&ignoreAlsaMessage);
    opened = api.open(&handle, "plughw:0,0", SND_PCM_STREAM_PLAYBACK, 0) == 0;
    if (!opened)
        handle = nullptr;
}

AlsaPlayback::~AlsaPlayback() {
    if (!handle)
        return;
    if (feeder)
        stop();
    api.close(handle);
    api.freeGlobalConfig();
}

bool AlsaPlayback::start(uint32_t sampleRate, uint32_t channels, float latencySeconds) {
    if (!configure(sampleRate, channels, latencySeconds))
        return false;
    feeder = new Thread(reinterpret_cast<uint64_t>(this));
    feeder->setRunDelegate(Thread::RunDelegate::fromMethod<&AlsaPlayback::feedLoop>(this));
    // One period of silence first, so the device is already playing when
    // the thread's first real period arrives.
    while (api.writei(handle, periodBuffer.data(), snd_pcm_uframes_t(periodFrames)) == -EAGAIN) {
    }
    feeder->start();
    return true;
}

bool AlsaPlayback::configure(uint32_t sampleRate, uint32_t channels, float latencySeconds) {
    if (channels != 1 && channels != 2)
        return false;
    stop();
    if (!handle)
        return false;
    settings.setSampleRate(sampleRate);
    settings.channels = channels;
    settings.latency = latencySeconds;
    settings.name = "AlsaPlayback";
    periodFrames = int32_t(double(sampleRate) * double(latencySeconds));
    bytesPerFrame = int32_t(channels) * 2;
    if (!setHardwareParameters(sampleRate, channels) || !setSoftwareParameters())
        return false;
    settings.latency = float(periodFrames) / float(sampleRate);
    int32_t samples = periodFrames * int32_t(channels);
    if (!periodBuffer.resize(samples) || !spareBuffer.resize(samples))
        return false;
    for (int32_t i = 0; i < samples; ++i)
        periodBuffer[i] = spareBuffer[i] = 0;
    api.nonblock(handle, 0);
    return true;
}

// The calls go in a fixed order and all of them are made; any failure fails
// the whole set. Rate and period become what the hardware chose.
bool AlsaPlayback::setHardwareParameters(uint32_t sampleRate, uint32_t channels) {
    snd_pcm_hw_params_t* params = nullptr;
    if (api.hwParamsMalloc(&params) != 0)
        return false;
    if (api.hwParamsAny(handle, params) < 0) {
        api.hwParamsFree(params);
        return false;
    }
    unsigned rate = sampleRate;
    int direction = 0;
    snd_pcm_uframes_t bufferFrames = snd_pcm_uframes_t(periodFrames) * 2;
    snd_pcm_uframes_t chosenPeriod = snd_pcm_uframes_t(periodFrames);
    unsigned periods = 2;
    int failures = 0;
    failures |= api.hwParamsSetAccess(handle, params, SND_PCM_ACCESS_RW_INTERLEAVED);
    failures |= api.hwParamsSetFormat(handle, params, SND_PCM_FORMAT_S16_LE);
    failures |= api.hwParamsSetRateNear(handle, params, &rate, &direction);
    failures |= api.hwParamsSetChannels(handle, params, channels);
    failures |= api.hwParamsSetBufferSizeNear(handle, params, &bufferFrames);
    direction = 0;
    failures |= api.hwParamsSetPeriodSizeNear(handle, params, &chosenPeriod, &direction);
    direction = 0;
    failures |= api.hwParamsSetPeriodsNear(handle, params, &periods, &direction);
    failures |= api.hwParams(handle, params);
    api.hwParamsFree(params);
    settings.setSampleRate(rate);  // the derived counts follow the rate in use
    periodFrames = int32_t(chosenPeriod);
    return failures == 0;
}

bool AlsaPlayback::setSoftwareParameters() {
    snd_pcm_sw_params_t* params = nullptr;
    if (api.swParamsMalloc(&params) != 0)
        return false;
    if (api.swParamsCurrent(handle, params) != 0) {
        api.swParamsFree(params);
        return false;
    }
    int failures = 0;
    failures |= api.swParamsSetStartThreshold(handle, params, 1);  // play from the first write
    failures |= api.swParamsSetAvailMin(handle, params, snd_pcm_uframes_t(periodFrames));
    failures |= api.swParams(handle, params);
    api.swParamsFree(params);
    return failures == 0;
}

bool AlsaPlayback::stop() {
    if (handle && feeder) {
        api.drop(handle);  // wakes a feeder blocked in writei
        feeder->stopAndDestroy();
        feeder = nullptr;
        periodsWritten = 0;
        settings = DeviceSettings();
    }
    return true;
}

void AlsaPlayback::feedLoop(Thread* thread) {
    while (!thread->stopRequested())
        feedStep();
}

bool AlsaPlayback::stopRequested() const { return feeder && feeder->stopRequested(); }

// After snd_pcm_drop some plugins report a free buffer forever, so the loop
// also watches for a stop between periods, not only for a full device.
void AlsaPlayback::feedStep() {
    snd_pcm_sframes_t avail = api.availUpdate(handle);
    if (avail < 0 && avail != -EPIPE && api.recover(handle, int(avail), 0) < 0)
        return;
    do {
        render(periodBuffer.data(), uint32_t(periodFrames), settings);
        if (writePeriod())
            ++periodsWritten;
        avail = api.availUpdate(handle);
    } while (avail >= periodFrames && !stopRequested());
}

// A short write is accepted as it is: the rest of the period is not sent
// again. Any error other than a suspend costs the whole period.
bool AlsaPlayback::writePeriod() {
    for (;;) {
        snd_pcm_sframes_t written = api.writei(handle, periodBuffer.data(), snd_pcm_uframes_t(periodFrames));
        if (written >= 0)
            return true;
        if (written == -EAGAIN)
            continue;
        if (written == -ESTRPIPE) {
            if (resumeAfterSuspend())
                continue;
            return false;
        }
        recoverFrom(int(written));
        return false;
    }
}

// True when the device is back and the period should be written again.
bool AlsaPlayback::resumeAfterSuspend() {
    int result;
    while ((result = api.resume(handle)) == -EAGAIN)
        api.sleepMs(1);
    if (result >= 0)
        return true;
    if (api.prepare(handle) >= 0)
        recoverFrom(result);
    return false;
}

// An underrun only needs a prepare. Anything else goes through
// snd_pcm_recover, and a prepare follows a successful recover deliberately.
void AlsaPlayback::recoverFrom(int error) {
    if (error == -EPIPE) {
        api.prepare(handle);
        return;
    }
    if (api.recover(handle, error, 0) >= 0)
        api.prepare(handle);
}
