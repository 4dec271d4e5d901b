// OxaCodec: the one codec class, encoder and decoder over one header record.
// The encoder turns interleaved PCM into a compressed stream written through
// a borrowed file stream; the decoder reads such a stream back as PCM in any
// layout. Used by the compress and decompress commands and by AudioFile,
// which hands it every stream that is not RIFF/WAVE.
#pragma once

#include <cstdint>

#include "codec/Mdct.h"
#include "codec/OxaFormat.h"
#include "codec/Quantiser.h"
#include "core/Array.h"
#include "core/RefCounted.h"

class DeflateStream;
class InflateStream;
class Stream;

class OxaCodec {
public:
    OxaCodec();
    OxaCodec(const OxaCodec&) = delete;
    OxaCodec& operator=(const OxaCodec&) = delete;
    ~OxaCodec();  // closes whatever is open

    // Encoder. `file` is borrowed; the header is written at once.
    bool openEncoder(Stream* file, uint32_t format, uint32_t sampleRate, int32_t channels, uint8_t qbits,
                     int32_t windowSize, float athOffset);
    bool encode(const void* samples, int32_t frames, int32_t channels, uint32_t format);

    // Decoder. `file` is borrowed and read from its current position.
    bool openDecoder(Stream* file);
    bool decode(void* buffer, int32_t frames, int32_t channels, uint32_t format, uint32_t& framesDelivered);
    bool restart();  // back to the first frame of the stream being decoded

    // Encoder: codes the last block, finishes the payload, rewrites the header.
    // Decoder: releases the payload stream. Closing a closed codec succeeds.
    bool close();

    uint32_t sampleRate() const;
    int32_t channels() const;
    uint32_t blockCount() const;
    int32_t windowSize() const;
    float duration() const;  // windowSize * blockCount / sampleRate, in seconds

private:
    bool prepareTransform(bool scaled);
    // Encoder: takes `count` samples in the codec's own format, coding each full block.
    bool appendSamples(const uint8_t* bytes, int64_t count);
    bool codeBlock();
    void loadChannel(int32_t channel, float* samples) const;
    // Decoder: false when the payload has no further whole block.
    bool decodeBlock();
    void deliverConverted(uint8_t* out, int32_t frames, int32_t channels, uint32_t format) const;

    OxaHeader header;               // kept current: blockCount grows per coded block
    Stream* file = nullptr;         // borrowed
    SharedRef<DeflateStream> deflate;
    SharedRef<InflateStream> inflate;
    SharedRef<Mdct> transform;      // kept across streams of the same length and scaling
    int32_t n = 0;                  // windowSize
    int32_t streamChannels = 0;     // as given to openEncoder (256 is stored as 0) or read
    uint32_t codecFormat = 2;       // the encoder's sample format
    bool writing = false;
    bool reading = false;

    // Encoder.
    Quantiser quantiser;
    Array<uint8_t> sampleBuffer;    // N frames of interleaved samples in codecFormat
    int64_t sampleFill = 0;         // in samples
    Array<float> blockSamples;      // one channel's N new samples, scaled to [-1, 1)
    Array<float> spectrum;          // one channel's N coefficients
    Array<uint8_t> codeBytes;       // peak (4 bytes) and N codes of one channel
    int64_t framesIn = 0;           // statistics only

    // Decoder (also uses spectrum and codeBytes).
    Array<float> dequantTable;      // 256 entries; codes are masked to qbits bits
    uint32_t codeMask = 0;
    Array<float> overlap;           // encoder: N per channel; decoder: two halves of N per channel
    int32_t overlapHalf = 0;        // decoder: the half holding the previous block's tail
    Array<float> outputBlock;       // N per channel, channel after channel
    int32_t readPosition = 0;       // next frame of outputBlock; N when used up
    bool payloadEnded = false;
    int64_t startPosition = -1;     // where openDecoder found the header
};
