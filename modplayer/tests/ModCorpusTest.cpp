// Loads every real module of the shared corpus and compares it with what
// mod/modinfo.json records from the raw bytes and from another player.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "core/MemoryStream.h"
#include "core/tests/support/TestSupport.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/tests/CorpusJson.h"

using namespace mod;

namespace {

using Fields = std::map<std::string, std::string>;  // key -> JSON value as written

// modinfo.json is written one key per line with one-space indents: each
// module's sections sit at depth 2, their fields at 3, raw samples at 5.
// Per module: its "section.key" fields, then the raw reading's 31 samples.
std::vector<std::vector<Fields>> readModInfo(const std::vector<uint8_t>& bytes) {
    std::vector<std::vector<Fields>> modules;
    std::string section;
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    for (std::string line; std::getline(lines, line);) {
        size_t depth = line.find_first_not_of(' '), colon = line.find("\": ");
        if (depth == std::string::npos || line[depth] != '"' || colon == std::string::npos)
            continue;
        std::string key = line.substr(depth + 1, colon - depth - 1), value = line.substr(colon + 3);
        if (value.back() == ',')
            value.pop_back();
        if (depth == 2 && key == "file")
            modules.push_back({Fields()});
        if (depth == 2)
            section = key;
        if (depth == 3)
            modules.back()[0][section + "." + key] = value;
        if (depth == 5 && section == "raw" && key == "n")
            modules.back().emplace_back();
        if (depth == 5 && section == "raw")
            modules.back().back()[key] = value;
    }
    return modules;
}

void expectSample(const Module& module, Fields expected, const std::string& where) {
    auto number = [&expected](const char* key) { return std::stoi(expected[key]); };
    const ModuleInstrument& instrument = module.instruments[number("n") - 1];
    EXPECT_EQ(jsonQuoted(instrument.name), expected["name"]) << where;
    int length = number("len_bytes"), loopStart = number("loop_start_bytes");
    ASSERT_EQ(instrument.sampleIndices.count(), length ? 1 : 0) << where;
    if (length == 0)
        return;
    const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
    EXPECT_EQ(sample.data->length, uint32_t(length)) << where;
    EXPECT_EQ(sample.data->isLooped(), expected["looped"] == "true") << where;
    uint32_t loopEnd = uint32_t(std::min(length, loopStart + number("loop_len_bytes")));
    if (sample.data->isLooped()) {
        EXPECT_EQ(sample.data->loopStart, uint32_t(loopStart)) << where;
        EXPECT_EQ(sample.data->loopEnd, loopEnd) << where;
    }
    EXPECT_EQ(sample.volume, std::min(number("volume"), 64) * 255 / 64) << where;
    EXPECT_EQ(sample.finetune, number("finetune") * 16) << where;
}

}  // namespace

TEST(ModCorpus, EveryModuleLoadsAsRecorded) {
    REQUIRE_CORPUS();
    std::vector<std::vector<Fields>> infos = readModInfo(readWholeFile(corpusPath("mod/modinfo.json")));
    ASSERT_EQ(infos.size(), 8u);
    std::map<std::string, std::pair<int32_t, int32_t>> channelsAndSubsongs;
    for (std::vector<Fields>& info : infos) {
        auto number = [&info](const char* key) { return std::stoi(info[0][key]); };
        std::string file = std::string(info[0]["raw.file"], 1, info[0]["raw.file"].size() - 2);
        std::vector<uint8_t> bytes = readWholeFile(corpusPath(file));
        ASSERT_EQ(info.size(), 32u) << file;
        for (int32_t format : {FormatAutomatic, FormatMod}) {
            std::string where = file + " format " + std::to_string(format);
            MemoryStream stream(bytes.data(), int32_t(bytes.size()));
            auto module = std::make_unique<Module>();
            ASSERT_TRUE(loadModule(*module, stream, format, 0)) << where;
            EXPECT_EQ(module->formatType, FormatMod) << where;
            EXPECT_EQ(module->playbackMode, ModeMod31) << where;
            EXPECT_EQ(jsonQuoted(module->title), info[0]["raw.title"]) << where;
            EXPECT_EQ(module->channelCount, number("raw.channels")) << where;
            EXPECT_EQ(module->songLength, number("raw.song_length")) << where;
            EXPECT_EQ(module->patterns.count(), number("raw.patterns")) << where;
            EXPECT_EQ(module->subsongs.count(), number("openmpt123_info.subsongs")) << where;
            EXPECT_EQ(module->samples.count(), number("raw.nonempty_samples")) << where;
            ASSERT_EQ(module->instruments.count(), 31) << where;
            for (size_t i = 1; i < info.size(); ++i)
                expectSample(*module, info[i], where + " sample " + info[i]["n"]);
            channelsAndSubsongs[file] = {module->channelCount, module->subsongs.count()};
        }
    }
    EXPECT_EQ(channelsAndSubsongs["mod/starpaws.mod"], std::make_pair(6, 1));
    EXPECT_EQ(channelsAndSubsongs["mod/kollaps-tron.mod"], std::make_pair(4, 2));
}
