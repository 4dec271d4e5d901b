// Stream: default behaviour of the abstract byte stream.
#include "core/Stream.h"

#include <algorithm>

bool Stream::read(void*, int32_t, uint32_t& count) {
    count = 0;
    return false;
}

bool Stream::write(const void*, int32_t, uint32_t& count) {
    count = 0;
    return false;
}

bool Stream::close() { return true; }
uint32_t Stream::flags() { return 0; }
bool Stream::rewind() { return seek(0, SeekStart); }
bool Stream::seekToEnd() { return seek(0, SeekEnd); }
bool Stream::seek(int64_t, int32_t) { return false; }
int64_t Stream::tell() { return -1; }

int64_t Stream::size() {
    int64_t position = tell();
    if (position < 0 || !seek(0, SeekEnd))
        return -1;
    int64_t length = tell();
    seek(position, SeekStart);
    return length;
}

bool Stream::flush() { return true; }
bool Stream::truncate() { return false; }

bool Stream::atEnd() {
    int64_t position = tell();
    return position >= 0 && position == size();
}

Stream* Stream::clone() { return nullptr; }

bool Stream::readExactly(void* buffer, int32_t length) {
    uint32_t count = 0;
    return read(buffer, length, count) && count == uint32_t(length);
}

bool Stream::writeAll(const void* buffer, int32_t length) {
    uint32_t count = 0;
    return write(buffer, length, count) && count == uint32_t(length);
}

bool Stream::skip(int64_t n) {
    if (n < 0)
        return seek(n, SeekCurrent);
    uint8_t scratch[8192];
    while (n > 0) {
        int32_t piece = int32_t(std::min<int64_t>(n, sizeof scratch));
        if (!readExactly(scratch, piece))
            return false;
        n -= piece;
    }
    return true;
}
