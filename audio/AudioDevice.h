// AudioDevice: a playback device that, once started, pulls 16-bit interleaved
// frames from a render callback on a thread of its own. AlsaPlayback and
// NullDevice derive from it; the play command drives it through the holder.
#pragma once

#include <cstdint>

#include "core/Delegate.h"
#include "core/Mutex.h"
#include "core/RefCounted.h"
#include "core/String.h"

// What a device reports about itself; every number is 0 while stopped.
struct DeviceSettings {
    String name;
    uint32_t sampleRate = 0;  // the rate in use, after the hardware's choice
    uint32_t channels = 0;    // 1 or 2
    float latency = 0;        // one period, in seconds
    uint32_t coarseFrames = 0;
    uint32_t fineFrames = 0;

    // Sets the rate and the two values derived from it (128 and 16 at 44100 Hz).
    void setSampleRate(uint32_t rate) {
        sampleRate = rate;
        coarseFrames = rate / 344;
        fineFrames = rate / 2756;
    }
};

// Fills frames x settings.channels samples of buffer.
using RenderCallback = Delegate<void(int16_t* buffer, uint32_t frames, const DeviceSettings& settings)>;

class AudioDevice : public RefCounted {
public:
    AudioDevice();
    ~AudioDevice() override = default;

    virtual bool start(uint32_t sampleRate, uint32_t channels, float latencySeconds);
    virtual bool stop();
    virtual bool isOpen() const;
    // Calls the render callback, then afterRender, as one step under the mutex.
    virtual void render(int16_t* buffer, uint32_t frames, const DeviceSettings& settings);
    virtual void afterRender(int16_t* buffer, uint32_t frames, const DeviceSettings& settings);
    // An empty callback installs the default, which renders silence.
    virtual void setRenderCallback(RenderCallback callback);
    virtual void setAfterRender(RenderCallback callback);
    virtual DeviceSettings getSettings() const;

protected:
    RenderCallback renderCallback;
    RenderCallback afterRenderCallback;
    mutable Mutex mutex;  // guards both callbacks
    DeviceSettings settings;
    bool opened = false;
};
