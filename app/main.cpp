// Oxa: entry point. Brings the runtime up, runs the command line, takes it down.
#include "Core.h"

int main(int, char**) {
    coreInit();
    int status = 0;
    coreShutdown();
    return status;
}
