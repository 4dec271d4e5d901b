// Loads every S3M of the shared corpus and compares it with what two other
// players report in trackers_info.json; every prefix of those files fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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

const char* const s3mFiles[] = {"s3m/pachi_credits.s3m", "s3m/pachi_menu.s3m", "s3m/pachi_stage3.s3m"};

// The finetune the other player derives from a C4 speed: 1/128 semitones
// above or below 8363 Hz, less whole semitones, truncated.
int finetuneOfC4Speed(int32_t c4Speed) {
    int steps = int(std::log2(c4Speed / 8363.0) * 12 * 128);
    return steps % 128;
}

struct CorpusEntry {
    std::map<std::string, std::string>& info;
    std::string prefix;  // "[5]"
    std::string operator()(const std::string& key) const { return info[prefix + "." + key]; }
    int number(const std::string& key) const { return std::stoi((*this)(key)); }
    int count(const std::string& arrayKey) const {
        int n = 0;
        while (info.count(prefix + "." + arrayKey + "[" + std::to_string(n) + "]") ||
               info.count(prefix + "." + arrayKey + "[" + std::to_string(n) + "].n"))
            ++n;
        return n;
    }
};

void expectSample(const Module& module, const CorpusEntry& entry, int i, const std::string& where) {
    std::string xmp = "libxmp.sample_list[" + std::to_string(i) + "].";
    const ModuleInstrument& instrument = module.instruments[i];
    ASSERT_EQ(instrument.sampleIndices.count(), 1) << where;
    const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
    // One player keeps the stored name, the other trims its trailing blanks.
    EXPECT_EQ(jsonQuoted(sample.name), entry("libopenmpt.sample_names[" + std::to_string(i) + "]")) << where;
    EXPECT_TRUE(instrument.name == sample.name) << where;
    std::string trimmed = jsonQuoted(sample.name);
    trimmed.pop_back();
    while (trimmed.back() == ' ')
        trimmed.pop_back();
    EXPECT_EQ(trimmed + "\"", entry(xmp + "name")) << where;
    EXPECT_EQ(sample.finetune, 0) << where;
    int length = entry.number(xmp + "len");
    EXPECT_EQ(sample.data ? sample.data->length : 0u, uint32_t(length)) << where;
    if (entry.number(xmp + "vol") < 0)  // the other player's mark for an entry without PCM
        return;
    EXPECT_EQ(sample.volume, entry.number(xmp + "vol") * 255 / 64) << where;
    EXPECT_EQ(finetuneOfC4Speed(sample.extraA), entry.number(xmp + "fin")) << where;
    if (length == 0)
        return;
    EXPECT_EQ(sample.data->sampleRate, uint32_t(sample.extraA)) << where;
    EXPECT_EQ(sample.data->isLooped(), entry(xmp + "looped") == "true") << where;
    if (sample.data->isLooped()) {
        EXPECT_EQ(sample.data->loopStart, uint32_t(entry.number(xmp + "loop_start"))) << where;
        EXPECT_EQ(sample.data->loopEnd, uint32_t(entry.number(xmp + "loop_end"))) << where;
    }
}

}  // namespace

TEST(S3mCorpus, EveryModuleLoadsAsRecorded) {
    REQUIRE_CORPUS();
    std::map<std::string, std::string> info = flattenJson(readWholeFile(corpusPath("trackers_info.json")));
    std::map<std::string, std::vector<int32_t>> subsongStarts;
    for (const char* file : s3mFiles) {
        std::string prefix;
        for (int i = 0; prefix.empty() && info.count("[" + std::to_string(i) + "].file"); ++i)
            if (info["[" + std::to_string(i) + "].file"] == "\"" + std::string(file) + "\"")
                prefix = "[" + std::to_string(i) + "]";
        ASSERT_FALSE(prefix.empty()) << file;
        CorpusEntry entry{info, prefix};
        std::vector<uint8_t> bytes = readWholeFile(corpusPath(file));
        for (int32_t format : {FormatAutomatic, FormatS3m}) {
            std::string where = std::string(file) + " format " + std::to_string(format);
            MemoryStream stream(bytes.data(), int32_t(bytes.size()));
            auto module = std::make_unique<Module>();
            ASSERT_TRUE(loadModule(*module, stream, format, 0)) << where;
            EXPECT_EQ(module->formatType, FormatS3m) << where;
            EXPECT_EQ(module->playbackMode, ModeS3m) << where;
            EXPECT_EQ(jsonQuoted(module->title), entry("libxmp.title")) << where;
            EXPECT_EQ(jsonQuoted(module->title), entry("libopenmpt.title")) << where;
            EXPECT_EQ(jsonQuoted(module->trackerName), entry("libopenmpt.tracker")) << where;
            EXPECT_EQ(module->channelCount, entry.number("libxmp.channels")) << where;
            EXPECT_EQ(module->channelCount, entry.number("libopenmpt.channels")) << where;
            // The stored order list, markers and all, as one player reports it.
            std::vector<int> orders(module->orders.begin(), module->orders.end()), recorded;
            for (int i = 0; i < entry.count("libxmp.orders"); ++i)
                recorded.push_back(entry.number("libxmp.orders[" + std::to_string(i) + "]"));
            EXPECT_EQ(orders, recorded) << where;
            // The other player drops the final end markers and widens both markers.
            while (!orders.empty() && orders.back() == orderEndOfSong)
                orders.pop_back();
            for (int& order : orders)
                order = order >= orderSkip ? order + 0xFF00 : order;
            recorded.clear();
            for (int i = 0; i < entry.count("libopenmpt.order_list"); ++i)
                recorded.push_back(entry.number("libopenmpt.order_list[" + std::to_string(i) + "]"));
            EXPECT_EQ(orders, recorded) << where;
            EXPECT_EQ(module->songLength, entry.number("libxmp.length")) << where;
            EXPECT_EQ(module->patterns.count(), entry.number("libopenmpt.patterns")) << where;
            EXPECT_EQ(module->subsongs.count(), entry.number("openmpt123_info.subsongs")) << where;
            ASSERT_EQ(module->samples.count(), entry.number("libxmp.samples")) << where;
            ASSERT_EQ(module->instruments.count(), entry.number("libopenmpt.samples")) << where;
            for (int i = 0; i < module->instruments.count(); ++i)
                expectSample(*module, entry, i, where + " sample " + std::to_string(i + 1));
            subsongStarts[file].clear();
            for (const Subsong& subsong : module->subsongs)
                subsongStarts[file].push_back(subsong.startPosition);
        }
    }
    // The second song starts after the end marker at position 19.
    EXPECT_EQ(subsongStarts["s3m/pachi_credits.s3m"], std::vector<int32_t>({0, 20}));
}

TEST(S3mCorpus, EveryPrefixFails) {
    REQUIRE_CORPUS();
    for (const char* file : s3mFiles) {
        std::vector<uint8_t> bytes = readWholeFile(corpusPath(file));
        ASSERT_GT(bytes.size(), 4096u) << file;
        // Every cut through the header, its tables and the first instrument
        // and pattern data, then cuts every 997 bytes and through the last sample's tail.
        std::vector<size_t> lengths;
        for (size_t length = 0; length < 4096; ++length)
            lengths.push_back(length);
        for (size_t length = 4096; length < bytes.size(); length += 997)
            lengths.push_back(length);
        for (size_t cut = 1; cut <= 64; ++cut)
            lengths.push_back(bytes.size() - cut);
        for (size_t length : lengths) {
            MemoryStream stream(bytes.data(), int32_t(length));
            Module module;
            EXPECT_FALSE(loadModule(module, stream, FormatS3m, 0)) << file << " cut at " << length;
            EXPECT_EQ(module.formatType, FormatNone) << file << " cut at " << length;
        }
    }
}
