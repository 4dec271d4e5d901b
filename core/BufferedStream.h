// BufferedStream: a read buffer and a write buffer in front of another stream.
// Borrows the inner stream and never closes it. One inner call per buffer's
// worth of bytes; small reads and writes are served by copying. Used by the
// compress and decompress commands (8192 bytes) in front of their output.
#pragma once

#include <cstdint>
#include <cstring>

#include "Stream.h"

class BufferedStream final : public Stream {
public:
    BufferedStream(Stream* inner, int32_t bufferSize);
    BufferedStream(const BufferedStream&) = delete;
    BufferedStream& operator=(const BufferedStream&) = delete;
    ~BufferedStream() override;  // writes out pending data, failure ignored

    // The fast paths, a copy within the buffer, are inline so that callers
    // holding a BufferedStream pay no call for small accesses.
    bool read(void* buffer, int32_t length, uint32_t& count) override {
        if (length >= 0 && length <= readFill - readPosition && readBuffer && !(state & WritePending)) {
            std::memcpy(buffer, readBuffer + readPosition, size_t(length));
            readPosition += length;
            state |= LastWasRead;
            count = uint32_t(length);
            advance(count);
            return true;
        }
        return readSlowly(buffer, length, count);
    }
    bool write(const void* buffer, int32_t length, uint32_t& count) override {
        if (length >= 0 && length <= bufferSize - writeFill && writeBuffer && !(state & LastWasRead)) {
            std::memcpy(writeBuffer + writeFill, buffer, size_t(length));
            writeFill += length;
            state |= WritePending;
            count = uint32_t(length);
            advance(count);
            return true;
        }
        return writeSlowly(buffer, length, count);
    }
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

    bool readSlowly(void* buffer, int32_t length, uint32_t& count);
    bool writeSlowly(const void* buffer, int32_t length, uint32_t& count);
    bool refill();
    bool writeOut();
    void advance(uint32_t n) {
        if (position >= 0)
            position += n;
        totalMoved += n;
    }

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
