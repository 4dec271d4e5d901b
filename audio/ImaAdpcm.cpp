// ImaAdpcm: nibble and block-body decoding.
#include "audio/ImaAdpcm.h"

namespace {

const int16_t stepTable[89] = {
    7,     8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,    28,
    31,    34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,   118,
    130,   143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,   494,
    544,   598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,
    2272,  2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845,  8630,
    9493,  10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

const int8_t indexTable[16] = {-1, -1, -1, -1, 2, 4, 6, 8, -1, -1, -1, -1, 2, 4, 6, 8};

}  // namespace

int16_t decodeImaNibble(ImaAdpcmChannel& channel, uint32_t nibble) {
    const int32_t step = stepTable[channel.stepIndex];
    int32_t difference = step >> 3;
    if (nibble & 4)
        difference += step;
    if (nibble & 2)
        difference += step >> 1;
    if (nibble & 1)
        difference += step >> 2;
    if (nibble & 8)
        difference = -difference;
    int32_t predictor = channel.predictor + difference;
    predictor = predictor < -32768 ? -32768 : predictor > 32767 ? 32767 : predictor;
    channel.predictor = predictor;
    int32_t index = channel.stepIndex + indexTable[nibble & 15];
    channel.stepIndex = int16_t(index < 0 ? 0 : index > 88 ? 88 : index);
    return int16_t(predictor);
}

void decodeImaBlockWords(const uint8_t* words, int32_t wordCount, ImaAdpcmChannel* channels,
                         int32_t channelCount, int16_t* samples, int32_t frameCount) {
    for (int32_t word = 0; word < wordCount; ++word, words += 4) {
        const int32_t channel = word % channelCount;
        const int32_t firstFrame = 1 + 8 * (word / channelCount);
        ImaAdpcmChannel& state = channels[channel];
        for (int32_t i = 0; i < 8; ++i) {
            const uint32_t byte = words[i >> 1];
            const int16_t sample = decodeImaNibble(state, (i & 1) ? byte >> 4 : byte & 15);
            const int32_t frame = firstFrame + i;
            if (frame < frameCount)
                samples[frame * channelCount + channel] = sample;
        }
    }
}
