// BufferedStream: a read buffer and a write buffer in front of another stream.
// Borrows the inner stream and never closes it. One inner call per buffer's
// worth of bytes; small reads and writes are served by copying. Used by the
// compress and decompress commands (8192 bytes) in front of their output.
#pragma once

#include <cstdint>
#include <cstring>

#include "core/Stream.h"

class BufferedStream final : public Stream {
public:
    BufferedStream(Stream* inner, int32_t bufferSize);
    BufferedStream(const BufferedStream&) = delete;
    BufferedStream& operator=(const BufferedStream&) = delete;
    ~BufferedStream() override;  // writes out pending data, failure ignored

    // The fast paths copy within a buffer and touch nothing else: the position
    // and the running total are derived from the buffer cursors when asked.
    // They are inline so that callers holding a BufferedStream pay no call.
    bool read(void* buffer, int32_t length, uint32_t& count) override {
        if (uint32_t(length) - 1u < uint32_t(readFill - readPosition)) {  // 1 <= length <= unread
            std::memcpy(buffer, readBuffer + readPosition, size_t(length));
            readPosition += length;
            count = uint32_t(length);
            return true;
        }
        return readSlowly(buffer, length, count);
    }
    bool write(const void* buffer, int32_t length, uint32_t& count) override {
        if (uint32_t(length) - 1u < uint32_t(writeCapacity - writeFill) && readFill == 0) {
            std::memcpy(writeBuffer + writeFill, buffer, size_t(length));
            writeFill += length;
            count = uint32_t(length);
            return true;
        }
        return writeSlowly(buffer, length, count);
    }
    bool close() override;
    uint32_t flags() override { return capabilities; }
    bool seek(int64_t offset, int32_t origin) override;
    int64_t tell() override { return bufferStart < 0 ? -1 : bufferStart + readPosition + writeFill; }
    bool flush() override;
    bool truncate() override;

    int64_t bytesMoved() const { return movedBefore + readPosition + writeFill; }

private:
    bool readSlowly(void* buffer, int32_t length, uint32_t& count);
    bool writeSlowly(const void* buffer, int32_t length, uint32_t& count);
    bool refill();
    bool writeOut();
    void settle(int32_t consumed);

    // Read-ahead and pending writes never coexist: a write first drops the
    // read-ahead and a read first writes out pending data. So "the last
    // operation was a read" is readFill > 0 and "write data pending" is
    // writeFill > 0.
    Stream* inner;
    int64_t bufferStart = -1;  // stream position of the buffer's first byte; -1 when not seekable
    int64_t movedBefore = 0;   // bytes moved before the current buffer
    uint32_t capabilities = 0;
    int32_t bufferSize;
    uint8_t* readBuffer = nullptr;
    int32_t readFill = 0;
    int32_t readPosition = 0;
    uint8_t* writeBuffer = nullptr;
    int32_t writeCapacity = 0;  // 0 when the inner stream is not writable
    int32_t writeFill = 0;
};
