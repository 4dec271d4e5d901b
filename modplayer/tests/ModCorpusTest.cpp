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

#include "MemoryStream.h"
#include "ModuleLoader.h"
#include "TestSupport.h"

using namespace mod;

namespace {

using Fields = std::map<std::string, std::string>;  // key -> JSON value as written

struct ModInfo {
    Fields fields;                // "section.key" of the module's depth-3 fields
    std::vector<Fields> samples;  // the raw reading's sample table
};

// modinfo.json is written one key per line with one-space indents: each
// module's sections sit at depth 2, their fields at 3, raw samples at 5.
std::vector<ModInfo> readModInfo(const std::vector<uint8_t>& bytes) {
    std::vector<ModInfo> infos;
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
            infos.emplace_back();
        if (depth == 2)
            section = key;
        if (depth == 3)
            infos.back().fields[section + "." + key] = value;
        if (depth == 5 && section == "raw" && key == "n")
            infos.back().samples.emplace_back();
        if (depth == 5 && section == "raw")
            infos.back().samples.back()[key] = value;
    }
    return infos;
}

// A quoted JSON string as code points (the names are 8-bit text in \u escapes).
std::u32string textOf(const std::string& quoted) {
    std::u32string text;
    for (size_t i = 1; i + 1 < quoted.size(); ++i) {
        char32_t c = uint8_t(quoted[i]);
        if (c == '\\' && quoted[++i] == 'u') {
            c = char32_t(std::stoul(quoted.substr(i + 1, 4), nullptr, 16));
            i += 4;
        } else if (c == '\\') {
            c = uint8_t(quoted[i]);
        }
        text.push_back(c);
    }
    return text;
}

std::u32string textOf(const String& text) {
    return std::u32string(text.codePoints(), text.codePoints() + text.length());
}

void expectSample(const Module& module, Fields expected, const std::string& where) {
    const ModuleInstrument& instrument = module.instruments[std::stoi(expected["n"]) - 1];
    EXPECT_EQ(textOf(instrument.name), textOf(expected["name"])) << where;
    int length = std::stoi(expected["len_bytes"]);
    ASSERT_EQ(instrument.sampleIndices.count(), length ? 1 : 0) << where;
    if (length == 0)
        return;
    const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
    EXPECT_EQ(sample.data->length, uint32_t(length)) << where;
    EXPECT_EQ(sample.data->isLooped(), expected["looped"] == "true") << where;
    if (sample.data->isLooped()) {
        int loopStart = std::stoi(expected["loop_start_bytes"]);
        EXPECT_EQ(sample.data->loopStart, uint32_t(loopStart)) << where;
        EXPECT_EQ(sample.data->loopEnd, uint32_t(std::min(length, loopStart + std::stoi(expected["loop_len_bytes"])))) << where;
    }
    EXPECT_EQ(sample.volume, std::min(std::stoi(expected["volume"]), 64) * 255 / 64) << where;
    EXPECT_EQ(sample.finetune, std::stoi(expected["finetune"]) * 16) << where;
}

}  // namespace

TEST(ModCorpus, EveryModuleLoadsAsRecorded) {
    REQUIRE_CORPUS();
    std::vector<ModInfo> infos = readModInfo(readWholeFile(corpusPath("mod/modinfo.json")));
    ASSERT_EQ(infos.size(), 8u);
    std::map<std::string, std::pair<int32_t, int32_t>> channelsAndSubsongs;
    for (ModInfo& info : infos) {
        std::string file = std::string(info.fields["raw.file"], 1, info.fields["raw.file"].size() - 2);
        std::vector<uint8_t> bytes = readWholeFile(corpusPath(file));
        ASSERT_FALSE(bytes.empty()) << file;
        for (int32_t format : {FormatAutomatic, FormatMod}) {
            std::string where = file + " format " + std::to_string(format);
            MemoryStream stream(bytes.data(), int32_t(bytes.size()));
            auto module = std::make_unique<Module>();
            ASSERT_TRUE(loadModule(*module, stream, format, 0)) << where;
            EXPECT_EQ(module->formatType, FormatMod) << where;
            EXPECT_EQ(module->playbackMode, ModeMod31) << where;
            EXPECT_EQ(textOf(module->title), textOf(info.fields["raw.title"])) << where;
            EXPECT_EQ(module->channelCount, std::stoi(info.fields["raw.channels"])) << where;
            EXPECT_EQ(module->songLength, std::stoi(info.fields["raw.song_length"])) << where;
            EXPECT_EQ(module->patterns.count(), std::stoi(info.fields["raw.patterns"])) << where;
            EXPECT_EQ(module->subsongs.count(), std::stoi(info.fields["openmpt123_info.subsongs"])) << where;
            ASSERT_EQ(module->instruments.count(), 31) << where;
            EXPECT_EQ(module->samples.count(), std::stoi(info.fields["raw.nonempty_samples"])) << where;
            ASSERT_EQ(info.samples.size(), 31u) << where;
            for (const Fields& sample : info.samples)
                expectSample(*module, sample, where + " sample " + sample.at("n"));
            channelsAndSubsongs[file] = {module->channelCount, module->subsongs.count()};
        }
    }
    EXPECT_EQ(channelsAndSubsongs["mod/starpaws.mod"], std::make_pair(6, 1));
    EXPECT_EQ(channelsAndSubsongs["mod/kollaps-tron.mod"], std::make_pair(4, 2));
}
