// SoundSource: settings, same-rate and converting reads, looping.
#include "audio/SoundSource.h"

#include <algorithm>
#include <cstring>

SoundSource::~SoundSource() { close(); }

bool SoundSource::open(Stream* stream) {
    opened = AudioFile::open(stream);
    resamplerConfigured = false;
    return opened;
}

bool SoundSource::open(SharedRef<Stream> sharedStream) {
    opened = AudioFile::open(sharedStream);
    resamplerConfigured = false;
    return opened;
}

bool SoundSource::setOutputRate(uint32_t rate) {
    if (rate == outputRate)
        return true;
    if (rate < 1)
        return false;
    outputRate = rate;
    resamplerConfigured = false;
    return true;
}

bool SoundSource::setOutputFormat(uint32_t format, int32_t channelCount) {
    if (format == outputFormat && channelCount >= 1 && uint32_t(channelCount) == outputChannels)
        return true;
    if (channelCount < 1 || channelCount > RateConverter::MaxChannels || format < Int8 || format > Float32)
        return false;
    outputFormat = format;
    outputChannels = uint32_t(channelCount);
    resamplerConfigured = false;
    return true;
}

void SoundSource::selectResampler(bool useSecondary) {
    Resampler* asked = useSecondary ? secondaryResampler : &defaultResampler;
    if (asked != activeResampler)
        resamplerConfigured = false;
}

void SoundSource::setResamplerOption(uint32_t flag, uint32_t value) {
    activeResampler->setOption(flag, value);
    resamplerConfigured = false;
}

bool SoundSource::read(void* buffer, int32_t frames, uint32_t& framesRead) {
    if (!opened)
        return false;
    if (outputRate == sampleRate())
        return readSameRate(buffer, frames, framesRead);
    return readConverted(buffer, frames, framesRead);
}

bool SoundSource::readSameRate(void* buffer, int32_t frames, uint32_t& framesRead) {
    if (!AudioFile::read(buffer, frames, int32_t(outputChannels), framesRead, outputFormat))
        return false;
    return completeShortRead(static_cast<uint8_t*>(buffer), frames, framesRead);
}

// Behind a short read: one wrap-around when looping, then zeros to the end of
// the buffer of `frames` frames.
bool SoundSource::completeShortRead(uint8_t* buffer, int32_t frames, uint32_t& framesRead) {
    const int64_t frameBytes = int64_t(bytesPerSample(outputFormat)) * outputChannels;
    if (int64_t(framesRead) < frames && looping && AudioFile::restart()) {
        uint32_t more = 0;
        if (!AudioFile::read(buffer + framesRead * frameBytes, frames - int32_t(framesRead), int32_t(outputChannels),
                             more, outputFormat))
            return false;
        framesRead += more;
    }
    if (int64_t(framesRead) < frames)
        std::memset(buffer + framesRead * frameBytes, 0, size_t((frames - int64_t(framesRead)) * frameBytes));
    return true;
}

bool SoundSource::readConverted(void* buffer, int32_t frames, uint32_t& framesRead) {
    framesRead = 0;
    if (!buffer || frames < 0)
        return false;
    if (!resamplerConfigured) {
        activeResampler->setInputRate(sampleRate());
        activeResampler->setOutputRate(outputRate);
        activeResampler->setFormat(outputFormat, int32_t(outputChannels));
        resamplerConfigured = true;
    }
    if (frames == 0)
        return true;
    const int32_t need = activeResampler->inputFramesFor(frames);
    void* in = activeResampler->inputBuffer(need);
    if (!in || !AudioFile::read(in, need, int32_t(outputChannels), framesRead, outputFormat))
        return false;
    if (int64_t(framesRead) < need) {
        // Looping and zeros go to the caller's buffer at the offset of the
        // frames read, not to the converter's input, deliberately: the
        // converter reads whatever its buffer holds. Nothing is written
        // beyond the caller's `frames` frames.
        const int64_t frameBytes = int64_t(bytesPerSample(outputFormat)) * outputChannels;
        uint8_t* bytes = static_cast<uint8_t*>(buffer);
        int64_t reached = std::min<int64_t>(framesRead, frames);
        if (looping && AudioFile::restart()) {
            uint32_t more = 0;
            const int32_t wanted = int32_t(std::min<int64_t>(need - int64_t(framesRead), frames - reached));
            if (!AudioFile::read(bytes + reached * frameBytes, wanted, int32_t(outputChannels), more, outputFormat))
                return false;
            reached += more;
        }
        std::memset(bytes + reached * frameBytes, 0, size_t((frames - reached) * frameBytes));
    }
    activeResampler->process(buffer, frames);
    framesRead = uint32_t(frames);
    return true;
}

bool SoundSource::restart() { return opened && AudioFile::restart(); }

bool SoundSource::close() {
    opened = false;
    return AudioFile::close();
}
