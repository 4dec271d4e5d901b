// SoundSource: how the commands read an input file as audio. Opens a WAV file
// or an Oxa stream through AudioFile and delivers frames in the rate, format
// and channel count its user sets, converting the rate when it differs from
// the file's, optionally looping. Used by the compress and play commands.
#pragma once

#include <cstdint>

#include "audio/AudioFile.h"
#include "audio/RateConverter.h"

class SoundSource : public AudioFile {
public:
    SoundSource() = default;
    ~SoundSource();

    bool open(Stream* stream);
    bool open(SharedRef<Stream> sharedStream);

    bool setOutputRate(uint32_t rate);
    bool setOutputFormat(uint32_t format, int32_t channels);
    void setLooping(bool on) { looping = on; }
    // Only ever resets the converter set-up: the default converter stays in
    // use whatever is asked, deliberately.
    void selectResampler(bool useSecondary);
    void setResamplerOption(uint32_t flag, uint32_t value);

    // Always fills all `frames` frames (zeros after the end). At the file's
    // own rate framesRead counts the frames that came from the file; when
    // converting it is always `frames`, deliberately.
    bool read(void* buffer, int32_t frames, uint32_t& framesRead);
    bool restart();
    bool close();

    uint32_t outputSampleRate() const { return outputRate; }
    uint32_t outputSampleFormat() const { return outputFormat; }
    int32_t outputChannelCount() const { return int32_t(outputChannels); }

private:
    bool readSameRate(void* buffer, int32_t frames, uint32_t& framesRead);
    bool readConverted(void* buffer, int32_t frames, uint32_t& framesRead);
    bool completeShortRead(uint8_t* buffer, int32_t frames, uint32_t& framesRead);

    Resampler* activeResampler = &defaultResampler;
    RateConverter defaultResampler;
    Resampler* secondaryResampler = nullptr;  // never made active, so never built
    uint32_t outputRate = 44100;
    uint32_t outputFormat = Int16;
    uint32_t outputChannels = 2;
    bool resamplerConfigured = false;
    bool looping = false;
    bool opened = false;
};
