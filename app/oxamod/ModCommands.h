// ModCommands: what OxaMod does with a loaded module, and its whole run from
// arguments to exit status. Each command prints its own failure line on
// standard error and returns false.
#pragma once

#include "app/oxamod/ModOptions.h"
#include "modplayer/Module.h"

// Renders one pass of the chosen sub-song to options.outputName as a 16-bit
// stereo WAV file at options.sampleRate.
bool renderModuleCommand(const mod::Module& module, const ModOptions& options);

// Plays the chosen sub-song, looping, on the playback device until a key is
// pressed (or standard input ends).
bool playModuleCommand(const mod::Module& module, const ModOptions& options);

// Parses, loads, then shows the info (-i), renders (-o) or plays. Returns the
// exit status: 0 for the usage text and for success, 1 for any failure.
int runOxaMod(int argc, char** argv);
