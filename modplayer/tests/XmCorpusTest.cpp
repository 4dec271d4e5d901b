// Loads every XM of the shared corpus and compares it with what two other
// players report about the same files in trackers_info.json.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/MemoryStream.h"
#include "core/tests/support/TestSupport.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/tests/CorpusJson.h"

using namespace mod;

namespace {

// Each XM's record in trackers_info.json: "key" -> value as written.
struct XmRecord {
    std::map<std::string, std::string>* values;
    std::string prefix;  // "[0]"

    std::string operator[](const std::string& key) const {
        auto found = values->find(prefix + "." + key);
        return found == values->end() ? "" : found->second;
    }
    bool has(const std::string& key) const { return values->count(prefix + "." + key) != 0; }
    int number(const std::string& key) const {
        EXPECT_TRUE(has(key)) << prefix << " has no " << key;
        return std::atoi((*this)[key].c_str());
    }
    std::vector<uint8_t> file() const {
        std::string name = (*this)["file"];
        return readWholeFile(corpusPath(name.substr(1, name.size() - 2)));
    }
};

std::vector<XmRecord> xmRecords(std::map<std::string, std::string>& values) {
    values = flattenJson(readWholeFile(corpusPath("trackers_info.json")));
    std::vector<XmRecord> records;
    for (int i = 0; values.count("[" + std::to_string(i) + "].file"); ++i)
        if (values["[" + std::to_string(i) + "].file"].ends_with(".xm\""))
            records.push_back({&values, "[" + std::to_string(i) + "]"});
    return records;
}

}  // namespace

TEST(XmCorpus, EveryModuleLoadsAsThePlayersReport) {
    REQUIRE_CORPUS();
    std::map<std::string, std::string> values;
    std::vector<XmRecord> records = xmRecords(values);
    ASSERT_EQ(records.size(), 5u);
    for (const XmRecord& info : records) {
        auto number = [&info](const std::string& key) { return info.number(key); };
        std::vector<uint8_t> bytes = info.file();
        for (int32_t format : {FormatAutomatic, FormatXm}) {
            std::string where = info["file"] + " format " + std::to_string(format);
            MemoryStream stream(bytes.data(), int32_t(bytes.size()));
            auto module = std::make_unique<Module>();
            ASSERT_TRUE(loadModule(*module, stream, format, 0)) << where;
            EXPECT_EQ(std::pair(module->formatType, module->playbackMode), std::pair(int32_t(FormatXm), int32_t(ModeXm)));
            EXPECT_EQ(jsonQuoted(module->title), info["libopenmpt.title"]) << where;
            EXPECT_EQ(jsonQuoted(module->title), info["libxmp.title"]) << where;
            EXPECT_EQ(module->channelCount, number("libopenmpt.channels")) << where;
            EXPECT_EQ(module->channelCount, number("libxmp.channels")) << where;
            ASSERT_EQ(module->songLength, number("libopenmpt.orders")) << where;
            ASSERT_EQ(module->orders.count(), number("libxmp.length")) << where;
            for (int32_t i = 0; i < module->songLength; ++i) {
                EXPECT_EQ(module->orders[i], number("libopenmpt.order_list[" + std::to_string(i) + "]")) << where << i;
                EXPECT_EQ(module->orders[i], number("libxmp.orders[" + std::to_string(i) + "]")) << where << i;
            }
            EXPECT_EQ(module->restartPosition, number("libxmp.restart")) << where;
            EXPECT_EQ(module->initialSpeed, number("libxmp.speed")) << where;
            EXPECT_EQ(module->initialTempo, number("libxmp.bpm")) << where;
            // The file's pattern count; the other player adds an empty pattern of its own.
            EXPECT_EQ(module->patterns.count(), number("libopenmpt.patterns")) << where;
            EXPECT_EQ(module->patterns.count(), number("libxmp.patterns") - 1) << where;
            EXPECT_EQ(module->subsongs.count(), number("openmpt123_info.subsongs")) << where;
            EXPECT_EQ(module->instruments.count(), number("libopenmpt.instruments")) << where;
            ASSERT_EQ(module->samples.count(), number("libopenmpt.samples")) << where;
            ASSERT_EQ(module->samples.count(), number("libxmp.samples")) << where;

            for (int32_t i = 0; i < module->samples.count(); ++i) {
                const ModuleSample& sample = module->samples[i];
                std::string at = "libxmp.sample_list[" + std::to_string(i) + "].", sampleWhere = where + " sample " + at;
                EXPECT_EQ(jsonQuoted(sample.name), info["libopenmpt.sample_names[" + std::to_string(i) + "]"]) << sampleWhere;
                uint32_t length = number(at + "len"), loopStart = number(at + "loop_start"), loopEnd = number(at + "loop_end");
                ASSERT_EQ(bool(sample.data), length > 0) << sampleWhere;
                if (!sample.data)
                    continue;
                // A ping-pong loop is unrolled on loading (played forwards,
                // then backwards); the table does not tell it from a forward
                // loop, so either reading must match exactly.
                const SampleData& data = *sample.data;
                ASSERT_EQ(data.isLooped(), info[at + "looped"] == "true") << sampleWhere;
                bool forward = data.length == length && (!data.isLooped() || data.loopEnd == loopEnd);
                bool unrolled = data.length == data.loopEnd && data.loopEnd == 2 * loopEnd - loopStart;
                EXPECT_TRUE(forward || (data.isLooped() && unrolled)) << sampleWhere << " length " << data.length;
                EXPECT_TRUE(!data.isLooped() || data.loopStart == loopStart) << sampleWhere;
            }
            // That player's sample table takes names, volumes and finetunes
            // from instrument n; its instrument rows give them per instrument.
            for (int row = 0; info.has("xmp_instrument_rows[" + std::to_string(row) + "].n"); ++row) {
                std::string at = "xmp_instrument_rows[" + std::to_string(row) + "].";
                const ModuleInstrument& instrument = module->instruments[number(at + "n") - 1];
                EXPECT_EQ(jsonQuoted(instrument.name), info[at + "name"]) << where << at;
                ASSERT_FALSE(instrument.sampleIndices.isEmpty()) << where << at;
                const ModuleSample& sample = module->samples[instrument.sampleIndices[0]];
                EXPECT_EQ(sample.volume, std::min(number(at + "vol"), 64) * 255 / 64) << where << at;
                EXPECT_EQ(sample.finetune, number(at + "fine")) << where << at;
            }
        }
    }
}

TEST(XmCorpus, PrefixesFailCleanly) {
    REQUIRE_CORPUS();
    std::map<std::string, std::string> values;
    for (const XmRecord& info : xmRecords(values)) {
        std::vector<uint8_t> bytes = info.file();
        // Every cut through the headers and the first patterns, then cuts
        // spread over the rest, and the last bytes of the last sample.
        std::vector<size_t> lengths;
        for (size_t length = 0; length < bytes.size(); length += length < 2048 ? 1 : 4093)
            lengths.push_back(length);
        for (size_t back = 1; back <= 4; ++back)
            lengths.push_back(bytes.size() - back);
        for (size_t length : lengths) {
            MemoryStream stream(bytes.data(), int32_t(length));
            Module module;
            EXPECT_FALSE(loadModule(module, stream, FormatXm, 0)) << info["file"] << " cut at " << length;
            EXPECT_EQ(module.formatType, FormatNone) << info["file"] << " cut at " << length;
        }
    }
}
