// RunCommand: chooses the command. The first rule that matches decides:
// -p plays; an input name ending in "wav" (case-sensitive, no dot needed)
// compresses; -d or -o decompresses; anything else plays.
#include "app/Commands.h"
#include "app/Settings.h"

int runCommand() {
    if (settings.runMode == RunPlay) {
        playCommand();
        return 0;
    }
    if (settings.inputName.endsWith("wav"))
        return compressCommand() ? 0 : 1;
    if (settings.runMode == RunDecompress || !settings.outputName.isEmpty())
        return decompressCommand() ? 0 : 1;
    playCommand();
    return 0;
}
