// BufferedStream: buffering in front of another stream.
#include "core/BufferedStream.h"

#include <algorithm>
#include <new>

BufferedStream::BufferedStream(Stream* innerStream, int32_t size) : inner(innerStream), bufferSize(size > 0 ? size : 1) {
    capabilities = inner ? inner->flags() : 0;
    if (capabilities & StreamSeekable)
        bufferStart = inner->tell();
    // A buffer that cannot be had leaves that direction failing, not the process.
    if (capabilities & StreamReadable)
        readBuffer = new (std::nothrow) uint8_t[size_t(bufferSize)];
    if (capabilities & StreamWritable) {
        writeBuffer = new (std::nothrow) uint8_t[size_t(bufferSize)];
        writeCapacity = writeBuffer ? bufferSize : 0;
    }
}

BufferedStream::~BufferedStream() {
    writeOut();
    delete[] readBuffer;
    delete[] writeBuffer;
}

// Folds the bytes consumed from the current buffer into the position and total.
void BufferedStream::settle(int32_t consumed) {
    if (bufferStart >= 0)
        bufferStart += consumed;
    movedBefore += consumed;
}

bool BufferedStream::refill() {
    settle(readPosition);
    readFill = 0;
    readPosition = 0;
    uint32_t got = 0;
    if (!inner->read(readBuffer, bufferSize, got))
        return false;
    readFill = int32_t(got);
    return true;
}

bool BufferedStream::readSlowly(void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (!inner || !readBuffer || length < 0)
        return false;
    if (writeFill > 0 && !flush())
        return false;
    uint8_t* out = static_cast<uint8_t*>(buffer);
    while (count < uint32_t(length)) {
        if (readPosition == readFill) {
            if (!refill())
                return false;
            if (readFill == 0)
                break;  // end of the inner stream
        }
        int32_t piece = std::min(length - int32_t(count), readFill - readPosition);
        std::memcpy(out + count, readBuffer + readPosition, size_t(piece));
        readPosition += piece;
        count += uint32_t(piece);
    }
    return true;
}

bool BufferedStream::writeOut() {
    if (writeFill == 0)
        return true;
    if (!inner)
        return false;
    uint32_t written = 0;
    bool ok = inner->write(writeBuffer, writeFill, written) && written == uint32_t(writeFill);
    settle(writeFill);
    writeFill = 0;
    return ok;
}

bool BufferedStream::writeSlowly(const void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (!inner || !writeBuffer || length < 0)
        return false;
    if (readFill > 0 && !flush())
        return false;
    const uint8_t* in = static_cast<const uint8_t*>(buffer);
    while (count < uint32_t(length)) {
        if (writeFill == bufferSize && !writeOut())
            return false;
        int32_t piece = std::min(length - int32_t(count), bufferSize - writeFill);
        std::memcpy(writeBuffer + writeFill, in + count, size_t(piece));
        writeFill += piece;
        count += uint32_t(piece);
    }
    return true;
}

// Drops unread read-ahead (the inner stream is not moved back) and writes
// pending data; the inner stream's own flush is not called.
bool BufferedStream::flush() {
    settle(readPosition);
    readFill = 0;
    readPosition = 0;
    return writeOut();
}

bool BufferedStream::seek(int64_t offset, int32_t origin) {
    if (!inner || !flush() || !inner->seek(offset, origin))
        return false;
    bufferStart = (capabilities & StreamSeekable) ? inner->tell() : -1;
    return true;
}

bool BufferedStream::truncate() {
    if (!inner || !flush())
        return false;
    if ((capabilities & StreamSeekable) && !inner->seek(bufferStart, SeekStart))
        return false;
    return inner->truncate();
}

bool BufferedStream::close() {
    if (!flush())
        return false;
    inner = nullptr;
    capabilities = 0;
    delete[] readBuffer;
    delete[] writeBuffer;
    readBuffer = writeBuffer = nullptr;
    writeCapacity = 0;
    return true;
}
