// Int16Frames: the decoder's last step, from channel rows of floats to
// interleaved Int16 frames, each sample floor(32768 s + 0.5) clamped to
// -32768..32767 (NaN gives 0). Used by OxaCodec::decode, which keeps a
// block as one row of floats per channel.
#pragma once

#include <cstdint>

// Writes `frames` frames of `outChannels` samples to `out`. Channel c below
// `rowCount` is read from rows + c * rowStride; the further channels are
// silent.
void writeInt16Frames(const float* rows, int64_t rowStride, int32_t rowCount, int32_t outChannels, int32_t frames,
                      uint8_t* out);
