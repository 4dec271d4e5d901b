// Plays every real module of the shared corpus to its end: each sub-song
// must stop by itself, as long as subsongDuration says, and sub-song 0 of
// a MOD, S3M or XM must last as long as the reference player measured
// (within 1 %).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/MemoryStream.h"
#include "core/tests/support/TestSupport.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/ModulePlayer.h"
#include "modplayer/tests/CorpusJson.h"

using namespace mod;

namespace {

// The reference player's duration of sub-song 0 of `file`; -1 when absent.
double referenceSeconds(const std::map<std::string, std::string>& records, const std::string& file) {
    for (int32_t i = 0; records.count("[" + std::to_string(i) + "].file"); ++i) {
        std::string entry = "[" + std::to_string(i) + "]";
        if (records.at(entry + ".file") != "\"" + file + "\"")
            continue;
        auto seconds = records.find(entry + ".libopenmpt.duration_s");
        return seconds == records.end() ? -1.0 : std::atof(seconds->second.c_str());
    }
    return -1.0;
}

}  // namespace

TEST(ModulePlayerCorpus, EverySubsongPlaysToItsEnd) {
    REQUIRE_CORPUS();
    const struct { const char* folder; const char* report; bool compareLength; } sets[] = {
        {"mod", "mod/modinfo.json", true}, {"s3m", "trackers_info.json", true}, {"xm", "trackers_info.json", true}};
    constexpr uint32_t rate = 11025;
    int32_t played = 0;
    for (const auto& set : sets) {
        std::map<std::string, std::string> records = flattenJson(readWholeFile(corpusPath(set.report)));
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(corpusPath(set.folder)))
            if (entry.path().extension() == std::string(".") + set.folder)
                files.push_back(std::string(set.folder) + "/" + entry.path().filename().string());
        std::sort(files.begin(), files.end());
        for (const std::string& file : files) {
            std::vector<uint8_t> bytes = readWholeFile(corpusPath(file));
            MemoryStream stream(bytes.data(), int32_t(bytes.size()));
            auto module = std::make_unique<Module>();
            if (!loadModule(*module, stream, FormatAutomatic, 0)) {
                EXPECT_NE(std::string(set.folder), "mod") << file;  // S3M and XM may not load yet
                continue;
            }
            for (int32_t subsong = 0; subsong < module->subsongs.count(); ++subsong) {
                std::string where = file + " sub-song " + std::to_string(subsong);
                ModulePlayer player;
                PlayerSettings settings;
                settings.sampleRate = rate;
                ASSERT_TRUE(player.start(*module, subsong, settings)) << where;
                std::vector<int16_t> out(8192 * 2);
                int64_t frames = 0;
                int32_t peak = 0;
                for (int32_t n; (n = player.render(out.data(), 8192)) > 0;) {
                    frames += n;
                    for (int32_t i = 0; i < 2 * n; ++i)
                        peak = std::max(peak, std::abs(int32_t(out[i])));
                }
                EXPECT_TRUE(player.ended()) << where;
                double seconds = subsongDuration(*module, subsong, rate);
                EXPECT_NEAR(double(frames), seconds * rate, 1.0) << where;
                EXPECT_GT(peak, 1000) << where;
                double reference = referenceSeconds(records, file);
                if (subsong == 0 && set.compareLength) {
                    EXPECT_NEAR(seconds, reference, reference / 100) << where;
                }
            }
            ++played;
        }
    }
    EXPECT_GE(played, 8);
}
