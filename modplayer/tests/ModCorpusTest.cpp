// Loads every MOD of the shared corpus and compares it with what
// mod/modinfo.json records from the raw bytes and from another player.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "modplayer/tests/CorpusRecord.h"

using namespace mod;

namespace {

void expectSample(const Module& module, const CorpusRecord& expected, const std::string& where) {
    const ModuleInstrument& instrument = module.instruments[expected.number("n") - 1];
    EXPECT_EQ(jsonQuoted(instrument.name), expected["name"]) << where;
    int length = expected.number("len_bytes"), loopStart = expected.number("loop_start_bytes");
    ASSERT_EQ(instrument.sampleIndices.count(), length ? 1 : 0) << where;
    if (length == 0)
        return;
    const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
    EXPECT_EQ(sample.data->length, uint32_t(length)) << where;
    EXPECT_EQ(sample.data->isLooped(), expected["looped"] == "true") << where;
    uint32_t loopEnd = uint32_t(std::min(length, loopStart + expected.number("loop_len_bytes")));
    if (sample.data->isLooped()) {
        EXPECT_EQ(sample.data->loopStart, uint32_t(loopStart)) << where;
        EXPECT_EQ(sample.data->loopEnd, loopEnd) << where;
    }
    EXPECT_EQ(sample.volume, std::min(expected.number("volume"), 64) * 255 / 64) << where;
    EXPECT_EQ(sample.finetune, expected.number("finetune") * 16) << where;
}

}  // namespace

TEST(ModCorpus, EveryModuleLoadsAsRecorded) {
    REQUIRE_CORPUS();
    std::vector<CorpusRecord> records = corpusRecords("mod");
    ASSERT_EQ(records.size(), 8u);
    std::map<std::string, std::pair<int32_t, int32_t>> channelsAndSubsongs;
    for (const CorpusRecord& info : records) {
        ASSERT_EQ(info.count("raw.samples"), 31) << info.file();
        forBothLoads(info, FormatMod, ModeMod31, [&](const Module& module, const std::string& where) {
            EXPECT_EQ(jsonQuoted(module.title), info["raw.title"]) << where;
            EXPECT_EQ(module.channelCount, info.number("raw.channels")) << where;
            EXPECT_EQ(module.songLength, info.number("raw.song_length")) << where;
            EXPECT_EQ(module.patterns.count(), info.number("raw.patterns")) << where;
            EXPECT_EQ(module.subsongs.count(), info.number("openmpt123_info.subsongs")) << where;
            EXPECT_EQ(module.samples.count(), info.number("raw.nonempty_samples")) << where;
            ASSERT_EQ(module.instruments.count(), 31) << where;
            for (int i = 0; i < 31; ++i)
                expectSample(module, info("raw.samples", i), where + " sample " + std::to_string(i + 1));
            channelsAndSubsongs[info.file()] = {module.channelCount, module.subsongs.count()};
        });
    }
    EXPECT_EQ(channelsAndSubsongs["mod/starpaws.mod"], std::make_pair(6, 1));
    EXPECT_EQ(channelsAndSubsongs["mod/kollaps-tron.mod"], std::make_pair(4, 2));
}
