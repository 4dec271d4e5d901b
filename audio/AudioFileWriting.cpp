// AudioFile, writing side: canonical 44-byte-header WAV files whose sizes are
// patched when the file is closed.
#include <algorithm>

#include "audio/AudioFile.h"
#include "audio/WaveBytes.h"
#include "core/Stream.h"

namespace {

constexpr int32_t HeaderBytes = 44;
constexpr int32_t ScratchBytes = 8192;
// Matching layouts go out in one write; this only keeps each below the stream's 32-bit length.
constexpr int64_t WritePieceBytes = int64_t(1) << 30;

}  // namespace

bool AudioFile::create(Stream* target, uint32_t format, uint32_t rate, int32_t channelCount, uint16_t formatTag) {
    close();
    if (!target || (format & UnsignedFormatBit) || (formatTag != WavePcm && formatTag != WaveFloat))
        return false;
    if (format < Int8 || format > Float32 || channelCount < 1 || channelCount > MaxWriteChannels)
        return false;
    const uint32_t frameBytes = uint32_t(bytesPerSample(format) * channelCount);
    waveFormat.formatTag = format == Float32 ? WaveFloat : WavePcm;  // the argument is only checked
    waveFormat.channels = uint16_t(channelCount);
    waveFormat.sampleRate = rate;
    waveFormat.byteRate = (frameBytes & 0xFFFF) * rate;
    waveFormat.blockAlign = uint16_t(frameBytes);
    waveFormat.bitsPerSample = uint16_t(bytesPerSample(format) * 8);
    waveFormat.extraSize = 0;
    sampleFormat = format;
    framesWritten = 0;
    stream = target;
    writing = true;
    if (writeHeader())
        return true;
    writing = false;  // nothing worth patching
    close();
    return false;
}

bool AudioFile::create(SharedRef<Stream> sharedStream, uint32_t format, uint32_t rate, int32_t channelCount,
                       uint16_t formatTag) {
    if (!create(sharedStream.get(), format, rate, channelCount, formatTag))
        return false;
    ownedStream = sharedStream;
    return true;
}

bool AudioFile::writeHeader() {
    // Sizes are truncated to 32 bits: nothing guards files above 4 GiB.
    const uint32_t dataBytes = uint32_t(framesWritten * waveFormat.blockAlign);
    uint8_t header[HeaderBytes];
    std::memcpy(header, "RIFF", 4);
    writeLe32(header + 4, 16 + dataBytes + 20);
    std::memcpy(header + 8, "WAVEfmt ", 8);
    writeLe32(header + 16, 16);
    writeLe16(header + 20, waveFormat.formatTag);
    writeLe16(header + 22, waveFormat.channels);
    writeLe32(header + 24, waveFormat.sampleRate);
    writeLe32(header + 28, waveFormat.byteRate);
    writeLe16(header + 32, waveFormat.blockAlign);
    writeLe16(header + 34, waveFormat.bitsPerSample);
    std::memcpy(header + 36, "data", 4);
    writeLe32(header + 40, dataBytes);
    return stream->writeAll(header, HeaderBytes);
}

bool AudioFile::write(const void* buffer, int32_t frames, int32_t channelCount, uint32_t& framesDone,
                      uint32_t format) {
    framesDone = 0;
    if (!stream || !writing || channelCount < 1 || frames < 0 || sampleFormat == 0)
        return false;
    if (frames == 0)
        return true;
    if (!buffer)
        return false;
    if (format != sampleFormat || channelCount != waveFormat.channels)
        return writeConverted(buffer, frames, channelCount, framesDone, format);

    const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
    const int64_t total = int64_t(frames) * waveFormat.blockAlign;
    for (int64_t done = 0; done < total;) {
        const int32_t piece = int32_t(std::min(total - done, WritePieceBytes));
        if (!stream->writeAll(bytes + done, piece))
            return false;
        done += piece;
    }
    framesWritten += uint32_t(frames);
    framesDone = uint32_t(frames);
    return true;
}

bool AudioFile::writeConverted(const void* buffer, int32_t frames, int32_t channelCount, uint32_t& framesDone,
                               uint32_t format) {
    if (format < Int8 || format > Float32 || channelCount > MaxWriteChannels)
        return false;
    uint8_t scratch[ScratchBytes];
    const int32_t blockAlign = waveFormat.blockAlign;
    const int32_t pieceFrames = ScratchBytes / blockAlign;  // at least 8: channels are capped at 256
    for (int32_t remaining = frames; remaining > 0;) {
        const int32_t n = std::min(remaining, pieceFrames);
        // Every piece is converted from the start of the buffer, deliberately:
        // a converting write is exact only while it fits in one piece.
        convertSamples(format, channelCount, sampleFormat, waveFormat.channels, buffer, scratch, n);
        const int32_t bytes = n * blockAlign;
        if (waveFormat.bitsPerSample == 8)
            for (int32_t i = 0; i < bytes; ++i)
                scratch[i] ^= 0x80;
        if (!stream->writeAll(scratch, bytes))
            return false;
        framesWritten += uint32_t(n);
        framesDone += uint32_t(n);
        remaining -= n;
    }
    return true;
}
