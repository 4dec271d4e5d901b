// The commands until their real bodies land: they fail without a word.
#include "Commands.h"

bool compressCommand() { return false; }
bool decompressCommand() { return false; }
bool playCommand() { return false; }
