// WaveSink: writing at the file's rate, or through the rate converter.
#include "audio/WaveSink.h"

#include <cstring>

WaveSink::~WaveSink() { close(); }

bool WaveSink::create(Stream* stream, uint32_t format, uint32_t sampleRate, int32_t channelCount,
                      uint16_t formatTag) {
    pendingFrames = 0;
    resamplerConfigured = false;
    if (!close())
        return false;
    return AudioFile::create(stream, format, sampleRate, channelCount, formatTag);
}

bool WaveSink::setInputFormat(uint32_t rate, uint32_t format, int32_t channelCount) {
    if (rate < 1 || format < Int8 || format > Float32 || channelCount < 1 ||
        channelCount > RateConverter::MaxChannels)
        return false;
    if (rate == inputRate && format == inputFormat && uint32_t(channelCount) == inputChannels)
        return true;
    inputRate = rate;
    inputFormat = format;
    inputChannels = uint32_t(channelCount);
    pendingFrames = 0;  // held frames were of the old layout
    resamplerConfigured = false;
    return true;
}

bool WaveSink::write(const void* buffer, int32_t frames, uint32_t& framesWritten) {
    if (inputRate == sampleRate())
        return AudioFile::write(buffer, frames, int32_t(inputChannels), framesWritten, Int16);
    return writeConverted(buffer, frames, framesWritten);
}

bool WaveSink::writeConverted(const void* buffer, int32_t frames, uint32_t& framesWritten) {
    framesWritten = 0;
    if (!isOpen() || frames < 0 || (frames > 0 && !buffer))
        return false;
    if (!resamplerConfigured) {
        activeResampler->setInputRate(inputRate);
        activeResampler->setOutputRate(sampleRate());
        activeResampler->setFormat(inputFormat, int32_t(inputChannels));
        resamplerConfigured = true;
        pendingFrames = 0;
    }
    const int64_t frameBytes = int64_t(bytesPerSample(inputFormat)) * inputChannels;
    const int64_t total = int64_t(pendingFrames) + frames;
    if (total * frameBytes > INT32_MAX || !pendingInput.resize(int32_t(total * frameBytes)))
        return false;
    if (frames > 0)
        std::memcpy(pendingInput.data() + int64_t(pendingFrames) * frameBytes, buffer, size_t(frames * frameBytes));

    const int32_t out = activeResampler->outputFramesFor(int32_t(total));
    if (out == 0) {  // not enough input for a frame yet: keep all of it
        pendingFrames = uint32_t(total);
        return true;
    }
    const int32_t used = activeResampler->inputFramesFor(out);
    void* destination = activeResampler->inputBuffer(used);
    if (!destination || used > total || int64_t(out) * frameBytes > INT32_MAX ||
        !convertedOutput.resize(int32_t(out * frameBytes)))
        return false;
    std::memcpy(destination, pendingInput.data(), size_t(used * frameBytes));
    activeResampler->process(convertedOutput.data(), out);
    if (!AudioFile::write(convertedOutput.data(), out, int32_t(inputChannels), framesWritten, Int16))
        return false;
    pendingFrames = uint32_t(total - used);
    std::memmove(pendingInput.data(), pendingInput.data() + used * frameBytes, size_t(pendingFrames * frameBytes));
    return true;
}
