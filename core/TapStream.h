// TapStream: forwards to an inner stream and reports every block read to a
// callback, which may change the bytes in place (the inflate stream's
// decryption hooks in here). Borrows the inner stream.
#pragma once

#include <cstdint>

#include "core/Delegate.h"
#include "core/Stream.h"

class TapStream final : public Stream {
public:
    using Callback = Delegate<void(void* buffer, uint32_t count)>;

    TapStream() = default;
    TapStream(const TapStream&) = delete;
    TapStream& operator=(const TapStream&) = delete;

    void setInner(Stream* stream) { inner = stream; }  // borrowed; must outlive us
    void setCallback(Callback callback) { onRead = callback; }

    bool read(void* buffer, int32_t length, uint32_t& count) override;
    // Passes the data on in pieces of at most 8 bytes, deliberately.
    bool write(const void* buffer, int32_t length, uint32_t& count) override;
    uint32_t flags() override;
    bool seek(int64_t offset, int32_t origin) override;
    int64_t tell() override;
    bool flush() override;
    bool atEnd() override;

private:
    Stream* inner = nullptr;
    Callback onRead;
};
