// Oxa: entry point. Brings the runtime up, runs the command line and takes
// the runtime down again; the command's status is the exit status.
#include <cstdlib>

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "audio/Audio.h"
#include "core/Core.h"

namespace {

void releaseFileNames() {
    settings.inputName = String();
    settings.outputName = String();
}

}  // namespace

int main(int argc, char** argv) {
    coreInit();
    audioInit();
    std::atexit(releaseFileNames);
    int status = runCommandLine(argc, argv);
    releaseFileNames();
    audioShutdown();
    coreShutdown();
    return status;
}
