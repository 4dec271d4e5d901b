// BufferedStream: a read buffer and a write buffer in front of another stream.
// Borrows the inner stream and never closes it. One inner call per buffer's
// worth of bytes; small reads and writes are served by copying. Used by the
// compress and decompress commands (8192 bytes) in front of their output.
#pragma once

#include <cstdint>

#include "Stream.h"

class BufferedStream final : public Stream {
public:
    BufferedStream(Stream* inner, int32_t bufferSize);
    BufferedStream(const BufferedStream&) = delete;
    BufferedStream& operator=(const BufferedStream&) = delete;
    ~BufferedStream() override;  // writes out pending data, failure ignored

    bool read(void* buffer, int32_t length, uint32_t& count) override;
    bool write(const void* buffer, int32_t length, uint32_t& count) override;
    bool close() override;
    uint32_t flags() override { return capabilities; }
    bool seek(int64_t offset, int32_t origin) override;
    int64_t tell() override { return position; }
    bool flush() override;
    bool truncate() override;

    int64_t bytesMoved() const { return totalMoved; }

private:
    // Internal state bits kept beside the inner stream's capability bits.
    static constexpr uint32_t LastWasRead = 0x100;
    static constexpr uint32_t WritePending = 0x200;

    bool refill();
    bool writeOut();
    void advance(uint32_t n);

    Stream* inner;
    int64_t position = -1;  // -1 when the inner stream cannot seek
    uint32_t capabilities = 0;
    uint32_t state = 0;
    int64_t totalMoved = 0;
    int32_t bufferSize;
    uint8_t* readBuffer = nullptr;
    int32_t readFill = 0;
    int32_t readPosition = 0;
    uint8_t* writeBuffer = nullptr;
    int32_t writeFill = 0;
};
