// SampleData: shared, reference-counted 16-bit PCM of one module sample with
// its loop. Loaders create it through setData and finalise; modules, voices
// and the mixer hold it through SharedRef.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/RefCounted.h"
#include "modplayer/SampleFormat.h"

namespace mod {

class SampleData final : public RefCounted {
public:
    SampleData() = default;

    // Converts `bytes` to 16-bit native frames. byteOrder 2 means big-endian
    // 16-bit input; signedFlag 0 means unsigned input. At most format.length
    // frames are kept, and length becomes the number actually converted.
    bool setData(const SampleFormat& format, const void* bytes, int32_t byteCount,
                 int32_t byteOrder, int32_t signedFlag);

    // Repairs the loop, unrolls ping-pong loops into forward ones and adds
    // the frame that interpolation reads past the end. Fails only when
    // memory runs out.
    bool finalise();

    // Brings a play position back into the loop (or clamps it to the length
    // without one). Returns the number of whole loop lengths skipped beyond
    // the first, which the mixer uses to count loop passes; without a loop it
    // returns the clamped position.
    uint32_t wrapPosition(uint32_t& position) const;

    bool isLooped() const { return loopType != LoopNone && loopStart < loopEnd; }
    int32_t frameCount() const { return channels ? pcm.count() / channels : 0; }

    uint32_t sampleRate = 44100;
    uint32_t loopStart = 0;
    uint32_t loopEnd = 0;
    uint32_t length = 0;
    uint8_t bitsPerSample = 16;
    uint8_t channels = 1;
    int32_t loopType = LoopNone;
    Array<int16_t> pcm;  // interleaved frames; after finalise one frame longer than played

private:
    bool unrollPingPong();
    bool padForInterpolation();
};

}  // namespace mod
