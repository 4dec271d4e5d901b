// SampleData: conversion of loader bytes to 16-bit frames, loop repair and
// unrolling, and loop wrapping of play positions.
#include "modplayer/SampleData.h"

#include <climits>
#include <cstring>
#include <utility>

#include "modplayer/MixerTables.h"

namespace mod {

static void convert8Bit(const uint8_t* in, int16_t* out, int32_t samples, bool isSigned) {
    const uint16_t* widen = isSigned ? signedByteToSample : unsignedByteToSample;
    for (int32_t i = 0; i < samples; ++i)
        out[i] = int16_t(widen[in[i]]);
}

static void convert16Bit(const uint8_t* in, int16_t* out, int32_t samples, bool bigEndian,
                         bool isSigned) {
    uint16_t flip = isSigned ? 0 : 0x8000;
    for (int32_t i = 0; i < samples; ++i, in += 2) {
        uint16_t value = bigEndian ? uint16_t(in[0] << 8 | in[1]) : uint16_t(in[1] << 8 | in[0]);
        out[i] = int16_t(value ^ flip);
    }
}

bool SampleData::setData(const SampleFormat& format, const void* bytes, int32_t byteCount,
                         int32_t byteOrder, int32_t signedFlag) {
    sampleRate = format.sampleRate;
    loopStart = uint32_t(format.loopStart);
    loopEnd = uint32_t(format.loopEnd);
    length = 0;
    bitsPerSample = format.bitsPerSample;
    channels = format.channels;
    loopType = format.loopType;
    pcm.release();
    if (!bytes || byteCount <= 0)
        return byteCount == 0;
    if ((bitsPerSample != 8 && bitsPerSample != 16) || (channels != 1 && channels != 2) ||
        format.length < 0)
        return false;

    int32_t bytesPerSample = bitsPerSample / 8;
    int32_t frames = byteCount / (channels * bytesPerSample);
    if (frames > format.length)
        frames = format.length;
    int32_t samples = frames * channels;
    if (!pcm.resize(samples))
        return false;
    const uint8_t* in = static_cast<const uint8_t*>(bytes);
    if (bitsPerSample == 8) {
        buildMixerTables();  // loaders may run before audio start-up
        convert8Bit(in, pcm.data(), samples, signedFlag != 0);
    } else {
        convert16Bit(in, pcm.data(), samples, byteOrder == BigEndianSamples, signedFlag != 0);
    }
    bitsPerSample = 16;
    length = uint32_t(frames);
    return true;
}

bool SampleData::finalise() {
    uint32_t available = uint32_t(frameCount());
    if (length > available)
        length = available;
    if (loopEnd > length)
        loopEnd = length;
    if (int32_t(loopStart) < 0)
        loopStart = 0;
    if (loopStart >= loopEnd)
        loopType = LoopNone;
    if (length == 0) {
        pcm.release();
        loopType = LoopNone;
        return true;
    }
    if (loopType == LoopPingPong || loopType == LoopPingPongNoRepeat)
        return unrollPingPong();
    return padForInterpolation();
}

// Plays the loop forwards and then backwards as one forward loop:
//   type 2: ... loopEnd-1 | loopEnd-1 ... loopStart | pad
//   type 3: ... loopEnd-1 | loopEnd-2 ... loopStart+1 | pad
// The pad frame is the loop start, the frame that follows the loop's end.
bool SampleData::unrollPingPong() {
    uint32_t loopLength = loopEnd - loopStart;
    bool repeatTurns = loopType == LoopPingPong;
    uint32_t backwards = repeatTurns ? loopLength : (loopLength >= 2 ? loopLength - 2 : 0);
    uint32_t firstBackwards = repeatTurns ? loopEnd - 1 : loopEnd - 2;
    uint64_t unrolled = uint64_t(loopEnd) + backwards;
    if ((unrolled + 1) * channels > uint64_t(INT32_MAX))
        return false;

    Array<int16_t> out;
    if (!out.resize(int32_t((unrolled + 1) * channels)))
        return false;
    size_t frameBytes = sizeof(int16_t) * channels;
    std::memcpy(out.data(), pcm.data(), frameBytes * loopEnd);
    for (uint32_t k = 0; k < backwards; ++k)
        std::memcpy(&out[int32_t((loopEnd + k) * channels)],
                    &pcm[int32_t((firstBackwards - k) * channels)], frameBytes);
    std::memcpy(&out[int32_t(unrolled * channels)], &pcm[int32_t(loopStart * channels)], frameBytes);

    pcm = std::move(out);
    loopType = LoopForward;
    loopEnd = length = uint32_t(unrolled);
    return true;
}

// Keeps the frames that play plus one: the loop start when looped (where
// playback goes next), silence otherwise.
bool SampleData::padForInterpolation() {
    uint32_t played = isLooped() ? loopEnd : length;
    int32_t playedSamples = int32_t(played * channels);
    if (!pcm.resize(playedSamples) || !pcm.resize(playedSamples + channels))
        return false;
    if (isLooped())
        std::memcpy(&pcm[playedSamples], &pcm[int32_t(loopStart * channels)],
                    sizeof(int16_t) * channels);
    return true;
}

uint32_t SampleData::wrapPosition(uint32_t& position) const {
    if (!isLooped()) {
        if (position > length)
            position = length;
        return position;
    }
    if (position < loopEnd)
        return 0;
    uint32_t loopLength = loopEnd - loopStart;
    position -= loopLength;
    if (position < loopEnd)
        return 0;
    uint32_t beyond = position - loopStart;
    position = loopStart + beyond % loopLength;
    return beyond / loopLength;
}

}  // namespace mod
