// PlayFeed: the device callback of the play command. Asks the source for the
// device's channel count as Int16 and reads the requested frames; the source
// fills any shortfall with silence.
#pragma once

#include <cstdint>

#include "audio/AudioDevice.h"

class SoundSource;

bool playFeed(SoundSource* source, int16_t* buffer, uint32_t frames, const DeviceSettings& settings);

// Binds playFeed to one source as a RenderCallback.
class PlayFeed {
public:
    explicit PlayFeed(SoundSource* source) : source(source) {}
    RenderCallback callback() { return RenderCallback::fromMethod<&PlayFeed::feed>(this); }

private:
    void feed(int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
        playFeed(source, buffer, frames, settings);
    }
    SoundSource* source;
};
