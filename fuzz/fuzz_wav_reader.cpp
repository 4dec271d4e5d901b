// fuzz_wav_reader: AudioFile open and read on arbitrary bytes, then the same
// bytes through SoundSource with rate conversion. The first three bytes pick
// the requested layout, call size and output rate; the rest is the file.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "audio/AudioFile.h"
#include "audio/SoundSource.h"
#include "audio/pcm/SampleFormat.h"
#include "core/MemoryStream.h"

namespace {

constexpr int32_t MaxCalls = 64;
constexpr int32_t MaxFrames = 4096;
constexpr int32_t MaxChannels = 8;
uint8_t buffer[MaxFrames * MaxChannels * 4];
// Interpolations (and filter taps) per converting call; a few milliseconds
// under the sanitizers.
constexpr int64_t WorkPerCall = int64_t(1) << 20;

void readSome(AudioFile& file, int32_t frames, int32_t channels, uint32_t format) {
    for (int32_t call = 0; call < MaxCalls; ++call) {
        uint32_t got = 0;
        if (!file.read(buffer, frames, channels, got, format) || got == 0)
            return;
    }
}

// Lowering the rate costs K sub-samples per output frame and channel, each
// through 8K filter taps when filtered; any file rate may meet any output
// rate, so each call gets as many frames as a fixed budget of that work allows.
int32_t framesWithinBudget(uint32_t fileRate, uint32_t outputRate, bool filtered, int32_t channels, int32_t frames) {
    const int64_t k = fileRate > outputRate ? (int64_t(fileRate) + outputRate - 1) / outputRate : 1;
    const int64_t perFrame = channels * k * (filtered ? 8 * k + 1 : 1);
    return int32_t(std::clamp<int64_t>(WorkPerCall / perFrame, 1, frames));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3 || size > (1u << 20))
        return 0;
    const uint32_t format = Int8 + (data[0] & 3);
    const int32_t channels = 1 + ((data[0] >> 2) & 7);
    const int32_t steps[] = {1, 3, 64, 505, 1000, 2041, 4096, 4095};
    const int32_t frames = steps[data[1] & 7];
    const uint32_t rates[] = {8000, 11025, 22050, 32000, 44100, 48000, 96000, 192000};
    const uint32_t outputRate = rates[data[2] & 7];
    const bool filtered = data[2] & 8;
    const uint8_t* file = data + 3;
    const int32_t fileBytes = int32_t(size - 3);

    {
        MemoryStream stream(file, fileBytes);
        AudioFile audio;
        if (audio.open(&stream)) {
            readSome(audio, frames, channels, format);
            if (audio.restart())
                readSome(audio, frames, audio.channels() >= 1 && audio.channels() <= MaxChannels ? audio.channels() : 1,
                         Int16);
        }
    }
    {
        MemoryStream stream(file, fileBytes);
        SoundSource source;
        if (source.open(&stream)) {
            source.setLooping(data[2] & 16);
            source.setResamplerOption(filtered ? 1 : 0, 0);
            source.setOutputFormat(format, channels);
            source.setOutputRate(outputRate);
            const int32_t callFrames =
                framesWithinBudget(source.sampleRate(), outputRate, filtered, channels, std::min(frames, 512));
            for (int32_t call = 0; call < 4; ++call) {
                uint32_t got = 0;
                if (!source.read(buffer, callFrames, got))
                    break;
            }
        }
    }
    return 0;
}
