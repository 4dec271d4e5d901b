// FileStream: file access through open64/read/write/lseek64.
#include "core/FileStream.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

int openFlags(uint32_t mode) {
    int flags = 0;
    switch (mode & 3) {
    case 1: flags = O_RDONLY; break;
    case 2: flags = O_WRONLY; break;
    default: flags = O_RDWR; break;
    }
    bool create = mode & FileCreate, truncate = mode & FileTruncate;
    if (create && truncate)
        flags |= O_CREAT | O_TRUNC;
    else if (create)
        flags |= O_CREAT | O_EXCL;
    else if (truncate)
        flags |= O_TRUNC;
    return flags | O_CLOEXEC;
}

}  // namespace

FileStream::FileStream(const String& path, uint32_t mode, uint32_t share) { open(path, mode, share); }

FileStream::FileStream(const String& path, const char* modeString) { open(path, parseModeString(modeString), 7); }

FileStream::~FileStream() { close(); }

// Letters set their bits; "x" clears truncation so that "wx" creates exclusively.
uint32_t FileStream::parseModeString(const char* modeString) {
    uint32_t mode = 0;
    for (const char* c = modeString; c && *c; ++c) {
        switch (*c) {
        case 'r': mode |= FileRead; break;
        case 'w': mode |= FileWrite | FileCreate | FileTruncate; break;
        // Appending opens for reading and writing, deliberately.
        case 'a': mode |= FileRead | FileWrite | FileCreate | FileAppend; break;
        case '+':
            mode |= FileRead | FileWrite;
            if (mode & FileAppend)
                mode &= ~uint32_t(FileTruncate);
            break;
        case 'x': mode &= ~uint32_t(FileTruncate); break;
        default: break;
        }
    }
    return mode;
}

bool FileStream::open(const String& path, uint32_t mode, uint32_t share) {
    if (isOpen() && !close())
        return false;
    if ((mode & 3) == 0) {
        capabilities = 0;
        return false;
    }
    int fd = ::open64(path.c_str(), openFlags(mode), 0600);
    if (fd < 0) {
        capabilities = 0;
        return false;
    }
    static const uint32_t access[4] = {0, StreamReadable, StreamWritable, StreamReadable | StreamWritable};
    capabilities = StreamOpen | StreamSeekable | access[mode & 3] | ((mode & FileAppend) ? StreamAppend : 0u);
    openMode = mode;
    shareMode = share;
    descriptorPlusOne = fd + 1;
    filePath = path;
    return true;
}

bool FileStream::read(void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (!isOpen() || length < 0)
        return false;
    ssize_t n = ::read(descriptor(), buffer, size_t(length));
    if (n < 0)
        return false;
    count = uint32_t(n);
    return true;
}

bool FileStream::write(const void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (!isOpen() || length < 0)
        return false;
    if (!(openMode & FileAppend)) {
        ssize_t n = ::write(descriptor(), buffer, size_t(length));
        if (n < 0)
            return false;
        count = uint32_t(n);
        return true;
    }
    // An appending write leaves the stream's own position where it was.
    int64_t position = tell();
    bool ok = false;
    if (seekToEnd()) {
        ssize_t n = ::write(descriptor(), buffer, size_t(length));
        ok = n >= 0;
        count = ok ? uint32_t(n) : 0;
    }
    seek(position, SeekStart);
    return ok;
}

bool FileStream::close() {
    if (!isOpen())
        return true;
    if (::close(descriptor()) != 0)
        return false;
    descriptorPlusOne = 0;
    capabilities = 0;
    filePath = String();
    return true;
}

bool FileStream::seek(int64_t offset, int32_t origin) {
    if (!isOpen())
        return false;
    int whence = origin == SeekCurrent ? SEEK_CUR : origin == SeekEnd ? SEEK_END : SEEK_SET;
    return ::lseek64(descriptor(), offset, whence) >= 0;
}

int64_t FileStream::tell() { return isOpen() ? ::lseek64(descriptor(), 0, SEEK_CUR) : -1; }

bool FileStream::flush() {
    if (!(capabilities & StreamWritable))
        return true;
    return ::fsync(descriptor()) == 0;
}

bool FileStream::truncate() {
    if (!(capabilities & StreamWritable))
        return true;
    return ::ftruncate64(descriptor(), tell()) == 0;
}

// Reuses the mode whole: cloning a stream opened with truncate empties the
// file again, so only read streams are cloned.
Stream* FileStream::clone() {
    if (!isOpen())
        return nullptr;
    FileStream* copy = new FileStream(filePath, openMode, shareMode);
    if (!copy->isOpen() || !copy->seek(tell(), SeekStart)) {
        delete copy;
        return nullptr;
    }
    return copy;
}
