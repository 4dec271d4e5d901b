// AudioDevice: the playback device base; callbacks guarded by one mutex.
#include "audio/AudioDevice.h"

#include <cstring>

static void renderSilence(int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
    memset(buffer, 0, size_t(frames) * settings.channels * sizeof(int16_t));
}

AudioDevice::AudioDevice() : renderCallback(RenderCallback::fromFunction(&renderSilence)) {}

bool AudioDevice::start(uint32_t, uint32_t, float) { return false; }

bool AudioDevice::stop() { return true; }

bool AudioDevice::isOpen() const { return opened; }

void AudioDevice::render(int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
    ScopedLock lock(mutex);
    renderCallback(buffer, frames, settings);
    afterRender(buffer, frames, settings);
}

void AudioDevice::afterRender(int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
    afterRenderCallback(buffer, frames, settings);
}

void AudioDevice::setRenderCallback(RenderCallback callback) {
    ScopedLock lock(mutex);
    renderCallback = callback.isEmpty() ? RenderCallback::fromFunction(&renderSilence) : callback;
}

void AudioDevice::setAfterRender(RenderCallback callback) {
    ScopedLock lock(mutex);
    afterRenderCallback = callback;
}

DeviceSettings AudioDevice::getSettings() const { return settings; }
