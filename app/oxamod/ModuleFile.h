// ModuleFile: loads a module file with automatic format detection, printing
// the one failure line a command shows. Used by runOxaMod.
#pragma once

#include "core/String.h"
#include "modplayer/Module.h"

// False (after "failed to open NAME" or "not a module: NAME" on standard
// error) when the file cannot be read or no loader accepts it.
bool loadModuleFile(const String& name, mod::Module& module);
