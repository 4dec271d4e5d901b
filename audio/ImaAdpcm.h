// ImaAdpcm: the published IMA ADPCM nibble decoder and the word layout of a
// WAV ADPCM block. Used by AudioFile's reader.
#pragma once

#include <cstdint>

struct ImaAdpcmChannel {
    int32_t predictor = 0;  // the last decoded sample
    int16_t stepIndex = 0;  // 0 ... 88
};

// One 4-bit code to the next sample, with the published bitwise step sum.
int16_t decodeImaNibble(ImaAdpcmChannel& channel, uint32_t nibble);

// Decodes the body of a block (after the per-channel headers): 4-byte words
// interleaved by channel, each giving 8 frames of its channel, low nibble
// first. The k-th word of a channel fills frames 1 + 8k ... 8 + 8k of
// `samples` (interleaved, `frameCount` frames); frames at or beyond
// `frameCount` are not written.
void decodeImaBlockWords(const uint8_t* words, int32_t wordCount, ImaAdpcmChannel* channels,
                         int32_t channelCount, int16_t* samples, int32_t frameCount);
