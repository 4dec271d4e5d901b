// Loads every S3M of the shared corpus and compares it with what two other
// players report in trackers_info.json.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "modplayer/tests/CorpusRecord.h"

using namespace mod;

namespace {

// The finetune the other player derives from a C4 speed: 1/128 semitones
// above or below 8363 Hz, less whole semitones, truncated.
int finetuneOfC4Speed(int32_t c4Speed) {
    int steps = int(std::log2(c4Speed / 8363.0) * 12 * 128);
    return steps % 128;
}

std::vector<int> numbers(const CorpusRecord& info, const std::string& key) {
    std::vector<int> values;
    for (int i = 0; i < info.count(key); ++i)
        values.push_back(info.number(key + "[" + std::to_string(i) + "]"));
    return values;
}

void expectSample(const Module& module, const CorpusRecord& info, int i, const std::string& where) {
    CorpusRecord xmp = info("libxmp.sample_list", i);
    const ModuleInstrument& instrument = module.instruments[i];
    ASSERT_EQ(instrument.sampleIndices.count(), 1) << where;
    const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
    // One player keeps the stored name, the other trims its trailing blanks.
    EXPECT_EQ(jsonQuoted(sample.name), info["libopenmpt.sample_names[" + std::to_string(i) + "]"]) << where;
    EXPECT_TRUE(instrument.name == sample.name) << where;
    std::string trimmed = jsonQuoted(sample.name);
    trimmed.pop_back();
    while (trimmed.back() == ' ')
        trimmed.pop_back();
    EXPECT_EQ(trimmed + "\"", xmp["name"]) << where;
    EXPECT_EQ(sample.finetune, 0) << where;
    int length = xmp.number("len");
    EXPECT_EQ(sample.data ? sample.data->length : 0u, uint32_t(length)) << where;
    if (xmp.number("vol") < 0)  // the other player's mark for an entry without PCM
        return;
    EXPECT_EQ(sample.volume, xmp.number("vol") * 255 / 64) << where;
    EXPECT_EQ(finetuneOfC4Speed(sample.extraA), xmp.number("fin")) << where;
    if (length == 0)
        return;
    EXPECT_EQ(sample.data->sampleRate, uint32_t(sample.extraA)) << where;
    EXPECT_EQ(sample.data->isLooped(), xmp["looped"] == "true") << where;
    if (sample.data->isLooped()) {
        EXPECT_EQ(sample.data->loopStart, uint32_t(xmp.number("loop_start"))) << where;
        EXPECT_EQ(sample.data->loopEnd, uint32_t(xmp.number("loop_end"))) << where;
    }
}

}  // namespace

TEST(S3mCorpus, EveryModuleLoadsAsRecorded) {
    REQUIRE_CORPUS();
    std::vector<CorpusRecord> records = corpusRecords("s3m");
    ASSERT_EQ(records.size(), 3u);
    std::map<std::string, std::vector<int32_t>> subsongStarts;
    for (const CorpusRecord& info : records) {
        forBothLoads(info, FormatS3m, ModeS3m, [&](const Module& module, const std::string& where) {
            EXPECT_EQ(jsonQuoted(module.title), info["libxmp.title"]) << where;
            EXPECT_EQ(jsonQuoted(module.title), info["libopenmpt.title"]) << where;
            EXPECT_EQ(jsonQuoted(module.trackerName), info["libopenmpt.tracker"]) << where;
            EXPECT_EQ(module.channelCount, info.number("libxmp.channels")) << where;
            EXPECT_EQ(module.channelCount, info.number("libopenmpt.channels")) << where;
            // The stored order list, markers and all, as one player reports it.
            std::vector<int> orders(module.orders.begin(), module.orders.end());
            EXPECT_EQ(orders, numbers(info, "libxmp.orders")) << where;
            // The other player drops the final end markers and widens both markers.
            while (!orders.empty() && orders.back() == orderEndOfSong)
                orders.pop_back();
            for (int& order : orders)
                order = order >= orderSkip ? order + 0xFF00 : order;
            EXPECT_EQ(orders, numbers(info, "libopenmpt.order_list")) << where;
            EXPECT_EQ(module.songLength, info.number("libxmp.length")) << where;
            EXPECT_EQ(module.patterns.count(), info.number("libopenmpt.patterns")) << where;
            EXPECT_EQ(module.subsongs.count(), info.number("openmpt123_info.subsongs")) << where;
            ASSERT_EQ(module.samples.count(), info.number("libxmp.samples")) << where;
            ASSERT_EQ(module.instruments.count(), info.number("libopenmpt.samples")) << where;
            for (int i = 0; i < module.instruments.count(); ++i)
                expectSample(module, info, i, where + " sample " + std::to_string(i + 1));
            subsongStarts[info.file()].clear();
            for (const Subsong& subsong : module.subsongs)
                subsongStarts[info.file()].push_back(subsong.startPosition);
        });
    }
    // The second song starts after the end marker at position 19.
    EXPECT_EQ(subsongStarts["s3m/pachi_credits.s3m"], std::vector<int32_t>({0, 20}));
}
