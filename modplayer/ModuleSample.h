// ModuleSample: one entry of a module's sample list: name, shared PCM and the
// per-sample playback settings. Filled by the loaders, read by the sequencer.
#pragma once

#include <cstdint>

#include "core/RefCounted.h"
#include "core/String.h"
#include "modplayer/SampleData.h"

namespace mod {

struct ModuleSample {
    String name;
    SharedRef<SampleData> data;  // may be empty
    int32_t extraA = -1;         // S3M/XM loader setting; -1 when unset
    uint8_t volume = 0;          // default volume 0..255
    int8_t finetune = 0;         // 1/128 semitone steps
    int16_t extraB = -1;         // S3M/XM loader setting; -1 when unset
    uint32_t reserved = 0;

    // The default volume on the effects' scale, 0..64.
    int32_t effectVolume() const { return (volume * 64 + 127) / 255; }
};

}  // namespace mod
