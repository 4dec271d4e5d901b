// OxaCodec: the one codec class, encoder and decoder over one header record.
// The encoder turns interleaved PCM into a compressed stream written through
// a borrowed file stream; the decoder reads such a stream back as PCM in any
// layout. Used by the compress and decompress commands and by AudioFile,
// which hands it every stream that is not RIFF/WAVE.
#pragma once

#include <cstdint>

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
    struct State;
    State* state;
};
