// MemoryStream: a readable, writable, seekable stream over a growable
// byte buffer. Used by the fuzz targets and tests to feed parsers from
// memory, and by anything that wants a stream without a file.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/Stream.h"

class MemoryStream final : public Stream {
public:
    MemoryStream() = default;
    MemoryStream(const void* bytes, int32_t length);  // copies the bytes

    bool read(void* buffer, int32_t length, uint32_t& count) override;
    bool write(const void* buffer, int32_t length, uint32_t& count) override;
    uint32_t flags() override;
    bool seek(int64_t offset, int32_t origin) override;
    int64_t tell() override { return seekable ? position : -1; }
    int64_t size() override { return seekable ? bytes.count() : -1; }
    bool truncate() override;

    const uint8_t* data() const { return bytes.data(); }
    int32_t length() const { return bytes.count(); }

    // Test hooks: make the next operations fail or come up short.
    void setReadLimit(int64_t limit) { readLimit = limit; }    // reads stop at this offset
    void setWriteLimit(int64_t limit) { writeLimit = limit; }  // writes fail beyond it
    void setSeekable(bool on) { seekable = on; }

private:
    Array<uint8_t> bytes;
    int64_t position = 0;
    int64_t readLimit = -1;
    int64_t writeLimit = -1;
    bool seekable = true;
};
