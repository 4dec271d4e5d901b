// fuzz_inflate: any bytes through InflateStream. The first byte chooses the
// framing (low two bits), whether ZIP decryption is on (bit 2, keys from the
// next twelve bytes) and the read size (high bits); the rest is the stream.
// Output is capped so that highly compressed inputs stay quick.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/MemoryStream.h"
#include "core/deflate/InflateStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    uint8_t control = data[0];
    ++data;
    --size;
    uint32_t keys[3];
    bool encrypted = control & 4;
    if (encrypted) {
        if (size < sizeof keys)
            return 0;
        std::memcpy(keys, data, sizeof keys);
        data += sizeof keys;
        size -= sizeof keys;
    }
    MemoryStream source(data, int32_t(size));
    InflateStream inflater(control & 3);
    if (!inflater.open(&source, encrypted ? keys : nullptr, false))
        return 0;
    static uint8_t out[70000];
    const int32_t readSizes[] = {1, 7, 300, 4096, 32768, 65536, 69999, 70000};
    int32_t piece = readSizes[(control >> 3) & 7];
    uint32_t total = 0;
    for (uint32_t count = 0; total < (8u << 20); total += count)
        if (!inflater.read(out, piece, count) || count == 0)
            break;
    return 0;
}
