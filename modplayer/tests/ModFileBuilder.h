// ModFileBuilder: assembles MOD files in memory for the loader and scan tests,
// field by field, in the tagged or the untagged 15-sample layout.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

struct ModFileBuilder {
    struct Sample {
        char name[23] = {};
        uint16_t lengthWords = 0;
        uint8_t finetune = 0;
        uint8_t volume = 64;
        uint16_t loopStartWords = 0;
        uint16_t loopLengthWords = 1;
    };

    char title[21] = {};
    char tag[5] = "M.K.";
    int channels = 4;
    uint8_t songLength = 1;
    uint8_t orders[128] = {};
    Sample samples[31];
    std::vector<uint8_t> patternBytes;  // grown by setCell as needed

    static void putWord(uint8_t* at, uint16_t value) {
        at[0] = uint8_t(value >> 8);
        at[1] = uint8_t(value);
    }

    int patternCount() const { return 1 + *std::max_element(orders, orders + 128); }

    void setCell(int pattern, int row, int channel, uint16_t period, uint8_t instrument,
                 uint8_t effect, uint8_t parameter) {
        size_t at = (size_t(pattern) * 64 + row) * channels * 4 + channel * 4;
        if (patternBytes.size() < at + 4)
            patternBytes.resize((size_t(pattern) + 1) * 64 * channels * 4);
        patternBytes[at] = uint8_t((instrument & 0xF0) | (period >> 8));
        patternBytes[at + 1] = uint8_t(period);
        patternBytes[at + 2] = uint8_t((instrument << 4) | effect);
        patternBytes[at + 3] = parameter;
    }

    void appendSampleHeaders(std::vector<uint8_t>& out, int slots) const {
        for (int i = 0; i < slots; ++i) {
            uint8_t header[30] = {};
            std::memcpy(header, samples[i].name, 22);
            putWord(header + 22, samples[i].lengthWords);
            header[24] = samples[i].finetune;
            header[25] = samples[i].volume;
            putWord(header + 26, samples[i].loopStartWords);
            putWord(header + 28, samples[i].loopLengthWords);
            out.insert(out.end(), header, header + 30);
        }
    }

    // Patterns (zero-filled past what setCell wrote), then each sample's
    // bytes: sample i holds the byte values i, i+1, i+2, ...
    void appendBody(std::vector<uint8_t>& out, int slots) const {
        std::vector<uint8_t> patterns = patternBytes;
        patterns.resize(size_t(patternCount()) * 64 * channels * 4);
        out.insert(out.end(), patterns.begin(), patterns.end());
        for (int i = 0; i < slots; ++i)
            for (int b = 0; b < samples[i].lengthWords * 2; ++b)
                out.push_back(uint8_t(i + b));
    }

    // The tagged layout, or the untagged one with 15 sample headers.
    std::vector<uint8_t> build(bool tagged = true) const {
        int slots = tagged ? 31 : 15;
        std::vector<uint8_t> out(title, title + 20);
        appendSampleHeaders(out, slots);
        out.push_back(songLength);
        out.push_back(127);
        out.insert(out.end(), orders, orders + 128);
        if (tagged)
            out.insert(out.end(), tag, tag + 4);
        appendBody(out, slots);
        return out;
    }

    std::vector<uint8_t> buildUntagged() const { return build(false); }
};
