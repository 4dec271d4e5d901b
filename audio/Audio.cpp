// Audio: start-up and shutdown of the audio system and the device holder.
#include "audio/Audio.h"

#include <atomic>

#include "audio/AlsaPlayback.h"
#include "audio/NullDevice.h"
#include "core/Core.h"
#include "core/Log.h"
#include "modplayer/MixerTables.h"
#include "modplayer/PlayerTables.h"

static std::atomic<int32_t> initCount{0};
static SharedRef<AudioDevice>* holder = nullptr;

void audioInit() {
    if (initCount.fetch_add(1) + 1 != 1)
        return;
    buildMixerTables();
    buildPlayerTables();
    if (holder)
        fatalExit(nullptr, 1);
    holder = new SharedRef<AudioDevice>;
    logMessage("Audio initialized");
}

void audioShutdown() {
    if (initCount.fetch_sub(1) - 1 != 0)
        return;
    logMessage("shutting down Audio");
    if (!holder)
        fatalExit(nullptr, 1);
    holder->reset();
    delete holder;
    holder = nullptr;
}

SharedRef<AudioDevice>* audioDeviceHolder() { return holder; }

AudioDevice* openPlaybackDevice(SharedRef<AudioDevice>& slot) {
    slot = new AlsaPlayback;
    if (!slot->isOpen())
        slot = new NullDevice;
    return slot.get();
}
