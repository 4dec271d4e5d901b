// Module: a loaded tracker song: order list, patterns, instruments, samples
// and the sub-songs found in it. Filled by the format loaders through
// loadModule; read by the sequencer and the mixer.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/String.h"
#include "modplayer/ModuleInstrument.h"
#include "modplayer/ModuleSample.h"
#include "modplayer/PatternCell.h"

namespace mod {

enum ModuleFormat : int32_t {
    FormatAutomatic = 0,
    FormatNone = 1,
    FormatMod = 2,
    FormatS3m = 3,
    FormatXm = 4,
    FormatUnload = 5,  // a loadModule request that only resets
};

// Playback-compatibility variants the loaders choose when the caller passes 0.
enum PlaybackMode : int32_t {
    ModeMod15 = 2,
    ModeMod31 = 3,
    ModeS3m = 4,
    ModeXm = 5,
};

constexpr uint16_t orderEndOfSong = 255;  // honoured in modes 4 and 6
constexpr uint16_t orderSkip = 254;       // honoured in modes 4 and 6

struct Subsong {
    int32_t index = 0;
    int32_t startPosition = 0;  // order position the sub-song starts at
};

class Module {
public:
    Module() { reset(); }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // Back to the empty state; samples drop their references to SampleData.
    void reset();
    // Fills `subsongs`; every loader runs it last.
    void scanSubsongs();
    // Modes 4 and 6 read order 255 as the song's end and 254 as a skip.
    bool honoursOrderMarkers() const { return playbackMode == 4 || playbackMode == 6; }
    // An S3M saved by Impulse Tracker (as its tracker name says): players
    // give it that tracker's pitch, effect memories and retrigger.
    bool isImpulseTrackerS3m() const;

    int32_t formatType = FormatNone;
    int32_t playbackMode = 1;
    uint8_t usesAmigaPeriods = 0;
    uint8_t initialSpeed = 6;    // ticks per row
    uint8_t initialTempo = 125;  // beats per minute
    uint8_t globalVolume = 255;
    String title;
    String trackerName;
    int32_t channelCount = 0;
    int32_t substitutePattern = -1;  // played for orders beyond the last pattern
    Array<uint8_t> channelPanning;   // 0 left, 128 centre, 255 right
    Array<int32_t> channelMap;     // recorded by the loaders; playback does not read it (Sequencer.h)
    Array<uint16_t> orders;
    Array<ModulePattern> patterns;
    Array<ModuleInstrument> instruments;
    Array<ModuleSample> samples;
    Array<Subsong> subsongs;
    int32_t songLength = 0;
    int32_t restartPosition = 0;
    uint8_t fastVolumeSlides = 0;
};

}  // namespace mod
