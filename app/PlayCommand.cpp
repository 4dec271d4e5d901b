// PlayCommand: sends any input the sound source reads to the playback device
// until a key is pressed. The device pulls frames through playFeed on its
// own thread; the callback is replaced by an empty one before the source
// closes, so the device never calls into a closed source.
#include <cstdio>

#include "app/Commands.h"
#include "app/PlayFeed.h"
#include "app/Settings.h"
#include "audio/Audio.h"
#include "audio/SoundSource.h"
#include "core/FileStream.h"

namespace {

// Plays `source` on `device` until a key is pressed; false when the device
// does not open at the source's rate.
bool playUntilKey(AudioDevice& device, SoundSource& source) {
    uint32_t rate = source.sampleRate();
    source.setOutputRate(rate);
    PlayFeed feed(&source);
    device.setRenderCallback(feed.callback());
    if (!device.start(rate, 2, float(settings.latencyMs) / 1000.0f)) {
        device.setRenderCallback(RenderCallback());
        std::fprintf(stderr, "failed to open playback device @%dkHz\n", int(rate / 1000));
        return false;
    }
    // The hardware may choose another rate: follow it so the music keeps its speed.
    uint32_t deviceRate = device.getSettings().sampleRate;
    if (deviceRate != 0 && deviceRate != rate) {
        device.setRenderCallback(RenderCallback());
        source.setOutputRate(deviceRate);
        device.setRenderCallback(feed.callback());
    }
    std::printf("playing ... any key to exit\n");
    std::fflush(stdout);
    std::fgetc(stdin);
    device.stop();
    device.setRenderCallback(RenderCallback());
    return true;
}

}  // namespace

bool playCommand() {
    SharedRef<AudioDevice> localHolder;
    SharedRef<AudioDevice>* holder = audioDeviceHolder() ? audioDeviceHolder() : &localHolder;
    AudioDevice* device = openPlaybackDevice(*holder);

    FileStream input(settings.inputName, FileRead, 7);
    if (!input.isOpen()) {
        std::fprintf(stderr, "failed to open input: %s\n", settings.inputName.c_str());
        return false;
    }
    SoundSource source;
    bool played = false;
    if (!source.open(&input)) {
        std::fprintf(stderr, "failed to open input: %s\n", settings.inputName.c_str());
    } else {
        source.selectResampler(true);
        source.setResamplerOption(0, 0);
        source.setLooping(true);
        played = playUntilKey(*device, source);
    }
    source.close();
    input.close();
    return played;
}
