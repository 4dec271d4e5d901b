// Module: the empty state every load starts from, and what the tracker name
// tells the player.
#include "modplayer/Module.h"

namespace mod {

void Module::reset() {
    title = String();
    trackerName = String();
    channelPanning.release();
    channelMap.release();
    orders.release();
    patterns.release();
    instruments.release();
    samples.release();
    subsongs.release();
    formatType = FormatNone;
    playbackMode = 1;
    usesAmigaPeriods = 0;
    initialSpeed = 6;
    initialTempo = 125;
    globalVolume = 255;
    channelCount = 0;
    songLength = 0;
    restartPosition = 0;
    fastVolumeSlides = 0;
    substitutePattern = -1;
}

bool Module::isImpulseTrackerS3m() const {
    return formatType == FormatS3m && trackerName.startsWith("Impulse Tracker");
}

}  // namespace mod
