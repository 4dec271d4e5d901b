// CommandSupport: output names, the overwrite question, statistics.
#include "app/CommandSupport.h"

#include <cstdio>

#include "app/Settings.h"
#include "core/FileStream.h"

String outputNameFor(const char* extension) {
    if (!settings.outputName.isEmpty())
        return settings.outputName;
    return setExtension(settings.inputName, extension);
}

bool mayWriteOutput(const String& outputName) {
    if (settings.force)
        return true;
    FileStream probe(outputName, FileRead, 7);
    if (!probe.isOpen())
        return true;
    std::printf("file already exists: %s\n", outputName.c_str());
    std::printf("overwrite? (Y/N)\n");
    std::fflush(stdout);
    int answer = std::fgetc(stdin);
    if ((answer | 32) == 'y')
        return true;
    std::printf("aborting...\n");
    return false;
}

bool openCommandFiles(FileStream& input, FileStream& output, const String& outputName) {
    if (!input.open(settings.inputName, FileRead, 7)) {
        std::fprintf(stderr, "failed to open %s\n", settings.inputName.c_str());
        return false;
    }
    if (!mayWriteOutput(outputName))
        return false;
    if (!output.open(outputName, FileWrite | FileCreate | FileTruncate, 7)) {
        std::printf("failed to create: %s\n", outputName.c_str());
        return false;
    }
    return true;
}

bool finishOutput(BufferedStream& buffered, FileStream& output) {
    const bool flushed = buffered.close();
    const bool closed = output.close();
    return flushed && closed;
}

bool reportWriteFailure(const String& outputName) {
    std::fprintf(stderr, "failed to write %s\n", outputName.c_str());
    return false;
}

int64_t fileSize(const String& name) {
    FileStream file(name, FileRead, 7);
    int64_t size = file.size();
    return size > 0 ? size : 0;
}

void printStatistics(double ratioPercent, int64_t compressedBytes, float durationSeconds, const char* verb,
                     uint32_t elapsedMs) {
    double seconds = durationSeconds < 1.0f ? 1.0 : double(durationSeconds);
    std::printf("ratio: %0.1lf%%\n", ratioPercent);
    std::printf("average bitrate: %0.0lf kbps\n", 0.008 * double(compressedBytes) / seconds);
    std::printf("%s in %0.1lf sec\n", verb, double(elapsedMs) / 1000.0);
}
