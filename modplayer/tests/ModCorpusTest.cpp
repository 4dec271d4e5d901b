// Loads every real module of the shared corpus and compares it with what
// mod/modinfo.json records from the raw bytes and from two other players.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MemoryStream.h"
#include "ModuleLoader.h"
#include "TestSupport.h"

using namespace mod;

namespace {

// Just enough JSON for modinfo.json: strings become code points (the names
// are 8-bit text written as \u escapes), numbers doubles.
struct Json {
    std::u32string text;
    double number = 0;
    bool flag = false;
    std::vector<Json> items;
    std::map<std::string, Json> members;

    const Json& operator[](const char* key) const { return members.at(key); }
    int asInt() const { return int(number); }
    std::string ascii() const { return std::string(text.begin(), text.end()); }
};

class JsonReader {
public:
    explicit JsonReader(const std::vector<uint8_t>& bytes) : bytes(bytes) {}

    Json value() {
        Json result;
        skipSpace();
        uint8_t c = bytes.at(at);
        if (c == '{') {
            for (++at; skipSpace(), bytes.at(at) != '}';) {
                std::u32string key = string();
                skipSpace();
                ++at;  // ':'
                result.members[std::string(key.begin(), key.end())] = value();
                skipSpace();
                if (bytes.at(at) == ',')
                    ++at;
            }
            ++at;
        } else if (c == '[') {
            for (++at; skipSpace(), bytes.at(at) != ']';) {
                result.items.push_back(value());
                skipSpace();
                if (bytes.at(at) == ',')
                    ++at;
            }
            ++at;
        } else if (c == '"') {
            result.text = string();
        } else if (c == 't' || c == 'f' || c == 'n') {
            result.flag = c == 't';
            at += c == 'f' ? 5 : 4;
        } else {
            char* end = nullptr;
            std::string rest(bytes.begin() + at, bytes.begin() + std::min(bytes.size(), at + 32));
            result.number = std::strtod(rest.c_str(), &end);
            at += size_t(end - rest.c_str());
        }
        return result;
    }

private:
    void skipSpace() {
        while (at < bytes.size() && (bytes[at] == ' ' || bytes[at] == '\n' || bytes[at] == '\r' || bytes[at] == '\t'))
            ++at;
    }

    std::u32string string() {
        std::u32string text;
        for (++at; bytes.at(at) != '"'; ++at) {
            char32_t c = bytes[at];
            if (c == '\\') {
                c = bytes.at(++at);
                if (c == 'u') {
                    c = char32_t(std::stoul(std::string(bytes.begin() + at + 1, bytes.begin() + at + 5), nullptr, 16));
                    at += 4;
                } else if (c == 'n') {
                    c = '\n';
                } else if (c == 't') {
                    c = '\t';
                }
            }
            text.push_back(c);
        }
        ++at;
        return text;
    }

    const std::vector<uint8_t>& bytes;
    size_t at = 0;
};

std::u32string codePointsOf(const String& text) {
    return std::u32string(text.codePoints(), text.codePoints() + text.length());
}

void expectSample(const Module& module, const Json& expected, const std::string& where) {
    int slot = expected["n"].asInt() - 1;
    const ModuleInstrument& instrument = module.instruments[slot];
    EXPECT_EQ(codePointsOf(instrument.name), expected["name"].text) << where;
    int length = expected["len_bytes"].asInt();
    if (length == 0) {
        EXPECT_EQ(instrument.sampleIndices.count(), 0) << where;
        return;
    }
    ASSERT_EQ(instrument.sampleIndices.count(), 1) << where;
    const ModuleSample& sample = module.samples[instrument.sampleIndices[0]];
    EXPECT_EQ(codePointsOf(sample.name), expected["name"].text) << where;
    EXPECT_EQ(sample.data->length, uint32_t(length)) << where;
    EXPECT_EQ(sample.data->isLooped(), expected["looped"].flag) << where;
    if (expected["looped"].flag) {
        int loopStart = expected["loop_start_bytes"].asInt();
        EXPECT_EQ(sample.data->loopStart, uint32_t(loopStart)) << where;
        EXPECT_EQ(sample.data->loopEnd, uint32_t(std::min(length, loopStart + expected["loop_len_bytes"].asInt()))) << where;
    }
    EXPECT_EQ(sample.volume, std::min(expected["volume"].asInt(), 64) * 255 / 64) << where;
    EXPECT_EQ(sample.finetune, expected["finetune"].asInt() * 16) << where;
}

void expectModule(const Module& module, const Json& info, const std::string& where) {
    const Json& raw = info["raw"];
    EXPECT_EQ(module.formatType, FormatMod) << where;
    EXPECT_EQ(codePointsOf(module.title), raw["title"].text) << where;
    EXPECT_EQ(module.channelCount, raw["channels"].asInt()) << where;
    EXPECT_EQ(module.songLength, raw["song_length"].asInt()) << where;
    EXPECT_EQ(module.patterns.count(), raw["patterns"].asInt()) << where;
    EXPECT_EQ(module.subsongs.count(), info["openmpt123_info"]["subsongs"].asInt()) << where;
    const std::vector<Json>& songOrders = raw["orders_in_song"].items;
    for (size_t i = 0; i < songOrders.size(); ++i)
        EXPECT_EQ(module.orders[int32_t(i)], songOrders[i].asInt()) << where << " order " << i;
    ASSERT_EQ(module.instruments.count(), 31) << where;
    EXPECT_EQ(module.samples.count(), raw["nonempty_samples"].asInt()) << where;
    for (const Json& sample : raw["samples"].items)
        expectSample(module, sample, where + " sample " + std::to_string(sample["n"].asInt()));
}

}  // namespace

TEST(ModCorpus, EveryModuleLoadsAsRecorded) {
    REQUIRE_CORPUS();
    std::vector<uint8_t> json = readWholeFile(corpusPath("mod/modinfo.json"));
    ASSERT_FALSE(json.empty());
    Json infos = JsonReader(json).value();
    ASSERT_EQ(infos.items.size(), 8u);
    for (const Json& info : infos.items) {
        std::string file = info["file"].ascii();
        std::vector<uint8_t> bytes = readWholeFile(corpusPath(file));
        ASSERT_FALSE(bytes.empty()) << file;
        for (int32_t format : {FormatAutomatic, FormatMod}) {
            MemoryStream stream(bytes.data(), int32_t(bytes.size()));
            auto module = std::make_unique<Module>();
            ASSERT_TRUE(loadModule(*module, stream, format, 0)) << file << " format " << format;
            expectModule(*module, info, file + " format " + std::to_string(format));
        }
    }
}

TEST(ModCorpus, KnownFacts) {
    REQUIRE_CORPUS();
    const struct { const char* file; int32_t channels, subsongs; } cases[] = {
        {"mod/starpaws.mod", 6, 1},
        {"mod/kollaps-tron.mod", 4, 2},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> bytes = readWholeFile(corpusPath(c.file));
        MemoryStream stream(bytes.data(), int32_t(bytes.size()));
        Module module;
        ASSERT_TRUE(loadModule(module, stream, FormatAutomatic, 0)) << c.file;
        EXPECT_EQ(module.channelCount, c.channels) << c.file;
        EXPECT_EQ(module.subsongs.count(), c.subsongs) << c.file;
        EXPECT_EQ(module.playbackMode, ModeMod31) << c.file;
    }
}
