// NullDevice: the silent device that stands in when the sound card cannot be
// opened. It never starts, so nothing is ever rendered or played.
#pragma once

#include "audio/AudioDevice.h"

class NullDevice : public AudioDevice {
public:
    bool start(uint32_t sampleRate, uint32_t channels, float latencySeconds) override;
    bool stop() override;
};
