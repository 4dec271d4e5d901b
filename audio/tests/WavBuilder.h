// WavBuilder: assembles RIFF/WAVE bytes chunk by chunk for the audio tests,
// including the malformed kinds a reader must survive.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AudioFile.h"
#include "MemoryStream.h"

class WavBuilder {
public:
    WavBuilder& chunk(const std::string& id, const std::vector<uint8_t>& content) {
        put(id);
        putLe(uint32_t(content.size()), 4);
        body.insert(body.end(), content.begin(), content.end());
        return *this;
    }
    // A chunk header claiming `size` bytes whatever follows.
    WavBuilder& header(const std::string& id, uint32_t size) {
        put(id);
        putLe(size, 4);
        return *this;
    }
    WavBuilder& fmt(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits, uint16_t blockAlign = 0,
                    const std::vector<uint8_t>& extra = {}, int32_t extraSizeField = -1) {
        if (blockAlign == 0)
            blockAlign = uint16_t(bits / 8 * channels);
        std::vector<uint8_t> record;
        auto le = [&](uint32_t v, int n) {
            for (int i = 0; i < n; ++i)
                record.push_back(uint8_t(v >> (8 * i)));
        };
        le(tag, 2), le(channels, 2), le(rate, 4), le(rate * blockAlign, 4), le(blockAlign, 2), le(bits, 2);
        if (extraSizeField >= 0 || !extra.empty())
            le(extraSizeField >= 0 ? uint32_t(extraSizeField) : uint32_t(extra.size()), 2);
        record.insert(record.end(), extra.begin(), extra.end());
        return chunk("fmt ", record);
    }
    WavBuilder& data(const std::vector<uint8_t>& samples) { return chunk("data", samples); }
    WavBuilder& silence(uint32_t frames) {
        return chunk("slnt", {uint8_t(frames), uint8_t(frames >> 8), uint8_t(frames >> 16), uint8_t(frames >> 24)});
    }
    WavBuilder& raw(const std::vector<uint8_t>& bytes) {
        body.insert(body.end(), bytes.begin(), bytes.end());
        return *this;
    }

    // The whole file; the RIFF size is exact unless given.
    std::vector<uint8_t> bytes(int64_t riffSize = -1) const {
        std::vector<uint8_t> out = {'R', 'I', 'F', 'F'};
        const uint32_t size = riffSize >= 0 ? uint32_t(riffSize) : uint32_t(body.size() + 4);
        for (int i = 0; i < 4; ++i)
            out.push_back(uint8_t(size >> (8 * i)));
        out.insert(out.end(), {'W', 'A', 'V', 'E'});
        out.insert(out.end(), body.begin(), body.end());
        return out;
    }

private:
    void put(const std::string& id) { body.insert(body.end(), id.begin(), id.end()); }
    void putLe(uint32_t v, int n) {
        for (int i = 0; i < n; ++i)
            body.push_back(uint8_t(v >> (8 * i)));
    }
    std::vector<uint8_t> body;
};

// A file of type File (AudioFile or one built on it) opened on in-memory bytes.
template <typename File>
struct OpenedWav {
    explicit OpenedWav(const std::vector<uint8_t>& bytes) : stream(bytes.data(), int32_t(bytes.size())) {
        ok = file.open(&stream);
    }
    MemoryStream stream;
    File file;
    bool ok = false;
};

// Reads a whole opened file in calls of `step` frames; false when a call fails.
// `calls` counts the calls made, the failing one included.
inline bool readAll(AudioFile& file, int32_t step, int32_t channels, uint32_t format, std::vector<uint8_t>& out,
                    int* calls = nullptr) {
    const size_t frameBytes = size_t(channels) * (format & 7);
    std::vector<uint8_t> buffer(size_t(step) * frameBytes);
    for (int n = 1;; ++n) {
        if (calls)
            *calls = n;
        uint32_t got = 0;
        if (!file.read(buffer.data(), step, channels, got, format))
            return false;
        out.insert(out.end(), buffer.begin(), buffer.begin() + got * frameBytes);
        if (got == 0)
            return true;
    }
}

inline std::vector<uint8_t> randomBytes(size_t n, uint32_t seed) {
    std::vector<uint8_t> bytes(n);
    for (auto& b : bytes) {
        seed = seed * 1664525u + 1013904223u;
        b = uint8_t(seed >> 24);
    }
    return bytes;
}
