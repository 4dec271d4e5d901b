// WavBuilder: assembles RIFF/WAVE bytes chunk by chunk for the audio and
// command tests, including the malformed kinds a reader must survive; plus
// the reading and converting helpers the audio tests share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "audio/AudioFile.h"
#include "audio/RateConverter.h"
#include "core/MemoryStream.h"
#include "core/tests/support/TestSupport.h"

using Bytes = std::vector<uint8_t>;

inline void putLe(Bytes& out, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(uint8_t(value >> (8 * i)));
}

class WavBuilder {
public:
    // A chunk header claiming `size` bytes whatever follows.
    WavBuilder& header(const std::string& id, uint32_t size) {
        body.insert(body.end(), id.begin(), id.end());
        putLe(body, size, 4);
        return *this;
    }
    WavBuilder& chunk(const std::string& id, const Bytes& content) {
        return header(id, uint32_t(content.size())).raw(content);
    }
    WavBuilder& data(const Bytes& samples) { return chunk("data", samples); }
    // `extra` follows the 16 bytes, preceded by its size.
    WavBuilder& fmt(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits, uint16_t blockAlign = 0,
                    const Bytes& extra = {}) {
        if (blockAlign == 0)
            blockAlign = uint16_t(bits / 8 * channels);
        Bytes record;
        putLe(record, tag, 2), putLe(record, channels, 2), putLe(record, rate, 4);
        putLe(record, rate * blockAlign, 4), putLe(record, blockAlign, 2), putLe(record, bits, 2);
        if (!extra.empty())
            putLe(record, uint32_t(extra.size()), 2);
        record.insert(record.end(), extra.begin(), extra.end());
        return chunk("fmt ", record);
    }
    WavBuilder& raw(const Bytes& bytes) {
        body.insert(body.end(), bytes.begin(), bytes.end());
        return *this;
    }
    // The whole file; the RIFF size is exact unless given.
    Bytes bytes(int64_t riffSize = -1) const {
        Bytes out = {'R', 'I', 'F', 'F'};
        putLe(out, riffSize >= 0 ? uint32_t(riffSize) : uint32_t(body.size() + 4), 4);
        out.insert(out.end(), {'W', 'A', 'V', 'E'});
        out.insert(out.end(), body.begin(), body.end());
        return out;
    }

private:
    Bytes body;
};

// A canonical 16-bit PCM file holding `samples`.
inline Bytes pcm16Wav(const std::vector<int16_t>& samples, uint32_t rate, uint16_t channels) {
    Bytes data;
    for (int16_t sample : samples)
        putLe(data, uint16_t(sample), 2);
    return WavBuilder().fmt(1, channels, rate, 16).data(data).bytes();
}

// A file of type File (AudioFile or one built on it) opened on in-memory bytes.
template <typename File>
struct OpenedWav {
    explicit OpenedWav(const Bytes& bytes) : stream(bytes.data(), int32_t(bytes.size())) { ok = file.open(&stream); }
    MemoryStream stream;
    File file;
    bool ok = false;
};

// Reads a whole opened file in calls of `step` frames; false when a call fails.
// `calls` counts the calls made, the failing one included.
inline bool readAll(AudioFile& file, int32_t step, int32_t channels, uint32_t format, Bytes& out,
                    int* calls = nullptr) {
    const size_t frameBytes = size_t(channels) * (format & 7);
    Bytes buffer(size_t(step) * frameBytes);
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

// Opens `wav` and reads all of it; `succeeded` tells whether that worked.
inline Bytes readAllOf(const Bytes& wav, int32_t step, int32_t channels, uint32_t format, bool* succeeded = nullptr) {
    OpenedWav<AudioFile> opened(wav);
    Bytes out;
    const bool ok = opened.ok && readAll(opened.file, step, channels, format, out);
    if (succeeded)
        *succeeded = ok;
    return out;
}

// Feeds `input` through the converter asking `perCall` output frames at a
// time, as SoundSource does, until `outputFrames` came out.
inline Bytes convertInCalls(RateConverter& converter, const Bytes& input, int32_t frameBytes, int32_t outputFrames,
                            int32_t perCall) {
    Bytes output;
    size_t used = 0;
    for (int32_t produced = 0; produced < outputFrames;) {
        const int32_t n = std::min(perCall, outputFrames - produced);
        const int32_t need = converter.inputFramesFor(n);
        uint8_t* in = static_cast<uint8_t*>(converter.inputBuffer(need));
        EXPECT_NE(in, nullptr);
        for (int64_t i = 0; i < int64_t(need) * frameBytes; ++i, ++used)
            in[i] = used < input.size() ? input[used] : 0;
        Bytes chunk(size_t(n) * frameBytes);
        converter.process(chunk.data(), n);
        output.insert(output.end(), chunk.begin(), chunk.end());
        produced += n;
    }
    return output;
}
