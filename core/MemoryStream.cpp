// MemoryStream: stream over an in-memory byte buffer.
#include "core/MemoryStream.h"

#include <algorithm>
#include <cstring>

MemoryStream::MemoryStream(const void* source, int32_t length) {
    if (length > 0)
        bytes.append(static_cast<const uint8_t*>(source), length);
}

bool MemoryStream::read(void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (length < 0 || (length > 0 && !buffer))
        return false;
    int64_t end = bytes.count();
    if (readLimit >= 0)
        end = std::min(end, readLimit);
    int64_t available = std::max<int64_t>(0, end - position);
    int32_t n = int32_t(std::min<int64_t>(length, available));
    if (n > 0)
        std::memcpy(buffer, bytes.data() + position, size_t(n));
    position += n;
    count = uint32_t(n);
    return true;
}

bool MemoryStream::write(const void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (length < 0 || (length > 0 && !buffer))
        return false;
    int64_t end = position + length;
    if (writeLimit >= 0 && end > writeLimit)
        return false;
    if (end > INT32_MAX)
        return false;
    if (end > bytes.count() && !bytes.resize(int32_t(end)))
        return false;
    if (length > 0)
        std::memcpy(bytes.data() + position, buffer, size_t(length));
    position = end;
    count = uint32_t(length);
    return true;
}

uint32_t MemoryStream::flags() {
    return StreamOpen | StreamReadable | StreamWritable | (seekable ? uint32_t(StreamSeekable) : 0u);
}

bool MemoryStream::seek(int64_t offset, int32_t origin) {
    if (!seekable)
        return false;
    int64_t base = origin == SeekCurrent ? position : origin == SeekEnd ? bytes.count() : 0;
    int64_t target = base + offset;
    if (target < 0)
        return false;
    position = target;
    return true;
}

bool MemoryStream::truncate() {
    if (position < bytes.count())
        bytes.resize(int32_t(position));
    return true;
}
