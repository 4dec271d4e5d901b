// FileStream: a Stream over a POSIX file descriptor.
// Open-mode bits: 1 read, 2 write, 4 create, 8 truncate, 16 append.
// Mode 1 reads an existing file; mode 14 writes one, creating or emptying it.
// The share value is only stored and handed on by clone().
#pragma once

#include <cstdint>

#include "core/Stream.h"
#include "core/String.h"

enum FileMode : uint32_t {
    FileRead = 1,
    FileWrite = 2,
    FileCreate = 4,
    FileTruncate = 8,
    FileAppend = 16,
};

class FileStream final : public Stream {
public:
    FileStream() = default;
    FileStream(const String& path, uint32_t mode, uint32_t share);
    FileStream(const String& path, const char* modeString);  // C-style "r", "w", "a", "+", "x"
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;
    ~FileStream() override;

    static uint32_t parseModeString(const char* modeString);

    bool read(void* buffer, int32_t length, uint32_t& count) override;
    bool write(const void* buffer, int32_t length, uint32_t& count) override;
    bool close() override;
    uint32_t flags() override { return capabilities; }
    bool seek(int64_t offset, int32_t origin) override;
    int64_t tell() override;
    bool flush() override;
    bool truncate() override;
    Stream* clone() override;
    virtual bool open(const String& path, uint32_t mode, uint32_t share);

    bool isOpen() const { return descriptorPlusOne != 0; }
    const String& path() const { return filePath; }

private:
    int descriptor() const { return descriptorPlusOne - 1; }

    int descriptorPlusOne = 0;  // 0 while closed
    String filePath;
    uint32_t capabilities = 0;
    uint32_t openMode = 0;
    uint32_t shareMode = 0;
};
