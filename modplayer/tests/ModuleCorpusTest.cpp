// Every real module of the shared corpus, whatever its format: each prefix
// of the file fails to load and leaves no format behind; the whole file
// plays every sub-song to its end, as long as subsongDuration says, and
// sub-song 0 as long as the reference player measured (within 1 %).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "modplayer/ModulePlayer.h"
#include "modplayer/tests/CorpusRecord.h"

using namespace mod;

namespace {

const struct { const char* folder; int32_t format; } corpusFormats[] = {
    {"mod", FormatMod}, {"s3m", FormatS3m}, {"xm", FormatXm}};

}  // namespace

TEST(ModuleCorpus, EveryPrefixFailsCleanly) {
    REQUIRE_CORPUS();
    for (const auto& [folder, format] : corpusFormats)
        for (const CorpusRecord& info : corpusRecords(folder)) {
            std::vector<uint8_t> bytes = info.bytes();
            // Every cut through the headers and the first patterns, then cuts
            // spread over the rest, and through the last sample's tail.
            std::vector<size_t> lengths;
            for (size_t length = 0; length < bytes.size(); length += length < 4096 ? 1 : 997)
                lengths.push_back(length);
            for (size_t cut = 1; cut <= 64; ++cut)
                lengths.push_back(bytes.size() - cut);
            for (size_t length : lengths) {
                MemoryStream stream(bytes.data(), int32_t(length));
                Module module;
                EXPECT_FALSE(loadModule(module, stream, format, 0)) << info.file() << " cut at " << length;
                EXPECT_EQ(module.formatType, FormatNone) << info.file() << " cut at " << length;
            }
        }
}

TEST(ModuleCorpus, EverySubsongPlaysToItsEnd) {
    REQUIRE_CORPUS();
    constexpr uint32_t rate = 11025;
    int32_t played = 0;
    for (const auto& [folder, format] : corpusFormats)
        for (const CorpusRecord& info : corpusRecords(folder)) {
            std::unique_ptr<Module> module = loadedModule(info.bytes(), FormatAutomatic);
            ASSERT_TRUE(module) << info.file();
            for (int32_t subsong = 0; subsong < module->subsongs.count(); ++subsong) {
                std::string where = info.file() + " sub-song " + std::to_string(subsong);
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
                double reference = std::atof(info["libopenmpt.duration_s"].c_str());
                EXPECT_TRUE(subsong > 0 || std::abs(seconds - reference) <= reference / 100)
                    << where << ": " << seconds << " s, the reference player " << reference << " s";
            }
            ++played;
        }
    EXPECT_EQ(played, 16);
}
