// SampleFormat: how a loader describes raw sample bytes to SampleData::setData.
// A plain record; the module loaders fill it per sample.
#pragma once

#include <cstdint>

namespace mod {

enum SampleLoopType : int32_t {
    LoopNone = 0,
    LoopForward = 1,
    LoopPingPong = 2,          // both turning frames repeat
    LoopPingPongNoRepeat = 3,  // neither turning frame repeats
};

enum SampleByteOrder : int32_t { LittleEndianSamples = 1, BigEndianSamples = 2 };

struct SampleFormat {
    uint32_t sampleRate = 44100;
    int32_t loopStart = 0;  // frames
    int32_t loopEnd = 0;    // frame after the loop
    int32_t length = 0;     // frames
    uint8_t bitsPerSample = 16;
    uint8_t channels = 1;
    int32_t loopType = LoopNone;
};

}  // namespace mod
