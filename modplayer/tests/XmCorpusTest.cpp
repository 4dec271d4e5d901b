// Loads every XM of the shared corpus and compares it with what two other
// players report about the same files in trackers_info.json.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "modplayer/tests/CorpusRecord.h"

using namespace mod;

namespace {

void expectSample(const ModuleSample& sample, const CorpusRecord& info, int i, const std::string& where) {
    CorpusRecord xmp = info("libxmp.sample_list", i);
    EXPECT_EQ(jsonQuoted(sample.name), info["libopenmpt.sample_names[" + std::to_string(i) + "]"]) << where;
    uint32_t length = xmp.number("len"), loopStart = xmp.number("loop_start"), loopEnd = xmp.number("loop_end");
    ASSERT_EQ(bool(sample.data), length > 0) << where;
    if (!sample.data)
        return;
    // A ping-pong loop is unrolled on loading (played forwards, then
    // backwards); the table does not tell it from a forward loop, so either
    // reading must match exactly.
    const SampleData& data = *sample.data;
    ASSERT_EQ(data.isLooped(), xmp["looped"] == "true") << where;
    bool forward = data.length == length && (!data.isLooped() || data.loopEnd == loopEnd);
    bool unrolled = data.length == data.loopEnd && data.loopEnd == 2 * loopEnd - loopStart;
    EXPECT_TRUE(forward || (data.isLooped() && unrolled)) << where << " length " << data.length;
    EXPECT_TRUE(!data.isLooped() || data.loopStart == loopStart) << where;
}

}  // namespace

TEST(XmCorpus, EveryModuleLoadsAsThePlayersReport) {
    REQUIRE_CORPUS();
    std::vector<CorpusRecord> records = corpusRecords("xm");
    ASSERT_EQ(records.size(), 5u);
    for (const CorpusRecord& info : records) {
        forBothLoads(info, FormatXm, ModeXm, [&](const Module& module, const std::string& where) {
            EXPECT_EQ(jsonQuoted(module.title), info["libopenmpt.title"]) << where;
            EXPECT_EQ(jsonQuoted(module.title), info["libxmp.title"]) << where;
            EXPECT_EQ(module.channelCount, info.number("libopenmpt.channels")) << where;
            EXPECT_EQ(module.channelCount, info.number("libxmp.channels")) << where;
            ASSERT_EQ(module.songLength, info.number("libopenmpt.orders")) << where;
            ASSERT_EQ(module.orders.count(), info.number("libxmp.length")) << where;
            for (int32_t i = 0; i < module.songLength; ++i) {
                std::string at = "[" + std::to_string(i) + "]";
                EXPECT_EQ(module.orders[i], info.number("libopenmpt.order_list" + at)) << where << at;
                EXPECT_EQ(module.orders[i], info.number("libxmp.orders" + at)) << where << at;
            }
            EXPECT_EQ(module.restartPosition, info.number("libxmp.restart")) << where;
            EXPECT_EQ(module.initialSpeed, info.number("libxmp.speed")) << where;
            EXPECT_EQ(module.initialTempo, info.number("libxmp.bpm")) << where;
            // The file's pattern count; the other player adds an empty pattern of its own.
            EXPECT_EQ(module.patterns.count(), info.number("libopenmpt.patterns")) << where;
            EXPECT_EQ(module.patterns.count(), info.number("libxmp.patterns") - 1) << where;
            EXPECT_EQ(module.subsongs.count(), info.number("openmpt123_info.subsongs")) << where;
            EXPECT_EQ(module.instruments.count(), info.number("libopenmpt.instruments")) << where;
            ASSERT_EQ(module.samples.count(), info.number("libopenmpt.samples")) << where;
            ASSERT_EQ(module.samples.count(), info.number("libxmp.samples")) << where;
            for (int32_t i = 0; i < module.samples.count(); ++i)
                expectSample(module.samples[i], info, i, where + " sample " + std::to_string(i));
            // That player's sample table takes names, volumes and finetunes
            // from instrument n; its instrument rows give them per instrument.
            for (int row = 0; row < info.count("xmp_instrument_rows"); ++row) {
                CorpusRecord expected = info("xmp_instrument_rows", row);
                const ModuleInstrument& instrument = module.instruments[expected.number("n") - 1];
                EXPECT_EQ(jsonQuoted(instrument.name), expected["name"]) << where << expected.prefix;
                ASSERT_FALSE(instrument.sampleIndices.isEmpty()) << where << expected.prefix;
                const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
                EXPECT_EQ(sample.volume, std::min(expected.number("vol"), 64) * 255 / 64) << where << expected.prefix;
                EXPECT_EQ(sample.finetune, expected.number("fine")) << where << expected.prefix;
            }
        });
    }
}
