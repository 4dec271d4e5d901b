// fuzz_render_module: any bytes through automatic format detection and, when
// a loader accepts them, up to three seconds of sub-song 0 rendered at 8 kHz,
// plus its duration scan. The output settings (channels, interpolation,
// ramping) come from the input's length so that every mixing path is fed.
// Bad modules must render or stop cleanly: no crash, no hang, no growth.
#include <cstddef>
#include <cstdint>

#include "core/MemoryStream.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/ModulePlayer.h"

namespace {

constexpr uint32_t Rate = 8000;
constexpr int32_t MaxFrames = 3 * Rate;
constexpr int32_t BlockFrames = 512;

void render(const mod::Module& module, size_t size) {
    mod::PlayerSettings settings;
    settings.sampleRate = Rate;
    settings.channels = 1 + int32_t(size & 1);
    settings.interpolate = (size & 2) != 0;
    settings.volumeRamp = (size & 4) != 0;
    mod::ModulePlayer player;
    if (!player.start(module, 0, settings))
        return;
    player.setLooping((size & 8) != 0);  // a looping song must wrap cleanly too
    int16_t block[BlockFrames * 2];
    for (int32_t frames = 0; frames < MaxFrames;) {
        int32_t rendered = player.render(block, BlockFrames);
        if (rendered <= 0)
            break;
        frames += rendered;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20))
        return 0;
    MemoryStream stream(data, int32_t(size));
    mod::Module module;
    if (!mod::loadModule(module, stream, mod::FormatAutomatic, 0))
        return 0;
    mod::subsongDuration(module, 0);
    render(module, size);
    return 0;
}
