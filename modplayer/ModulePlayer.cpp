// ModulePlayer: ticks from the Sequencer, voices and mixing between them.
#include "modplayer/ModulePlayer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "modplayer/Mixer.h"
#include "modplayer/Sequencer.h"
#include "modplayer/Voice.h"

namespace mod {

namespace {

constexpr int32_t chunkFrames = 1024;  // frames mixed per pass over the voices

// Gain of a channel at full volume, before panning: half the sample level
// for up to four channels, then falling to a half of that from eight on
// (measured against the reference players: a lone square wave on channel 1
// of 4, 6 and 8 channel modules).
int32_t channelGain(int32_t channels) {
    return Voice::unityGain / 2 * 4 / std::clamp(channels, 4, 8);
}

bool settingsValid(const PlayerSettings& settings) {
    return (settings.channels == 1 || settings.channels == 2) && settings.sampleRate >= 1000 &&
           settings.sampleRate <= 768000;
}

}  // namespace

struct ModulePlayer::State {
    Sequencer sequencer;
    // Voice 2i plays channel i; voice 2i + 1 fades out the note it replaced.
    Array<Voice> voices;
    Array<int32_t> accumulator;
    PlayerSettings settings;
    int32_t gain = 0;
    // XM pans by FT2's square-root law: side gain sqrt(share / 256), here
    // scaled by 1 / sqrt(2) so that the centre stays as loud as the linear
    // law's. Entry n is the gain (of 65536) of a side whose share is n.
    bool squareRootPanning = false;
    int32_t panGain[257] = {};
    int32_t rampFrames = 0;
    int32_t framesLeftInTick = 0;
    int32_t tickFrames = 0;

    void startTick();
    void steerVoice(const ChannelOutput& output, Voice& voice, Voice& fade);
    void mix(int16_t* out, int32_t frames);
};

void ModulePlayer::State::startTick() {
    tickFrames = framesLeftInTick = Sequencer::framesPerTick(settings.sampleRate, sequencer.tempo());
    for (int32_t i = 0; i < sequencer.channelCount(); ++i)
        steerVoice(sequencer.channel(i).output, voices[2 * i], voices[2 * i + 1]);
}

void ModulePlayer::State::steerVoice(const ChannelOutput& output, Voice& voice, Voice& fade) {
    bool ramp = settings.volumeRamp;
    int32_t rampLength = ramp ? std::min(rampFrames, std::max(tickFrames, 1)) : 0;
    // An envelope's steps glide across the tick, as the reference player
    // renders them (measured on an envelope of steep steps).
    if (ramp && output.smooth && !output.trigger)
        rampLength = std::max(tickFrames, 1);
    if (output.trigger || output.stop) {
        if (ramp && voice.active) {  // the old note fades out beside the new one
            fade = voice;
            fade.stopAfterRamp = true;
            fade.steer(0, 0, rampFrames);
        }
        voice.active = false;
        voice.level[0] = voice.level[1] = 0;
    }
    if (output.trigger && output.sample)
        voice.start(*output.sample, output.startFrame);
    if (!voice.active)
        return;
    if (output.swap) {
        voice.hasQueued = true;
        voice.queued = output.sample;
    }
    if (output.switchNow && output.sample)
        voice.switchTo(*output.sample);
    voice.step = (output.frequency << 16) / settings.sampleRate;
    int32_t level = int32_t((int64_t(gain) * output.volume) >> 16);
    if (settings.channels == 1)
        return voice.steer(level, 0, rampLength);
    if (squareRootPanning)
        return voice.steer(int32_t(int64_t(level) * panGain[256 - output.panning] >> 16),
                           int32_t(int64_t(level) * panGain[output.panning] >> 16), rampLength);
    voice.steer(level * (255 - output.panning) / 255, level * output.panning / 255, rampLength);
}

void ModulePlayer::State::mix(int16_t* out, int32_t frames) {
    int32_t samples = frames * settings.channels;
    std::memset(accumulator.data(), 0, sizeof(int32_t) * size_t(samples));
    for (Voice& voice : voices)
        if (voice.active)
            mixVoice(voice, accumulator.data(), frames, settings.channels, settings.interpolate);
    clipToInt16(accumulator.data(), out, samples);
}

ModulePlayer::ModulePlayer() = default;

ModulePlayer::~ModulePlayer() { delete state; }

bool ModulePlayer::start(const Module& module, int32_t subsong, const PlayerSettings& settings) {
    delete state;
    state = nullptr;
    if (!settingsValid(settings))
        return false;
    State* fresh = new (std::nothrow) State;
    if (!fresh)
        return false;
    if (!fresh->sequencer.start(module, subsong) || !fresh->voices.resize(2 * module.channelCount) ||
        !fresh->accumulator.resize(chunkFrames * settings.channels)) {
        delete fresh;
        return false;
    }
    fresh->settings = settings;
    fresh->gain = channelGain(module.channelCount);
    fresh->squareRootPanning = module.formatType == FormatXm;
    for (int32_t share = 0; share <= 256; ++share)
        fresh->panGain[share] = int32_t(std::lround(65536.0 * std::sqrt(share / 512.0)));
    // About 1.4 ms: long enough to hide the step, short enough to keep attacks.
    fresh->rampFrames = std::max<int32_t>(1, int32_t(settings.sampleRate / 700));
    state = fresh;
    return true;
}

void ModulePlayer::setLooping(bool looping) {
    if (state)
        state->sequencer.setLooping(looping);
}

int32_t ModulePlayer::render(int16_t* out, int32_t frames) {
    if (!state)
        return 0;
    State& s = *state;
    int32_t done = 0;
    while (done < frames) {
        if (s.framesLeftInTick == 0) {
            if (!s.sequencer.playTick())
                break;
            s.startTick();
            continue;
        }
        int32_t stretch = std::min({frames - done, s.framesLeftInTick, chunkFrames});
        s.mix(out + done * s.settings.channels, stretch);
        done += stretch;
        s.framesLeftInTick -= stretch;
    }
    return done;
}

bool ModulePlayer::ended() const { return !state || (state->sequencer.ended() && state->framesLeftInTick == 0); }
int32_t ModulePlayer::orderPosition() const { return state ? state->sequencer.orderPosition() : 0; }
int32_t ModulePlayer::row() const { return state ? state->sequencer.row() : 0; }

double subsongDuration(const Module& module, int32_t subsong, uint32_t sampleRate) {
    Sequencer sequencer;
    if (sampleRate == 0 || !sequencer.start(module, subsong))
        return -1.0;
    return double(sequencer.runToEnd(sampleRate)) / sampleRate;
}

}  // namespace mod
