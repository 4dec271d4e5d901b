// Stream: the abstract byte stream every byte of the system goes through.
// Its operations come in a fixed order; the base class gives each its
// default behaviour. Failure is a false result, a short count or a -1
// position; nothing throws and nothing prints.
//
// A stream is owned by whoever created it. Streams that are shared (the
// codec's streams, a file held by AudioFile) are reference counted through
// SharedRef. A stream that wraps another never owns the inner one unless
// it says so.
#pragma once

#include <cstdint>

#include "core/RefCounted.h"

enum StreamFlag : uint32_t {
    StreamOpen = 1,
    StreamReadable = 2,
    StreamWritable = 4,
    StreamSeekable = 8,
    StreamAppend = 16,
};

enum SeekOrigin : int32_t { SeekStart = 0, SeekCurrent = 1, SeekEnd = 2 };

class Stream : public RefCounted {
public:
    Stream() = default;
    ~Stream() override = default;

    virtual bool read(void* buffer, int32_t length, uint32_t& count);
    virtual bool write(const void* buffer, int32_t length, uint32_t& count);
    virtual bool close();
    virtual uint32_t flags();
    virtual bool rewind();
    virtual bool seekToEnd();
    virtual bool seek(int64_t offset, int32_t origin);
    virtual int64_t tell();
    virtual int64_t size();
    virtual bool flush();
    virtual bool truncate();
    virtual bool atEnd();
    virtual Stream* clone();

    // Conveniences over read/write: true only when all `length` bytes moved.
    bool readExactly(void* buffer, int32_t length);
    bool writeAll(const void* buffer, int32_t length);
    // Consumes n bytes by reading them through a scratch buffer, so it works
    // on streams that cannot seek; a negative n seeks backwards instead.
    bool skip(int64_t n);
};
