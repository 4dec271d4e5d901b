// WaveSink: a WAV file being written plus rate conversion for audio that
// runs at another rate than the file. The decompress command writes into it.
//
// The frames handed to write() are Int16 of inputChannels channels whatever
// inputFormat says, deliberately: inputFormat only sizes the converter's
// frames. Input the converter has not consumed is kept for the next write
// and dropped when the file is closed.
#pragma once

#include <cstdint>

#include "audio/AudioFile.h"
#include "audio/RateConverter.h"
#include "core/Array.h"

class WaveSink : public AudioFile {
public:
    WaveSink() = default;
    ~WaveSink();

    // Starts the file (AudioFile::create) after closing whatever was open.
    bool create(Stream* stream, uint32_t format, uint32_t sampleRate, int32_t channels, uint16_t formatTag);
    // The layout of what write() is given; defaults 44100 Hz, Int16, 2 channels.
    bool setInputFormat(uint32_t rate, uint32_t format, int32_t channels);
    bool write(const void* buffer, int32_t frames, uint32_t& framesWritten);

    uint32_t inputSampleRate() const { return inputRate; }
    int32_t inputChannelCount() const { return int32_t(inputChannels); }

private:
    bool writeConverted(const void* buffer, int32_t frames, uint32_t& framesWritten);

    Resampler* activeResampler = &defaultResampler;
    RateConverter defaultResampler;
    uint32_t inputRate = 44100;
    uint32_t inputFormat = Int16;
    uint32_t inputChannels = 2;
    Array<uint8_t> pendingInput;
    Array<uint8_t> convertedOutput;
    uint32_t pendingFrames = 0;
    bool resamplerConfigured = false;
};
