// ModulePlayer: plays one sub-song of a loaded Module into interleaved
// 16-bit PCM: its Sequencer steps through rows tick by tick and applies the
// effects, and after each tick the player steers the mixer's voices from the
// channels' output and mixes until the next. Borrows the module, which must
// outlive the player and stay unchanged while it plays. Used by OxaMod
// (render, play, info) and the render fuzz target.
//
// Loudness: a channel at full volume passes half its sample level, less for
// more than four channels (two thirds at six, half from eight on), split
// between the sides by a linear pan law; the sum is clipped to 16 bits.
#pragma once

#include <cstdint>

#include "modplayer/Module.h"

namespace mod {

struct PlayerSettings {
    uint32_t sampleRate = 44100;  // output frames per second
    int32_t channels = 2;         // output channels: 1 or 2
    bool interpolate = true;      // linear interpolation; false takes the nearest frame
    bool volumeRamp = true;       // short volume ramps against clicks
};

class ModulePlayer {
public:
    ModulePlayer();
    ModulePlayer(const ModulePlayer&) = delete;
    ModulePlayer& operator=(const ModulePlayer&) = delete;
    ~ModulePlayer();

    // Prepares sub-song `subsong` (an index into module.subsongs) to play
    // from its start. False when there is no such sub-song, the settings are
    // out of range or memory for the channels cannot be had.
    bool start(const Module& module, int32_t subsong, const PlayerSettings& settings);

    // What happens at the song's end (the first time the sequencer would
    // play an order and row it has already played since the start, or when
    // it runs past the song length): looping continues at the restart
    // position, otherwise rendering stops. Off after start.
    void setLooping(bool looping);

    // Writes up to `frames` interleaved frames to `out` and returns how many
    // it wrote: fewer only when the song ends and looping is off, 0 after.
    // Allocates nothing.
    int32_t render(int16_t* out, int32_t frames);

    // True once render has nothing more to give.
    bool ended() const;
    int32_t orderPosition() const;  // where the sequencer stands, for progress
    int32_t row() const;

private:
    struct State;
    State* state = nullptr;
};

// Length in seconds of one pass of sub-song `subsong` from its start to its
// end as rendered at `sampleRate` (ticks are whole frames), found by running
// the sequencer without mixing; -1 when there is no such sub-song.
double subsongDuration(const Module& module, int32_t subsong, uint32_t sampleRate = 44100);

}  // namespace mod
