// Plays every real module of the shared corpus to its end: each sub-song
// must stop by itself, as long as subsongDuration says, and sub-song 0 must
// last as long as the reference player measured (within 1 %).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/MemoryStream.h"
#include "core/tests/support/TestSupport.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/ModulePlayer.h"

using namespace mod;

namespace {

// The reference player's duration of `file`: the first "duration_s" after
// the file's first mention in the JSON report; -1 when absent.
double referenceSeconds(const std::string& json, const std::string& file) {
    size_t at = json.find("\"file\": \"" + file + "\"");
    size_t key = at == std::string::npos ? at : json.find("\"duration_s\": ", at);
    return key == std::string::npos ? -1.0 : std::atof(json.c_str() + key + 14);
}

std::string readText(const std::string& path) {
    std::vector<uint8_t> bytes = readWholeFile(path);
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace

TEST(ModulePlayerCorpus, EverySubsongPlaysToItsEnd) {
    REQUIRE_CORPUS();
    const struct { const char* folder; const char* report; } sets[] = {
        {"mod", "mod/modinfo.json"}, {"s3m", "trackers_info.json"}, {"xm", "trackers_info.json"}};
    constexpr uint32_t rate = 22050;
    int32_t played = 0;
    for (const auto& set : sets) {
        std::string report = readText(corpusPath(set.report));
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
                double seconds = subsongDuration(*module, subsong);
                EXPECT_NEAR(double(frames), seconds * rate, 1.0) << where;
                EXPECT_GT(peak, 1000) << where;
                double reference = referenceSeconds(report, file);
                if (subsong == 0 && reference > 0) {
                    EXPECT_NEAR(seconds, reference, reference / 100) << where;
                }
            }
            ++played;
        }
    }
    EXPECT_GE(played, 8);
}
