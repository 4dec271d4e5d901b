// AudioFile, reading side: the header probe and parse, the lazy chunk walk,
// PCM, float and IMA ADPCM delivery, restart and close.
#include "audio/AudioFile.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "audio/WaveBytes.h"
#include "codec/OxaCodec.h"
#include "core/Stream.h"

namespace {

// Converting reads pass through readBuffer in pieces of at most this many bytes.
constexpr int64_t ConversionPieceBytes = 65536;
// Direct reads into the caller's buffer stay below the stream's 32-bit length.
constexpr int64_t DirectPieceBytes = int64_t(1) << 30;

}  // namespace

void AudioFile::Output::advance(int64_t bytes) {
    bytes = std::min(bytes, left);  // a converting read may step past the end; nothing is written there
    cursor += bytes;
    left -= bytes;
}

AudioFile::~AudioFile() { close(); }

bool AudioFile::open(Stream* source) {
    close();
    if (!source)
        return false;
    stream = source;
    writing = false;
    if (parseHeader())
        return true;
    close();
    return false;
}

bool AudioFile::open(SharedRef<Stream> sharedStream) {
    if (!open(sharedStream.get()))
        return false;
    ownedStream = sharedStream;
    return true;
}

void AudioFile::clearState() {
    waveFormat = WaveFormat();
    silenceFrames = 0;
    riffRemaining = 0;
    dataRemaining = 0;
    blockReadIndex = 0;
    blockFrameCount = 0;
    sampleFormat = 0;
    framesWritten = 0;
}

bool AudioFile::consume(int64_t bytes) {
    riffRemaining -= bytes;
    return riffRemaining >= 0;
}

bool AudioFile::parseHeader() {
    uint8_t probe[12];
    if (!stream->readExactly(probe, sizeof probe))
        return false;
    if (!isChunkId(probe, "RIFF"))
        return openDecoder();
    if (!isChunkId(probe + 8, "WAVE"))
        return false;
    riffRemaining = int64_t(readLe32(probe + 4)) - 4;
    if (riffRemaining <= 0)
        return false;
    for (;;) {
        uint8_t header[8];
        if (!stream->readExactly(header, sizeof header) || !consume(8))
            return false;
        const uint32_t size = readLe32(header + 4);
        if (isChunkId(header, "fmt "))
            return readFormatChunk(size);
        if (!consume(size) || riffRemaining < 1 || !stream->skip(size))
            return false;
    }
}

bool AudioFile::openDecoder() {
    if (!stream->rewind())
        return false;
    if (!decoder)
        decoder = new (std::nothrow) OxaCodec;
    if (!decoder || !decoder->openDecoder(stream))
        return false;
    waveFormat.sampleRate = decoder->sampleRate();
    waveFormat.channels = uint16_t(decoder->channels());
    return true;
}

bool AudioFile::readFormatChunk(uint32_t chunkSize) {
    if (chunkSize < 16)
        return false;
    uint8_t record[18];
    const int32_t recordBytes = chunkSize >= 18 ? 18 : 16;
    if (!stream->readExactly(record, recordBytes) || !consume(recordBytes))
        return false;
    waveFormat.formatTag = readLe16(record);
    waveFormat.channels = readLe16(record + 2);
    waveFormat.sampleRate = readLe32(record + 4);
    waveFormat.byteRate = readLe32(record + 8);
    waveFormat.blockAlign = readLe16(record + 12);
    waveFormat.bitsPerSample = readLe16(record + 14);
    waveFormat.extraSize = recordBytes == 18 ? readLe16(record + 16) : 0;

    const WaveFormat& f = waveFormat;
    if (f.sampleRate == 0 || f.channels == 0 || f.bitsPerSample == 0)
        return false;
    if (f.formatTag != WavePcm && f.formatTag != WaveFloat && f.formatTag != WaveImaAdpcm)
        return false;
    const int64_t rest = int64_t(chunkSize) - recordBytes - f.extraSize;
    if (!consume(f.extraSize) || rest < 0 || !stream->skip(f.extraSize))
        return false;
    if (!chooseSampleFormat())
        return false;
    return consume(rest) && stream->skip(rest);
}

bool AudioFile::chooseSampleFormat() {
    const WaveFormat& f = waveFormat;
    switch (f.formatTag) {
    case WavePcm:
        sampleFormat = f.bitsPerSample == 16 ? Int16 : f.bitsPerSample == 24 ? Int24 : f.bitsPerSample == 8 ? UInt8 : 0u;
        return sampleFormat != 0;
    case WaveFloat:
        sampleFormat = f.bitsPerSample == 32 ? Float32 : 0u;
        return sampleFormat != 0;
    case WaveImaAdpcm: {
        // A block must at least hold its per-channel headers; below that the
        // decoded-block capacity would be negative.
        const int32_t body = int32_t(f.blockAlign) - 4 * f.channels;
        if (f.bitsPerSample != 4 || body < 0)
            return false;
        adpcmChannels.clear();
        if (!adpcmChannels.resize(f.channels) || !readBuffer.resize(f.blockAlign) ||
            !blockSamples.resize(body * 2 + f.channels))
            return false;
        sampleFormat = 0;
        return true;
    }
    default:
        return false;
    }
}

bool AudioFile::read(void* buffer, int32_t frames, int32_t channels, uint32_t& framesRead, uint32_t format) {
    framesRead = 0;
    if (decoder)
        return decoder->decode(buffer, frames, channels, format, framesRead);
    if (!stream || writing || channels < 1 || frames < 0 || waveFormat.formatTag == 0)
        return false;
    if (frames == 0)
        return true;
    if (!buffer || format < Int8 || format > Float32)
        return false;

    Output out{static_cast<uint8_t*>(buffer), int64_t(frames) * channels * bytesPerSample(format)};
    while (int64_t(framesRead) < frames) {
        if (!readSilence(out, frames - int32_t(framesRead), channels, format, framesRead))
            return false;
        const int32_t wanted = frames - int32_t(framesRead);
        if (wanted == 0)
            break;
        if (dataRemaining >= 1 || blockReadIndex < blockFrameCount) {
            if (waveFormat.formatTag != WaveImaAdpcm) {
                if (!readPcm(out, wanted, channels, format, framesRead))
                    return false;
                continue;
            }
            bool exhausted = false;
            if (!readAdpcm(out, wanted, channels, format, framesRead, exhausted))
                return false;
            if (!exhausted)
                continue;
        }
        if (riffRemaining == 0) {
            if (silenceFrames == 0 && dataRemaining < 1 && blockReadIndex >= blockFrameCount)
                break;  // the file has ended
            continue;
        }
        if (!nextChunk())
            return false;
    }
    return true;
}

bool AudioFile::nextChunk() {
    uint8_t header[8];
    if (!stream->readExactly(header, sizeof header) || !consume(8))
        return false;
    const uint32_t size = readLe32(header + 4);
    if (isChunkId(header, "slnt")) {
        uint8_t count[4];
        if (size < 4 || !stream->readExactly(count, sizeof count) || !consume(4))
            return false;
        silenceFrames += readLe32(count);
        return stream->skip(int64_t(size) - 4);  // not counted against the RIFF size, deliberately
    }
    if (isChunkId(header, "data")) {
        dataRemaining += size;  // counted against the RIFF size as it is read
        return true;
    }
    return consume(size) && stream->skip(size);
}

bool AudioFile::readSilence(Output& out, int32_t wanted, int32_t channels, uint32_t format, uint32_t& framesRead) {
    if (silenceFrames <= 0)
        return true;
    const int64_t n = std::min<int64_t>(wanted, silenceFrames);
    const int64_t bytes = n * channels * bytesPerSample(format);
    if (!out.fits(bytes))
        return false;
    std::memset(out.cursor, 0, size_t(bytes));
    out.advance(bytes);
    silenceFrames -= n;
    framesRead += uint32_t(n);
    return true;
}

bool AudioFile::readAdpcm(Output& out, int32_t wanted, int32_t channels, uint32_t format, uint32_t& framesRead,
                          bool& exhausted) {
    static_assert(std::endian::native == std::endian::little, "decoded samples are copied out as stored");
    if (format != Int16 || channels != waveFormat.channels)
        return false;
    while (wanted > 0) {
        if (blockReadIndex == blockFrameCount && dataRemaining >= 1 && !decodeAdpcmBlock())
            return false;
        const int32_t pending = blockFrameCount - blockReadIndex;
        if (pending <= 0) {
            exhausted = true;
            return true;
        }
        const int32_t n = std::min(pending, wanted);
        const int64_t bytes = int64_t(n) * channels * 2;
        if (!out.fits(bytes))
            return false;
        std::memcpy(out.cursor, blockSamples.data() + int64_t(blockReadIndex) * channels, size_t(bytes));
        out.advance(bytes);
        blockReadIndex += n;
        framesRead += uint32_t(n);
        wanted -= n;
    }
    return true;
}

bool AudioFile::decodeAdpcmBlock() {
    if (waveFormat.formatTag != WaveImaAdpcm)
        return false;
    const int32_t channelCount = waveFormat.channels;
    int64_t left = waveFormat.blockAlign;
    for (int32_t c = 0; c < channelCount; ++c) {
        uint8_t header[4];
        if (!stream->readExactly(header, sizeof header))
            return false;
        dataRemaining -= 4;
        left -= 4;
        if (!consume(4) || dataRemaining < 0 || left < 0)
            return false;
        const int16_t sample = int16_t(readLe16(header));
        adpcmChannels[c].predictor = sample;
        adpcmChannels[c].stepIndex = int16_t(std::min<int>(header[2], 88));
        blockSamples[c] = sample;
    }
    if (left % 4 != 0)
        return false;
    if (left > 0 && !stream->readExactly(readBuffer.data(), int32_t(left)))
        return false;
    dataRemaining -= left;
    if (!consume(left) || dataRemaining < 0)
        return false;
    const int32_t words = int32_t(left / 4);
    blockFrameCount = words * 8 / channelCount + 1;
    if (words % channelCount != 0)  // an uneven last round leaves some channels short: make them silent
        std::memset(blockSamples.data() + channelCount, 0,
                    size_t(blockFrameCount - 1) * size_t(channelCount) * sizeof(int16_t));
    decodeImaBlockWords(readBuffer.data(), words, adpcmChannels.data(), channelCount, blockSamples.data(),
                        blockFrameCount);
    blockReadIndex = 0;
    return true;
}

bool AudioFile::readPcm(Output& out, int32_t wanted, int32_t channels, uint32_t format, uint32_t& framesRead) {
    const int64_t frameBytes = int64_t(waveFormat.bitsPerSample / 8) * waveFormat.channels;
    const int64_t take = std::min(int64_t(wanted) * frameBytes, dataRemaining);
    const int64_t frames = take / frameBytes;  // a trailing partial frame is consumed and dropped
    if (take > riffRemaining)
        return false;

    if (sampleFormat == Int16 && format == Int16 && channels == waveFormat.channels) {
        if (!out.fits(take))
            return false;
        for (int64_t done = 0; done < take;) {
            const int32_t piece = int32_t(std::min(take - done, DirectPieceBytes));
            if (!stream->readExactly(out.cursor + done, piece))
                return false;
            done += piece;
        }
    } else {
        if (!out.fits(frames * channels * bytesPerSample(format)))
            return false;
        if (!readPcmConverted(out.cursor, take, channels, format))
            return false;
    }
    dataRemaining -= take;
    riffRemaining -= take;
    // By the file's bytes, not the bytes written, deliberately: a converting
    // request is served exactly only while one pass fills it.
    out.advance(take);
    framesRead += uint32_t(frames);
    return true;
}

bool AudioFile::readPcmConverted(uint8_t* destination, int64_t take, int32_t channels, uint32_t format) {
    const int32_t fileChannels = waveFormat.channels;
    const int64_t frameBytes = int64_t(waveFormat.bitsPerSample / 8) * fileChannels;
    const int64_t pieceFrames = std::max<int64_t>(1, ConversionPieceBytes / frameBytes);
    if (readBuffer.count() < pieceFrames * frameBytes && !readBuffer.resize(int32_t(pieceFrames * frameBytes)))
        return false;
    const uint32_t sourceFormat = sampleFormat & ~UnsignedFormatBit;
    const int64_t outFrameBytes = int64_t(channels) * bytesPerSample(format);
    int64_t remaining = take;
    while (remaining >= frameBytes) {
        const int64_t n = std::min(remaining / frameBytes, pieceFrames);
        const int32_t bytes = int32_t(n * frameBytes);
        uint8_t* source = readBuffer.data();
        if (!stream->readExactly(source, bytes))
            return false;
        if (sampleFormat == UInt8)
            for (int32_t i = 0; i < bytes; ++i)
                source[i] = uint8_t(source[i] + 128);
        convertSamples(sourceFormat, fileChannels, format, channels, source, destination, int32_t(n));
        destination += n * outFrameBytes;
        remaining -= bytes;
    }
    return stream->skip(remaining);
}

bool AudioFile::restart() {
    if (writing || !stream)
        return false;
    if (decoder)
        return decoder->restart();
    if (!stream->rewind())
        return false;
    clearState();
    if (parseHeader())
        return true;
    clearState();  // a half-parsed header must not be read from
    return false;
}

bool AudioFile::close() {
    bool finished = true;
    if (writing && stream)
        finished = stream->rewind() && writeHeader() && stream->flush();
    if (decoder) {
        decoder->close();
        delete decoder;
        decoder = nullptr;
    }
    ownedStream.reset();
    stream = nullptr;
    writing = false;
    clearState();
    return finished;
}
