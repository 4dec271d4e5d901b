// AlsaPlayback: the ALSA back end of AudioDevice, playing through the PCM
// device "plughw:0,0". A feeding thread renders one period at a time and
// blocks in snd_pcm_writei, which paces it. Created by openPlaybackDevice.
#pragma once

#include <alsa/asoundlib.h>

#include "audio/AudioDevice.h"
#include "audio/PcmApi.h"
#include "core/Array.h"

class Thread;

class AlsaPlayback : public AudioDevice {
public:
    // Opens the device through `api` (borrowed; must outlive us). isOpen()
    // tells whether that worked.
    explicit AlsaPlayback(PcmApi& api = PcmApi::libasound());
    ~AlsaPlayback() override;

    // Channels must be 1 or 2. A started device is stopped first.
    bool start(uint32_t sampleRate, uint32_t channels, float latencySeconds) override;
    // Drops what is queued and joins the feeding thread. Always true.
    bool stop() override;

protected:
    // Everything start does before the feeding thread exists: settings,
    // hardware and software parameters, the period buffers, blocking mode.
    bool configure(uint32_t sampleRate, uint32_t channels, float latencySeconds);
    // Renders and writes periods while the device has room for them.
    void feedStep();

private:
    bool setHardwareParameters(uint32_t sampleRate, uint32_t channels);
    bool setSoftwareParameters();
    bool writePeriod();
    bool resumeAfterSuspend();
    void recoverFrom(int error);
    void feedLoop(Thread* thread);
    bool stopRequested() const;

    PcmApi& api;
    snd_pcm_t* handle = nullptr;
    uint32_t periodsWritten = 0;  // cleared on stop
    Array<int16_t> periodBuffer;  // one period, the one fed to the device
    Array<int16_t> spareBuffer;   // the same size; sized with it but not fed
    int32_t periodFrames = 0;
    int32_t bytesPerFrame = 0;
    Thread* feeder = nullptr;  // owned; null while stopped
};
