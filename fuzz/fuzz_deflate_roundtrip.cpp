// fuzz_deflate_roundtrip: deflate the input with a chosen framing, level and
// write size, inflate the result, and demand the input back. The first byte
// chooses framing (low two bits) and level (next four bits), the second the
// write size.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/MemoryStream.h"
#include "core/deflate/DeflateStream.h"
#include "core/deflate/InflateStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    int32_t framing = data[0] & 3;
    int32_t level = 1 + (data[0] >> 2) % 9;
    const int32_t writeSizes[] = {1, 3, 258, 1000, 4096, 65535, 65536, 1 << 20};
    int32_t piece = writeSizes[data[1] & 7];
    data += 2;
    size -= 2;

    MemoryStream packed;
    {
        DeflateStream deflater(&packed, framing);
        deflater.setLevel(level);
        deflater.setGzipName("name");
        for (size_t at = 0; at < size; at += size_t(piece)) {
            int32_t n = int32_t(size - at < size_t(piece) ? size - at : size_t(piece));
            if (!deflater.writeAll(data + at, n))
                std::abort();
        }
        if (!deflater.flush())
            std::abort();
    }
    if (size == 0 && framing >= FramingZlib)
        return 0;  // finished without data: no header, deliberately

    packed.seek(0, SeekStart);
    InflateStream inflater(framing);
    if (!inflater.open(&packed, nullptr, false))
        std::abort();
    uint8_t* back = static_cast<uint8_t*>(std::malloc(size + 1));
    uint32_t count = 0;
    bool ok = inflater.read(back, int32_t(size + 1), count);
    if (!ok || count != size || std::memcmp(back, data, size) != 0)
        std::abort();
    std::free(back);
    return 0;
}
