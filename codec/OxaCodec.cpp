// OxaCodec: encoder and decoder of the Oxa stream.
#include "codec/OxaCodec.h"

#include <cmath>
#include <cstring>
#include <new>

#include "audio/pcm/SampleFormat.h"
#include "codec/Int16Frames.h"
#include "core/Stream.h"
#include "core/deflate/DeflateStream.h"
#include "core/deflate/InflateStream.h"

namespace {

constexpr int32_t ConversionChunkBytes = 8192;

// Reads until `length` bytes arrived; false on a failed or short read.
bool readFully(Stream& stream, uint8_t* buffer, int32_t length) {
    while (length > 0) {
        uint32_t count = 0;
        if (!stream.read(buffer, length, count) || count == 0)
            return false;
        buffer += count;
        length -= int32_t(count);
    }
    return true;
}

// Sizes an array to `count` zeroed elements.
template <typename T>
bool resizeZeroed(Array<T>& array, int64_t count) {
    if (count > INT32_MAX || !array.resize(int32_t(count)))
        return false;
    if (count > 0)
        std::memset(array.data(), 0, size_t(count) * sizeof(T));
    return true;
}

}  // namespace

OxaCodec::OxaCodec() { std::memset(&header, 0, sizeof header); }

OxaCodec::~OxaCodec() { close(); }

bool OxaCodec::prepareTransform(bool scaled) {
    if (transform && transform->length() == n && transform->scaled() == scaled)
        return true;
    transform = Mdct::create(n, scaled);
    return bool(transform);
}

// ---- Encoder -------------------------------------------------------------

bool OxaCodec::openEncoder(Stream* output, uint32_t format, uint32_t sampleRate, int32_t channels, uint8_t qbits,
                           int32_t windowSize, float athOffset) {
    if (uint8_t(qbits - 2) > 6 || sampleRate < 1 || channels > 256 || (windowSize & 0xFFFF) == 0)
        return false;
    if (!isPowerOfTwo(uint32_t(windowSize)))
        return false;
    close();
    // Unsigned storage is refused; so are codes that are no sample format at all.
    if ((format & UnsignedFormatBit) != 0 || bytesPerSample(format) == 0 || bytesPerSample(format) > 4)
        return false;
    if (!output || channels < 0)
        return false;

    n = windowSize;
    streamChannels = channels;
    codecFormat = format;
    header = makeOxaHeader(sampleRate, channels, qbits, windowSize);
    const int64_t samples = int64_t(n) * channels;
    if (!resizeZeroed(sampleBuffer, samples * bytesPerSample(format)) || !resizeZeroed(overlap, samples) ||
        !resizeZeroed(blockSamples, n) || !resizeZeroed(spectrum, n) ||
        !resizeZeroed(codeBytes, OxaPeakSize + int64_t(n)) || !resizeZeroed(dequantTable, 256) ||
        !quantiser.build(n, sampleRate, athOffset, qbits) || !prepareTransform(true))
        return false;
    buildDequantTable(dequantTable.data(), qbits);
    codeMask = oxaCodeMask(qbits);
    sampleFill = 0;
    framesIn = 0;

    file = output;
    const bool headerWritten = writeOxaHeader(*file, header);
    deflate = new (std::nothrow) DeflateStream(file, OxaDeflateFraming);
    if (!deflate)
        return false;
    writing = true;
    return headerWritten;
}

bool OxaCodec::encode(const void* samples, int32_t frames, int32_t channels, uint32_t format) {
    if (!writing || frames < 0 || channels < 1)
        return false;
    if (frames == 0)
        return true;
    if (!samples)
        return false;
    const uint8_t* source = static_cast<const uint8_t*>(samples);
    const int32_t codecSampleBytes = bytesPerSample(codecFormat);
    // 8-bit samples are kept as unsigned bytes, so they always take the converting path.
    if (format == codecFormat && channels == streamChannels && codecSampleBytes != 1) {
        if (!appendSamples(source, int64_t(frames) * channels))
            return false;
        framesIn += frames;
        return true;
    }
    uint8_t chunk[ConversionChunkBytes];
    const int32_t outputFrameBytes = codecSampleBytes * (streamChannels > 0 ? streamChannels : 1);
    const int32_t chunkFrames = ConversionChunkBytes / outputFrameBytes;
    const int64_t inputFrameBytes = int64_t(bytesPerSample(format)) * channels;
    for (int32_t done = 0; done < frames;) {
        int32_t count = frames - done < chunkFrames ? frames - done : chunkFrames;
        convertSamples(format, channels, codecFormat, streamChannels, source + done * inputFrameBytes, chunk, count);
        const int32_t converted = count * streamChannels;
        if (codecSampleBytes == 1)
            for (int32_t i = 0; i < converted; ++i)
                chunk[i] ^= 0x80;
        if (!appendSamples(chunk, converted))
            return false;
        done += count;
        framesIn += count;
    }
    return true;
}

bool OxaCodec::appendSamples(const uint8_t* bytes, int64_t count) {
    const int64_t capacity = int64_t(n) * streamChannels;
    const int32_t sampleBytes = bytesPerSample(codecFormat);
    while (count > 0 && capacity > 0) {
        int64_t take = capacity - sampleFill < count ? capacity - sampleFill : count;
        std::memcpy(sampleBuffer.data() + sampleFill * sampleBytes, bytes, size_t(take * sampleBytes));
        sampleFill += take;
        bytes += take * sampleBytes;
        count -= take;
        if (sampleFill == capacity && !codeBlock())
            return false;
    }
    return true;
}

void OxaCodec::loadChannel(int32_t channel, float* samples) const {
    const int32_t sampleBytes = bytesPerSample(codecFormat);
    const int64_t stride = int64_t(streamChannels) * sampleBytes;
    const uint8_t* in = sampleBuffer.data() + int64_t(channel) * sampleBytes;
    if (codecFormat == Int16) {
        for (int32_t i = 0; i < n; ++i, in += stride) {
            int16_t value;
            std::memcpy(&value, in, 2);
            samples[i] = float(value) * (1.0f / 32768.0f);
        }
    } else if (sampleBytes == 1) {
        for (int32_t i = 0; i < n; ++i, in += stride)
            samples[i] = float(int32_t(*in) - 128) * (1.0f / 128.0f);
    } else {
        for (int32_t i = 0; i < n; ++i, in += stride)
            samples[i] = decodeSample(codecFormat, in);
    }
}

bool OxaCodec::codeBlock() {
    const int32_t sampleBytes = bytesPerSample(codecFormat);
    const int64_t capacity = int64_t(n) * streamChannels;
    // Pad a partial block with silence (0x80 is silence for the unsigned 8-bit storage).
    std::memset(sampleBuffer.data() + sampleFill * sampleBytes, sampleBytes == 1 ? 0x80 : 0,
                size_t((capacity - sampleFill) * sampleBytes));
    sampleFill = 0;
    for (int32_t c = 0; c < streamChannels; ++c) {
        float* previous = overlap.data() + int64_t(c) * n;
        loadChannel(c, blockSamples.data());
        transform->forward(previous, blockSamples.data(), spectrum.data());
        std::memcpy(previous, blockSamples.data(), size_t(n) * sizeof(float));
        float peak = quantiser.quantise(spectrum.data(), codeBytes.data() + OxaPeakSize);
        std::memcpy(codeBytes.data(), &peak, OxaPeakSize);
        if (!deflate->writeAll(codeBytes.data(), OxaPeakSize + n))
            return false;
    }
    ++header.blockCount;
    return true;
}

bool OxaCodec::close() {
    if (writing) {
        writing = false;
        bool ok = codeBlock();
        ok = deflate->flush() && ok;
        deflate.reset();
        ok = file->rewind() && ok;
        ok = writeOxaHeader(*file, header) && ok;
        ok = file->flush() && ok;
        header.blockCount = 0;
        return ok;
    }
    if (reading) {
        reading = false;
        inflate.reset();
        readPosition = n;
    }
    return true;
}

// ---- Decoder -------------------------------------------------------------

bool OxaCodec::openDecoder(Stream* input) {
    close();
    if (!input)
        return false;
    const int64_t position = input->tell();
    OxaHeader candidate;
    if (!readOxaHeader(*input, candidate))
        return false;
    header = candidate;
    file = input;
    startPosition = position;
    n = header.windowSize;
    streamChannels = header.channels;
    const int64_t samples = int64_t(n) * streamChannels;
    if (!resizeZeroed(outputBlock, samples) || !resizeZeroed(overlap, 2 * samples) || !resizeZeroed(spectrum, n) ||
        !resizeZeroed(codeBytes, OxaPeakSize + int64_t(n)) || !resizeZeroed(dequantTable, 256) ||
        !prepareTransform((header.flags & OxaScaledFlag) != 0))
        return false;
    buildDequantTable(dequantTable.data(), header.qbits);
    codeMask = oxaCodeMask(header.qbits);
    overlapHalf = 0;

    inflate = new (std::nothrow) InflateStream(OxaDeflateFraming);
    if (!inflate)
        return false;
    inflate->open(file, nullptr, false);
    inflate->setFraming(OxaDeflateFraming);
    reading = true;
    // A stream without blocks has no audio, whatever follows the header.
    payloadEnded = header.blockCount == 0;
    // The first block only primes the overlap: it holds the transform's one-block delay.
    if (header.blockCount != 0 && !decodeBlock()) {
        close();
        return false;
    }
    readPosition = n;
    return true;
}

bool OxaCodec::decodeBlock() {
    if (payloadEnded)
        return false;
    const float* table = dequantTable.data();
    float levels[256];
    float* tails = overlap.data();
    const int64_t halfSize = int64_t(n) * streamChannels;
    for (int32_t c = 0; c < streamChannels; ++c) {
        if (!readFully(*inflate, codeBytes.data(), OxaPeakSize + n)) {
            payloadEnded = true;
            return false;
        }
        float peak;
        std::memcpy(&peak, codeBytes.data(), OxaPeakSize);
        // Each code's value times the peak, once per block rather than per coefficient.
        for (uint32_t k = 0; k <= codeMask; ++k)
            levels[k] = table[k] * peak;
        const uint8_t* codes = codeBytes.data() + OxaPeakSize;
        for (int32_t i = 0; i < n; ++i)
            spectrum[i] = levels[codes[i] & codeMask];
        float* out = outputBlock.data() + int64_t(c) * n;
        const float* previousTail = tails + overlapHalf * halfSize + int64_t(c) * n;
        float* nextTail = tails + (1 - overlapHalf) * halfSize + int64_t(c) * n;
        transform->synthesise(spectrum.data(), previousTail, out, nextTail);
    }
    overlapHalf = 1 - overlapHalf;
    readPosition = 0;
    return true;
}

bool OxaCodec::decode(void* buffer, int32_t frames, int32_t channels, uint32_t format, uint32_t& framesDelivered) {
    framesDelivered = 0;
    if (!reading || frames < 0 || channels < 1)
        return false;
    if (frames == 0)
        return true;
    if (!buffer)
        return false;
    uint8_t* out = static_cast<uint8_t*>(buffer);
    const int64_t frameBytes = int64_t(bytesPerSample(format)) * channels;
    int32_t delivered = 0;
    while (delivered < frames) {
        if (readPosition >= n && !decodeBlock())
            break;
        int32_t run = n - readPosition < frames - delivered ? n - readPosition : frames - delivered;
        uint8_t* target = out + delivered * frameBytes;
        if (format == Int16)
            writeInt16Frames(outputBlock.data() + readPosition, n, streamChannels, channels, run, target);
        else
            deliverConverted(target, run, channels, format);
        readPosition += run;
        delivered += run;
    }
    framesDelivered = uint32_t(delivered);
    return true;
}

void OxaCodec::deliverConverted(uint8_t* out, int32_t frames, int32_t channels, uint32_t format) const {
    // A frame goes through a float frame of at most 64 channels at a time.
    constexpr int32_t Piece = 64;
    const int32_t sampleBytes = bytesPerSample(format);
    const float* block = outputBlock.data() + readPosition;
    float frame[Piece];
    for (int32_t f = 0; f < frames; ++f) {
        for (int32_t first = 0; first < channels; first += Piece) {
            int32_t count = channels - first < Piece ? channels - first : Piece;
            for (int32_t i = 0; i < count; ++i)
                frame[i] = first + i < streamChannels ? block[int64_t(first + i) * n + f] : 0.0f;
            convertSamples(Float32, count, format, count, frame, out, 1);
            out += int64_t(count) * sampleBytes;
        }
    }
}

bool OxaCodec::restart() {
    if (!reading || startPosition < 0 || !file->seek(startPosition, SeekStart))
        return false;
    return openDecoder(file);
}

uint32_t OxaCodec::sampleRate() const { return header.sampleRate; }
int32_t OxaCodec::channels() const { return streamChannels; }
uint32_t OxaCodec::blockCount() const { return header.blockCount; }
int32_t OxaCodec::windowSize() const { return n; }

float OxaCodec::duration() const {
    return header.sampleRate ? float(double(n) * header.blockCount / header.sampleRate) : 0.0f;
}
