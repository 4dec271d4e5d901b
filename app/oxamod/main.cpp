// OxaMod: entry point of the module player. Brings the runtime and audio up,
// runs the command line and takes them down again; every string and module
// the run made is gone before the heap goes.
#include "app/oxamod/ModCommands.h"
#include "audio/Audio.h"
#include "core/Core.h"

int main(int argc, char** argv) {
    coreInit();
    audioInit();
    int status = runOxaMod(argc, argv);
    audioShutdown();
    coreShutdown();
    return status;
}
