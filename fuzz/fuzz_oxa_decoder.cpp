// fuzz_oxa_decoder: OxaCodec's decoder on arbitrary bytes. The first bytes
// of the input pick how the stream is built: taken verbatim, or a valid
// header with any window size and channel count in front of the rest, either
// raw or deflated by our own DeflateStream (so that whole blocks with any
// codes and peaks reach the transform) and possibly cut short. The stream is
// then decoded in varied pieces, layouts and formats, and restarted once.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "audio/pcm/SampleFormat.h"
#include "codec/OxaCodec.h"
#include "codec/OxaFormat.h"
#include "core/MemoryStream.h"
#include "core/deflate/DeflateStream.h"

namespace {

constexpr uint32_t maxBlockSamples = 1u << 17;  // channels x window of the headers made here

struct Reader {
    const uint8_t* data;
    size_t size;
    uint8_t next() {
        if (size == 0)
            return 0;
        --size;
        return *data++;
    }
};

void buildStream(Reader& in, MemoryStream& stream) {
    const uint8_t mode = in.next() % 4;
    if (mode == 0) {  // verbatim
        uint32_t count = 0;
        stream.write(in.data, int32_t(in.size), count);
        return;
    }
    const uint32_t rate = 8000 + in.next() * 100u;
    uint32_t channels = 1 + in.next() % 255;
    const uint8_t qbits = in.next();
    const uint32_t window = 1u << (in.next() % 16);
    // Wide blocks of many channels take the same paths as narrower ones, and
    // their buffers (up to 100 MB) would set the pace of the whole run.
    channels = std::min(channels, std::max(1u, maxBlockSamples / window));
    OxaHeader header = makeOxaHeader(rate, channels, qbits, window);
    header.flags = in.next();
    header.blockCount = in.next() % 4 == 0 ? 0 : 1 + in.next();
    writeOxaHeader(stream, header);
    const int32_t cut = in.next();
    if (mode == 1) {  // raw payload: mostly a broken DEFLATE stream
        uint32_t count = 0;
        stream.write(in.data, int32_t(in.size), count);
        return;
    }
    DeflateStream deflate(&stream, OxaDeflateFraming);
    deflate.writeAll(in.data, int32_t(in.size));
    deflate.flush();
    if (mode == 3 && stream.length() > OxaHeaderSize) {  // cut inside the payload
        stream.seek(OxaHeaderSize + int64_t(cut) * (stream.length() - OxaHeaderSize) / 256, SeekStart);
        stream.truncate();
    }
}

void decodeEverything(OxaCodec& codec, Reader& in) {
    static uint8_t buffer[4096 * 8 * 4];
    const uint32_t formats[] = {Int16, Float32, Int8, Int24, 0, 5};
    const int32_t channels = 1 + in.next() % 8;
    const uint32_t format = formats[in.next() % 6];
    const int32_t frames = 1 + in.next() * 16;
    uint32_t delivered = 0;
    do {
        if (!codec.decode(buffer, frames, channels, format, delivered))
            return;
    } while (delivered > 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1 << 20))
        return 0;
    Reader in{data, size};
    uint8_t choices[4];
    for (uint8_t& choice : choices)
        choice = in.next();
    MemoryStream stream;
    buildStream(in, stream);
    stream.seek(0, SeekStart);

    OxaCodec codec;
    if (!codec.openDecoder(&stream))
        return 0;
    Reader picks{choices, sizeof choices};
    decodeEverything(codec, picks);
    if (codec.restart()) {
        Reader again{choices + 2, 2};
        decodeEverything(codec, again);
    }
    codec.close();
    return 0;
}
