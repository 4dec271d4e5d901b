// Audio: start-up and shutdown of the audio system, the process-wide device
// holder and the opening of the playback device. Used by main and the play command.
#pragma once

#include "audio/AudioDevice.h"
#include "core/RefCounted.h"

// Reference-counted: only the first call acts (tables, the holder, the log line).
void audioInit();
// Only the call matching the first audioInit acts: releases the held device.
void audioShutdown();

// The process-wide slot for the one shared playback device; null outside
// audioInit/audioShutdown.
SharedRef<AudioDevice>* audioDeviceHolder();

// Puts an AlsaPlayback into `holder`, or a NullDevice when the sound card
// cannot be opened; returns the device now held.
AudioDevice* openPlaybackDevice(SharedRef<AudioDevice>& holder);
