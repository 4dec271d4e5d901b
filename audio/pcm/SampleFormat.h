// SampleFormat: the PCM sample format codes and convertSamples, the one
// routine that turns frames of one format and channel count into another.
// Used by the codec, the WAV reader and writer, the sound source and the
// rate converter. All PCM is interleaved frames.
//
// A code's low three bits are the bytes per sample; the value 8 marks
// unsigned storage (8-bit WAV data). UInt8 never reaches convertSamples:
// the WAV reader and writer flip the top bit around it.
#pragma once

#include <cstdint>

enum SampleFormat : uint32_t {
    Int8 = 1,     // signed, full scale 128
    Int16 = 2,    // signed little-endian, full scale 32768: the working format
    Int24 = 3,    // signed little-endian in 3 bytes, full scale 8388608
    Float32 = 4,  // IEEE single, full scale 1.0, never clipped
    UInt8 = 9,    // unsigned, offset 128
};

constexpr uint32_t UnsignedFormatBit = 8;

inline int32_t bytesPerSample(uint32_t format) { return int32_t(format & 7); }
inline int32_t bytesPerFrame(uint32_t format, int32_t channels) { return bytesPerSample(format) * channels; }

// Converts `frames` frames; buffers must not overlap. Cannot fail.
//  - same format and channel count: one block copy;
//  - to mono from two or more channels: 0.5*ch0 + 0.5*ch1, further channels ignored;
//  - otherwise channel by channel: a mono source is duplicated into channel 1,
//    every other extra destination channel is silent, extra source channels dropped.
void convertSamples(uint32_t srcFormat, int32_t srcChannels, uint32_t dstFormat, int32_t dstChannels,
                    const void* src, void* dst, int32_t frames);

// One sample to a float in [-1, 1) by its format's full scale; unknown codes give 0.
float decodeSample(uint32_t format, const uint8_t* sample);
// One float to a sample, rounding half up and clamping integers; unknown codes write nothing.
void encodeSample(uint32_t format, float x, uint8_t* sample);
