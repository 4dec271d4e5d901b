// SampleFormat: decoding, encoding and conversion of PCM samples.
#include "audio/pcm/SampleFormat.h"

#include <cmath>
#include <cstring>

namespace {

// floor(v + 0.5) in single precision, as every integer encoder rounds.
inline float roundHalfUp(float v) { return std::floor(v + 0.5f); }

// The clamp is done on the float so that huge or infinite inputs stay defined;
// NaN becomes silence.
template <int32_t Low, int32_t High>
inline int32_t clampRounded(float v) {
    if (v != v)
        return 0;
    if (v < float(Low + 1))
        return Low;
    if (v >= float(High + 1))
        return High;
    return int32_t(v);
}

// Fast paths to the working format with the channel count kept. Each gives
// exactly what decodeSample followed by encodeSample gives.

// v * 2^-23 * 32768 + 0.5 is exact in single precision, so rounding half up
// is (v + 128) >> 8; only the top end can need the clamp.
void int24ToInt16(const uint8_t* in, uint8_t* out, int64_t samples) {
    for (int64_t i = 0; i < samples; ++i, in += 3, out += 2) {
        const int32_t v = int32_t((uint32_t(in[0]) << 8) | (uint32_t(in[1]) << 16) | (uint32_t(in[2]) << 24)) >> 8;
        int32_t n = (v + 128) >> 8;
        n = n > 32767 ? 32767 : n;
        out[0] = uint8_t(n);
        out[1] = uint8_t(n >> 8);
    }
}

// The same single-precision steps as encodeSample; the floor is a truncation
// corrected for negative fractions, valid inside the clamp range.
void float32ToInt16(const uint8_t* in, uint8_t* out, int64_t samples) {
    for (int64_t i = 0; i < samples; ++i, in += 4, out += 2) {
        float x;
        std::memcpy(&x, in, 4);
        const float scaled = x * 32768.0f;
        const float y = scaled + 0.5f;
        int32_t n;
        if (y >= -32767.0f && y < 32768.0f) {
            const int32_t truncated = int32_t(y);
            n = truncated - (float(truncated) > y ? 1 : 0);
        } else {
            n = y < -32767.0f ? -32768 : y >= 32768.0f ? 32767 : 0;  // NaN is silence
        }
        out[0] = uint8_t(n);
        out[1] = uint8_t(n >> 8);
    }
}

}  // namespace

float decodeSample(uint32_t format, const uint8_t* sample) {
    switch (format & 7) {
    case 1:
        return float(int8_t(sample[0])) * 0.0078125f;
    case 2:
        return float(int16_t(uint16_t(sample[0] | (sample[1] << 8)))) * 3.0517578e-5f;
    case 3: {
        int32_t v = sample[0] | (sample[1] << 8) | (sample[2] << 16);
        if (v >= 0x800000)
            v -= 0x1000000;
        return float(v) * 1.1920929e-7f;
    }
    case 4: {
        float x;
        std::memcpy(&x, sample, 4);
        return x;
    }
    default:
        return 0.0f;
    }
}

void encodeSample(uint32_t format, float x, uint8_t* sample) {
    switch (format & 7) {
    case 1:
        sample[0] = uint8_t(clampRounded<-128, 127>(roundHalfUp(x * 128.0f)));
        break;
    case 2: {
        int32_t n = clampRounded<-32768, 32767>(roundHalfUp(x * 32768.0f));
        sample[0] = uint8_t(n);
        sample[1] = uint8_t(n >> 8);
        break;
    }
    case 3: {
        int32_t n = clampRounded<-8388608, 0x7FFFFF>(roundHalfUp(x * 8388608.0f));
        sample[0] = uint8_t(n);
        sample[1] = uint8_t(n >> 8);
        sample[2] = uint8_t(n >> 16);
        break;
    }
    case 4:
        std::memcpy(sample, &x, 4);
        break;
    default:
        break;
    }
}

void convertSamples(uint32_t srcFormat, int32_t srcChannels, uint32_t dstFormat, int32_t dstChannels,
                    const void* src, void* dst, int32_t frames) {
    if (frames < 1 || srcChannels < 1 || dstChannels < 1)
        return;
    const uint8_t* in = static_cast<const uint8_t*>(src);
    uint8_t* out = static_cast<uint8_t*>(dst);
    const int32_t inSize = bytesPerSample(srcFormat);
    const int32_t outSize = bytesPerSample(dstFormat);

    if (srcFormat == dstFormat && srcChannels == dstChannels) {
        std::memcpy(out, in, size_t(frames) * size_t(srcChannels) * size_t(inSize));
        return;
    }

    if (srcChannels == dstChannels && outSize == 2 && (inSize == 3 || inSize == 4)) {
        const int64_t samples = int64_t(frames) * srcChannels;
        if (inSize == 3)
            int24ToInt16(in, out, samples);
        else
            float32ToInt16(in, out, samples);
        return;
    }

    if (dstChannels == 1 && srcChannels >= 2) {
        for (int32_t f = 0; f < frames; ++f, in += srcChannels * inSize, out += outSize) {
            float x = 0.5f * decodeSample(srcFormat, in) + 0.5f * decodeSample(srcFormat, in + inSize);
            encodeSample(dstFormat, x, out);
        }
        return;
    }

    const int32_t shared = srcChannels < dstChannels ? srcChannels : dstChannels;
    const bool sameFormat = srcFormat == dstFormat;
    for (int32_t f = 0; f < frames; ++f, in += srcChannels * inSize, out += dstChannels * outSize) {
        for (int32_t c = 0; c < shared; ++c) {
            if (sameFormat)
                std::memcpy(out + c * outSize, in + c * inSize, size_t(inSize));
            else
                encodeSample(dstFormat, decodeSample(srcFormat, in + c * inSize), out + c * outSize);
        }
        for (int32_t c = shared; c < dstChannels; ++c) {
            if (c == 1 && shared == 1)
                std::memcpy(out + outSize, out, size_t(outSize));  // mono duplicated to the right
            else
                std::memset(out + c * outSize, 0, size_t(outSize));
        }
    }
}
