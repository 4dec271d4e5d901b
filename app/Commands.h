// Commands: the three things the tool does, and the rule that picks one.
// Each command prints its own messages and returns success or failure.
#pragma once

bool compressCommand();
bool decompressCommand();
bool playCommand();

// Picks the command from Settings and returns the exit status:
// 0 or 1 for compress and decompress, always 0 for play.
int runCommand();
