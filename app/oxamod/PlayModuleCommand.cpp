// PlayModuleCommand: plays a sub-song on the playback device until a key is
// pressed. The device's thread pulls each period through ModuleFeed, which
// renders straight into the device's buffer; the callback is swapped for an
// empty one before the player goes away, so the device never calls into a
// player that has gone.
#include <cstdio>
#include <cstring>

#include "app/oxamod/ModCommands.h"
#include "audio/Audio.h"
#include "modplayer/ModulePlayer.h"

namespace {

constexpr int32_t Channels = 2;

// Binds one looping player to the device as its render callback.
class ModuleFeed {
public:
    explicit ModuleFeed(mod::ModulePlayer* player) : player(player) {}
    RenderCallback callback() { return RenderCallback::fromMethod<&ModuleFeed::feed>(this); }

private:
    void feed(int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
        int32_t rendered = 0;
        if (settings.channels == uint32_t(Channels))
            rendered = player->render(buffer, int32_t(frames));
        std::memset(buffer + size_t(rendered) * settings.channels, 0,
                    (frames - uint32_t(rendered)) * settings.channels * sizeof(int16_t));
    }
    mod::ModulePlayer* player;
};

bool startLooping(mod::ModulePlayer& player, const mod::Module& module, int32_t subsong, uint32_t rate) {
    mod::PlayerSettings playerSettings;
    playerSettings.sampleRate = rate;
    playerSettings.channels = Channels;
    if (!player.start(module, subsong, playerSettings)) {
        std::fprintf(stderr, "failed to start the player at %u Hz\n", unsigned(rate));
        return false;
    }
    player.setLooping(true);
    return true;
}

// The hardware may choose another rate than asked: the player restarts at
// that rate (only a period has been rendered) so the song keeps its pitch.
bool followDeviceRate(AudioDevice& device, mod::ModulePlayer& player, ModuleFeed& feed,
                      const mod::Module& module, const ModOptions& options) {
    uint32_t deviceRate = device.getSettings().sampleRate;
    if (deviceRate == 0 || deviceRate == options.sampleRate)
        return true;
    device.setRenderCallback(RenderCallback());
    if (!startLooping(player, module, options.subsong, deviceRate))
        return false;
    device.setRenderCallback(feed.callback());
    return true;
}

}  // namespace

bool playModuleCommand(const mod::Module& module, const ModOptions& options) {
    SharedRef<AudioDevice> localHolder;
    SharedRef<AudioDevice>* holder = audioDeviceHolder() ? audioDeviceHolder() : &localHolder;
    AudioDevice& device = *openPlaybackDevice(*holder);

    mod::ModulePlayer player;
    if (!startLooping(player, module, options.subsong, options.sampleRate))
        return false;
    ModuleFeed feed(&player);
    device.setRenderCallback(feed.callback());
    if (!device.start(options.sampleRate, Channels, float(options.latencyMs) / 1000.0f)) {
        device.setRenderCallback(RenderCallback());
        std::fprintf(stderr, "failed to open playback device @%dkHz\n", int(options.sampleRate / 1000));
        return false;
    }
    bool playing = followDeviceRate(device, player, feed, module, options);
    if (playing) {
        std::printf("playing ... any key to exit\n");
        std::fflush(stdout);
        std::fgetc(stdin);
    }
    device.stop();
    device.setRenderCallback(RenderCallback());
    return playing;
}
