// ModuleInfo: names from a file may hold control characters; they are shown
// as blanks so that every fact stays on its own line.
#include "app/oxamod/ModuleInfo.h"

#include <cstdio>
#include <string>

#include "modplayer/ModulePlayer.h"

namespace {

void printText(const char* key, const String& text) {
    std::string line;
    for (const char* c = text.c_str(); *c; ++c)
        line += (unsigned char)*c < 0x20 || *c == 0x7F ? ' ' : *c;
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    std::printf(line.empty() ? "%s:\n" : "%s: %s\n", key, line.c_str());
}

}  // namespace

const char* moduleFormatName(const mod::Module& module) {
    switch (module.formatType) {
    case mod::FormatMod: return "MOD";
    case mod::FormatS3m: return "S3M";
    case mod::FormatXm: return "XM";
    default: return "none";
    }
}

int32_t declaredSampleSlots(const mod::Module& module) {
    if (module.formatType != mod::FormatXm)
        return module.instruments.count();
    int32_t slots = 0;
    for (const mod::ModuleInstrument& instrument : module.instruments)
        slots += instrument.sampleIndices.count();
    return slots;
}

bool printModuleInfo(const mod::Module& module) {
    std::printf("format: %s\n", moduleFormatName(module));
    printText("title", module.title);
    printText("tracker", module.trackerName);
    std::printf("channels: %d\n", int(module.channelCount));
    std::printf("orders: %d\n", int(module.songLength));
    std::printf("patterns: %d\n", int(module.patterns.count()));
    std::printf("instruments: %d\n", int(module.instruments.count()));
    std::printf("samples: %d\n", int(declaredSampleSlots(module)));
    std::printf("subsongs: %d\n", int(module.subsongs.count()));
    std::printf("duration:");
    for (int32_t i = 0; i < module.subsongs.count(); ++i)
        std::printf(" %.3f", mod::subsongDuration(module, i));
    std::printf("\n");
    return std::fflush(stdout) == 0 && !std::ferror(stdout);
}
