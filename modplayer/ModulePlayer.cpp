// ModulePlayer: placeholder until the sequencer lands. It accepts any
// sub-song, renders one second of silence and ends.
#include "modplayer/ModulePlayer.h"

#include <algorithm>
#include <cstring>

namespace mod {

struct ModulePlayer::State {
    int64_t framesLeft = 0;
    int32_t channels = 2;
    bool looping = false;
};

ModulePlayer::ModulePlayer() = default;

ModulePlayer::~ModulePlayer() { delete state; }

bool ModulePlayer::start(const Module& module, int32_t subsong, const PlayerSettings& settings) {
    if (subsong < 0 || subsong >= module.subsongs.count() || settings.channels < 1 || settings.channels > 2)
        return false;
    delete state;
    state = new State;
    state->framesLeft = settings.sampleRate;
    state->channels = settings.channels;
    return true;
}

void ModulePlayer::setLooping(bool looping) {
    if (state)
        state->looping = looping;
}

int32_t ModulePlayer::render(int16_t* out, int32_t frames) {
    if (!state)
        return 0;
    int32_t count = state->looping ? frames : int32_t(std::min<int64_t>(frames, state->framesLeft));
    std::memset(out, 0, size_t(count) * state->channels * sizeof(int16_t));
    state->framesLeft -= count;
    return count;
}

bool ModulePlayer::ended() const { return !state || (!state->looping && state->framesLeft <= 0); }
int32_t ModulePlayer::orderPosition() const { return 0; }
int32_t ModulePlayer::row() const { return 0; }

double subsongDuration(const Module& module, int32_t subsong) {
    return subsong >= 0 && subsong < module.subsongs.count() ? 1.0 : -1.0;
}

}  // namespace mod
