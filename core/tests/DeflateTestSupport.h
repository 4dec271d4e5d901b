// Helpers shared by the deflate and inflate tests: our streams driven over
// memory, the system zlib as the reference peer, generated inputs.
#pragma once

#include <zlib.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "DeflateStream.h"
#include "InflateStream.h"
#include "MemoryStream.h"

using Bytes = std::vector<uint8_t>;

// Compresses `input` with our DeflateStream, writing it in pieces of `piece` bytes.
inline Bytes ourDeflate(const Bytes& input, int32_t framing, int32_t level = 9, size_t piece = 65536) {
    MemoryStream output;
    {
        DeflateStream deflater(&output, framing);
        deflater.setLevel(level);
        for (size_t at = 0; at < input.size(); at += piece) {
            size_t n = std::min(piece, input.size() - at);
            if (!deflater.writeAll(input.data() + at, int32_t(n)))
                return {};
        }
        if (!deflater.flush())
            return {};
    }
    return Bytes(output.data(), output.data() + output.length());
}

// Reads `source` to its end through our InflateStream in pieces of `piece` bytes.
inline bool ourInflate(Stream& source, int32_t framing, Bytes& out, const uint32_t* keys = nullptr,
                       int32_t piece = 65536) {
    InflateStream inflater(framing);
    if (!inflater.open(&source, keys, false))
        return false;
    std::vector<uint8_t> chunk(static_cast<size_t>(piece));
    out.clear();
    for (;;) {
        uint32_t count = 0;
        if (!inflater.read(chunk.data(), piece, count))
            return false;
        if (count == 0)
            return true;
        out.insert(out.end(), chunk.begin(), chunk.begin() + count);
    }
}

inline bool ourInflate(const Bytes& compressed, int32_t framing, Bytes& out, int32_t piece = 65536) {
    MemoryStream source(compressed.data(), int32_t(compressed.size()));
    return ourInflate(source, framing, out, nullptr, piece);
}

// The system zlib's view of a stream: windowBits -15 raw, 15 zlib, 31 gzip.
// Succeeds only when the stream ends exactly at the end of `compressed`.
inline bool zlibInflate(const Bytes& compressed, int windowBits, Bytes& out) {
    z_stream z{};
    if (inflateInit2(&z, windowBits) != Z_OK)
        return false;
    out.clear();
    uint8_t chunk[65536];
    z.next_in = const_cast<Bytes::value_type*>(compressed.data());
    z.avail_in = uInt(compressed.size());
    int status = Z_OK;
    while (status == Z_OK) {
        z.next_out = chunk;
        z.avail_out = sizeof chunk;
        status = inflate(&z, Z_NO_FLUSH);
        out.insert(out.end(), chunk, chunk + (sizeof chunk - z.avail_out));
        if (status == Z_BUF_ERROR && z.avail_in == 0)
            break;
    }
    bool whole = status == Z_STREAM_END && z.avail_in == 0;
    inflateEnd(&z);
    return whole;
}

inline Bytes zlibDeflate(const Bytes& input, int level, int windowBits) {
    z_stream z{};
    deflateInit2(&z, level, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    Bytes out(deflateBound(&z, uLong(input.size())) + 64);
    z.next_in = const_cast<Bytes::value_type*>(input.data());
    z.avail_in = uInt(input.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

// ---- Generated inputs (fixed seeds) ----

inline Bytes randomBytes(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes b(n);
    for (auto& x : b)
        x = uint8_t(random());
    return b;
}

inline Bytes englishLikeText(size_t n, uint32_t seed) {
    static const char* words[] = {"the ", "quick ", "brown ", "fox ", "jumps ", "over ", "lazy ", "dog. ",
                                  "stream ", "window ", "match ", "literal ", "block\n", "Huffman ",
                                  "distance ", "length ", "codec ", "sample "};
    std::mt19937 random(seed);
    Bytes b;
    while (b.size() < n) {
        const char* w = words[random() % (sizeof words / sizeof *words)];
        b.insert(b.end(), w, w + std::char_traits<char>::length(w));
    }
    b.resize(n);
    return b;
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

// A 258-byte pattern repeated: every match is as long as the format allows.
inline Bytes repeatedPattern(size_t n, size_t period) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = uint8_t((i % period) * 7 + 3);
    return b;
}

// 16-bit PCM of a decaying chord with a little noise.
inline Bytes pcmLike(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes b(n & ~size_t(1));
    for (size_t i = 0; i + 1 < b.size(); i += 2) {
        double t = double(i / 2);
        int v = int(4000 * std::sin(t * 0.031) + 2500 * std::sin(t * 0.047) + int(random() % 64) - 32);
        b[i] = uint8_t(v);
        b[i + 1] = uint8_t(v >> 8);
    }
    return b;
}
