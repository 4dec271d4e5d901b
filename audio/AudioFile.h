// AudioFile: the one object through which audio files are read and WAV files
// written. Reads RIFF/WAVE (PCM 8/16/24, float 32, IMA ADPCM) and hands every
// other stream to the codec's decoder. Used by SoundSource, WaveSink and the
// commands.
//
// Chunk sizes are used exactly as stored: no pad byte is ever skipped after an
// odd-sized chunk, so a file that pads is misread from that point on. The
// header parse stops at `fmt `; `data`, `slnt` and every other chunk are
// walked lazily by read(), which keeps its place between calls.
#pragma once

#include <cstdint>

#include "audio/ImaAdpcm.h"
#include "audio/pcm/SampleFormat.h"
#include "core/Array.h"
#include "core/RefCounted.h"
#include "core/Stream.h"

class OxaCodec;


enum WaveFormatTag : uint16_t {
    WavePcm = 1,
    WaveFloat = 3,
    WaveImaAdpcm = 0x11,
};

// Laid out as the `fmt ` chunk, little-endian in the file.
struct WaveFormat {
    uint16_t formatTag = 0;
    uint16_t channels = 0;
    uint32_t sampleRate = 0;
    uint32_t byteRate = 0;
    uint16_t blockAlign = 0;
    uint16_t bitsPerSample = 0;
    uint16_t extraSize = 0;
};

class AudioFile {
public:
    // Files are read with any channel count and rate their header can hold:
    // reading holds at most one ADPCM block (its size is 16-bit) or one
    // conversion piece of 64 KiB or one frame, whichever is larger; the rest
    // goes straight to the caller's buffer. Written files stop at this many
    // channels, so that a Float32 frame fits the 16-bit blockAlign and the
    // converting writer's 8192-byte scratch holds 8 frames.
    static constexpr int32_t MaxWriteChannels = 256;

    AudioFile() = default;
    AudioFile(const AudioFile&) = delete;
    AudioFile& operator=(const AudioFile&) = delete;
    ~AudioFile();  // closes, finishing a file being written

    // Reading. `stream` is borrowed and must outlive the open file; the
    // shared form keeps a reference until close.
    bool open(Stream* stream);
    bool open(SharedRef<Stream> sharedStream);
    // Up to `frames` frames of `channels` channels in `format`. True also when
    // the file ended early (framesRead tells); false on malformed or truncated
    // data, bad arguments or a layout this file cannot be read in.
    bool read(void* buffer, int32_t frames, int32_t channels, uint32_t& framesRead, uint32_t format);
    bool restart();

    // Writing a canonical 44-byte-header WAV file; sizes are patched by close().
    // `formatTag` must be 1 or 3 but the tag written follows from `format`.
    bool create(Stream* stream, uint32_t format, uint32_t sampleRate, int32_t channels, uint16_t formatTag);
    bool create(SharedRef<Stream> sharedStream, uint32_t format, uint32_t sampleRate, int32_t channels,
                uint16_t formatTag);
    bool write(const void* buffer, int32_t frames, int32_t channels, uint32_t& framesWritten, uint32_t format);

    // Finishes a written file (rewind, header with sizes, flush), then
    // forgets everything. Closing a closed file succeeds.
    bool close();

    bool isOpen() const { return stream != nullptr; }
    uint32_t sampleRate() const { return waveFormat.sampleRate; }
    int32_t channels() const { return waveFormat.channels; }
    const WaveFormat& format() const { return waveFormat; }
    uint32_t fileSampleFormat() const { return sampleFormat; }

private:
    bool parseHeader();
    bool openDecoder();
    bool readFormatChunk(uint32_t chunkSize);
    bool chooseSampleFormat();
    bool nextChunk();
    bool decodeAdpcmBlock();
    bool consume(int64_t bytes);
    void clearState();

    bool writeHeader();
    bool writeConverted(const void* buffer, int32_t frames, int32_t channels, uint32_t& framesWritten,
                        uint32_t format);

    // Where read() puts frames in the caller's buffer: `left` bytes remain.
    struct Output {
        uint8_t* cursor;
        int64_t left;
        bool fits(int64_t bytes) const { return bytes <= left; }
        void advance(int64_t bytes);
    };
    bool readSilence(Output& out, int32_t wanted, int32_t channels, uint32_t format, uint32_t& framesRead);
    bool readAdpcm(Output& out, int32_t wanted, int32_t channels, uint32_t format, uint32_t& framesRead,
                   bool& exhausted);
    bool readPcm(Output& out, int32_t wanted, int32_t channels, uint32_t format, uint32_t& framesRead);
    bool readPcmConverted(uint8_t* destination, int64_t take, int32_t channels, uint32_t format);

    Stream* stream = nullptr;
    SharedRef<Stream> ownedStream;
    WaveFormat waveFormat;
    int64_t silenceFrames = 0;
    int64_t riffRemaining = 0;
    int64_t dataRemaining = 0;
    Array<ImaAdpcmChannel> adpcmChannels;
    Array<uint8_t> readBuffer;
    Array<int16_t> blockSamples;
    int32_t blockReadIndex = 0;
    int32_t blockFrameCount = 0;
    OxaCodec* decoder = nullptr;  // owned; only for non-RIFF streams
    uint32_t sampleFormat = 0;    // the file's, 0 while unknown (and for ADPCM)
    uint64_t framesWritten = 0;
    bool writing = false;
};
