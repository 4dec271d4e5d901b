// TapStream: a pass-through stream that reports what is read.
#include "core/TapStream.h"

#include <algorithm>
#include <cstring>

bool TapStream::read(void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (!inner || !inner->read(buffer, length, count))
        return false;
    onRead(buffer, count);
    return true;
}

bool TapStream::write(const void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (length < 0 || !inner)
        return false;
    uint8_t scratch[4096];
    const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
    for (int32_t done = 0; done < length;) {
        int32_t piece = std::min(length - done, 8);
        std::memcpy(scratch, bytes + done, size_t(piece));
        uint32_t written = 0;
        bool ok = inner->write(scratch, piece, written);
        count += written;
        if (!ok || written != uint32_t(piece))
            return ok;
        done += piece;
    }
    return true;
}

uint32_t TapStream::flags() { return inner ? inner->flags() : 0; }
bool TapStream::seek(int64_t offset, int32_t origin) { return inner && inner->seek(offset, origin); }
int64_t TapStream::tell() { return inner ? inner->tell() : -1; }
bool TapStream::flush() { return !inner || inner->flush(); }
bool TapStream::atEnd() { return !inner || inner->atEnd(); }
