// Helpers shared by the deflate, inflate and checksum tests: our streams over
// memory, the system zlib as the reference peer, generated inputs.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "core/MemoryStream.h"
#include "core/deflate/DeflateStream.h"
#include "core/deflate/InflateStream.h"
#include "core/tests/support/TestSupport.h"

using Bytes = std::vector<uint8_t>;

inline Bytes bytesOf(const MemoryStream& stream) { return Bytes(stream.data(), stream.data() + stream.length()); }

// Compresses `input` with our DeflateStream in writes of `piece` bytes; empty
// when a write or the finish fails. `checksum` receives the running checksum.
inline Bytes ourDeflate(const Bytes& input, int32_t framing, int32_t level = 9, size_t piece = 65536,
                        uint32_t* checksum = nullptr) {
    MemoryStream output;
    DeflateStream deflater(&output, framing);
    deflater.setLevel(level);
    for (size_t at = 0; at < input.size(); at += piece)
        if (!deflater.writeAll(input.data() + at, int32_t(std::min(piece, input.size() - at))))
            return {};
    if (!deflater.flush())
        return {};
    if (checksum)
        *checksum = deflater.checksum();
    return bytesOf(output);
}

// Hands out at most `most` bytes per read, as a pipe might.
struct TrickleStream : Stream {
    TrickleStream(const Bytes& b, int32_t most) : bytes(b.data(), int32_t(b.size())), most(most) {}
    bool read(void* buffer, int32_t length, uint32_t& count) override {
        return bytes.read(buffer, std::min(length, most), count);
    }
    MemoryStream bytes;
    int32_t most;
};

// Reads `compressed` to its end through our InflateStream in reads of `piece`
// bytes, from a source that gives at most `most` bytes at a time.
inline bool ourInflate(const Bytes& compressed, int32_t framing, Bytes& out, int32_t piece = 65536,
                       int32_t most = 1 << 30) {
    TrickleStream source(compressed, most);
    InflateStream inflater(framing);
    if (!inflater.open(&source, nullptr, false))
        return false;
    Bytes chunk(static_cast<size_t>(piece));
    out.clear();
    uint32_t count = 0;
    do {
        if (!inflater.read(chunk.data(), piece, count))
            return false;
        out.insert(out.end(), chunk.begin(), chunk.begin() + count);
    } while (count != 0);
    return true;
}

// The system zlib's reading of a stream in our framing. Succeeds only when
// the stream, checksum included, ends exactly at the end of `compressed`.
inline bool zlibInflate(const Bytes& compressed, int32_t framing, Bytes& out) {
    z_stream z{};
    if (inflateInit2(&z, framing == FramingZlib ? 15 : framing == FramingGzip ? 31 : -15) != Z_OK)
        return false;
    z.next_in = const_cast<uint8_t*>(compressed.data());
    z.avail_in = uInt(compressed.size());
    out.clear();
    uint8_t chunk[65536];
    int status = Z_OK;
    while (status == Z_OK) {  // a stream cut short ends in Z_BUF_ERROR
        z.next_out = chunk;
        z.avail_out = sizeof chunk;
        status = inflate(&z, Z_NO_FLUSH);
        out.insert(out.end(), chunk, chunk + (sizeof chunk - z.avail_out));
    }
    bool whole = status == Z_STREAM_END && z.avail_in == 0;
    inflateEnd(&z);
    return whole;
}

// ---- Generated inputs (fixed seeds) ----

inline Bytes englishLikeText(size_t n, uint32_t seed) {
    static const char* words[] = {"the ",    "quick ",  "brown ",    "fox ",    "jumps ", "over ",
                                  "lazy ",   "dog. ",   "stream ",   "window ", "match ", "literal ",
                                  "block\n", "codes ",  "distance ", "length ", "codec ", "sample "};
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < n)
        text += words[random() % std::size(words)];
    return Bytes(text.begin(), text.begin() + long(n));
}

// Runs of one byte with random lengths, some far longer than a match.
inline Bytes byteRuns(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes b;
    while (b.size() < n)
        b.insert(b.end(), 1 + random() % 700, uint8_t(random() % 4));
    b.resize(n);
    return b;
}

// What the codec writes at 5 bits and window 2048: per block and channel a
// 4-byte peak and 2048 codes, noisy codes away from the silence code 16 at
// low indices (never 15 or 17), silence above a cut-off near index 1150.
inline Bytes codecLikePayload(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> spread(0.0, 1.0);
    Bytes b;
    while (b.size() < n) {
        float peak = float(1000 + random() % 30000);
        const uint8_t* peakBytes = reinterpret_cast<const uint8_t*>(&peak);
        b.insert(b.end(), peakBytes, peakBytes + 4);
        int cut = 1050 + int(random() % 200);
        for (int i = 0; i < 2048; ++i) {
            int magnitude = i < cut ? 2 + int(std::abs(spread(random)) * (6.0 - 4.0 * i / cut)) : 0;
            int code = 16 + (random() % 2 ? magnitude : -magnitude);
            b.push_back(uint8_t(std::clamp(code, 1, 31)));
        }
    }
    b.resize(n);
    return b;
}

// A pattern of `period` bytes repeated.
inline Bytes repeatedPattern(size_t n, size_t period) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = uint8_t((i % period) * 7 + 3);
    return b;
}
