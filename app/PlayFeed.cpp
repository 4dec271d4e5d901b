// PlayFeed: pulls frames from the sound source for the device.
#include "app/PlayFeed.h"

#include "audio/SoundSource.h"
#include "audio/pcm/SampleFormat.h"

bool playFeed(SoundSource* source, int16_t* buffer, uint32_t frames, const DeviceSettings& settings) {
    source->setOutputFormat(Int16, int32_t(settings.channels));
    uint32_t framesRead = 0;
    return source->read(buffer, int32_t(frames), framesRead);
}
