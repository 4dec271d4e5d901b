// CommandSupport: what the compress and decompress commands share: the
// output name, the overwrite question and the verbose statistics.
#pragma once

#include <cstdint>

#include "core/BufferedStream.h"
#include "core/FileStream.h"
#include "core/String.h"

// The input name with `extension`, unless -o gave a name.
String outputNameFor(const char* extension);

// Unless -f was given, asks before an existing output is overwritten.
// True when the command may go on.
bool mayWriteOutput(const String& outputName);

// Opens the input for reading, asks before overwriting and creates the
// output, printing each failure on its stream. True when both are open.
bool openCommandFiles(FileStream& input, FileStream& output, const String& outputName);

// The last writes of a command: what the buffer still holds, then the close
// of the file, where some file systems first report that the disk is full.
// True when every byte reached the file.
bool finishOutput(BufferedStream& buffered, FileStream& output);

// "failed to write <output name>" on standard error; always false.
bool reportWriteFailure(const String& outputName);

// Size of a file in bytes, 0 when it cannot be opened.
int64_t fileSize(const String& name);

// "ratio: ..%", "average bitrate: .. kbps" and "<verb> in .. sec" on standard output.
void printStatistics(double ratioPercent, int64_t compressedBytes, float durationSeconds, const char* verb,
                     uint32_t elapsedMs);
