// CorpusRecord: what the shared corpus's reports (mod/modinfo.json and
// trackers_info.json) say about one module, with the module's bytes. Used by
// the module corpus tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/MemoryStream.h"
#include "core/String.h"
#include "core/tests/support/TestSupport.h"
#include "modplayer/ModuleLoader.h"

using JsonValues = std::map<std::string, std::string>;

// A JSON file written one value or bracket per line, flattened to
// "path -> scalar as written": "[5].libxmp.sample_list[0].len" -> "30092".
inline JsonValues flattenJson(const std::vector<uint8_t>& bytes) {
    struct Level { std::string path; bool isArray; int next; };
    std::vector<Level> levels;
    JsonValues values;
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    for (std::string line; std::getline(lines, line);) {
        size_t begin = line.find_first_not_of(' ');
        if (begin == std::string::npos)
            continue;
        std::string item = line.substr(begin);
        if (item.back() == ',')
            item.pop_back();
        if (item == "}" || item == "]") {
            levels.pop_back();
            continue;
        }
        std::string path = levels.empty() ? "" : levels.back().path;
        size_t colon = item.find("\": ");
        if (!levels.empty() && levels.back().isArray) {
            path += "[" + std::to_string(levels.back().next++) + "]";
        } else if (colon != std::string::npos) {
            path += "." + item.substr(1, colon - 1);
            item = item.substr(colon + 3);
        }
        if (item == "{" || item == "[")
            levels.push_back({path, item == "[", 0});
        else
            values[path] = item;
    }
    return values;
}

// A module's text quoted the way the reports write it (8-bit names as \u escapes).
inline std::string jsonQuoted(const String& text) {
    std::string out = "\"";
    for (int32_t i = 0; i < text.length(); ++i) {
        uint32_t c = text[i];
        char piece[8];
        const char* form = c < 0x20 || c > 0x7F ? "\\u%04x" : c == '"' || c == '\\' ? "\\%c" : "%c";
        std::snprintf(piece, sizeof piece, form, unsigned(c));
        out += piece;
    }
    return out + "\"";
}

// The values below one path of a flattened report: a module ("[5]") or a
// record inside it ("[5].raw.samples[2]").
struct CorpusRecord {
    const JsonValues* values;
    std::string prefix;

    std::string operator[](const std::string& key) const {
        auto found = values->find(prefix + "." + key);
        return found == values->end() ? "" : found->second;
    }
    int number(const std::string& key) const {
        EXPECT_TRUE(values->count(prefix + "." + key)) << prefix << " has no " << key;
        return std::atoi((*this)[key].c_str());
    }
    CorpusRecord operator()(const std::string& key, int index) const {
        return {values, prefix + "." + key + "[" + std::to_string(index) + "]"};
    }
    // Entries of the array `key`, scalars or records.
    int count(const std::string& key) const {
        for (int n = 0;; ++n) {
            std::string below = (*this)(key, n).prefix;
            auto found = values->lower_bound(below);
            if (found == values->end() || found->first.compare(0, below.size(), below) != 0)
                return n;
        }
    }
    std::string file() const { return (*this)["file"].substr(1, (*this)["file"].size() - 2); }
    std::vector<uint8_t> bytes() const { return readWholeFile(corpusPath(file())); }
};

// The record of every module in `folder` ("mod", "s3m" or "xm"), in the
// report's order; each report is read once.
inline std::vector<CorpusRecord> corpusRecords(const std::string& folder) {
    static std::map<std::string, JsonValues> reports;
    std::string report = folder == "mod" ? "mod/modinfo.json" : "trackers_info.json";
    JsonValues& values = reports[report];
    if (values.empty())
        values = flattenJson(readWholeFile(corpusPath(report)));
    std::vector<CorpusRecord> records;
    for (int i = 0; values.count("[" + std::to_string(i) + "].file"); ++i) {
        CorpusRecord record{&values, "[" + std::to_string(i) + "]"};
        if (record.file().starts_with(folder + "/"))
            records.push_back(record);
    }
    return records;
}

// The module `bytes` hold, loaded as `format`; null when the loader refuses it.
inline std::unique_ptr<mod::Module> loadedModule(const std::vector<uint8_t>& bytes, int32_t format) {
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    auto module = std::make_unique<mod::Module>();
    return mod::loadModule(*module, stream, format, 0) ? std::move(module) : nullptr;
}

// Loads the record's file by detection and as `format`, checks that both
// loads give that format and `mode`, and hands each module to `check` with a
// label for its messages.
template <typename Check>
void forBothLoads(const CorpusRecord& info, int32_t format, int32_t mode, Check check) {
    std::vector<uint8_t> bytes = info.bytes();
    for (int32_t asked : {int32_t(mod::FormatAutomatic), format}) {
        std::string where = info.file() + " format " + std::to_string(asked);
        std::unique_ptr<mod::Module> module = loadedModule(bytes, asked);
        ASSERT_TRUE(module) << where;
        EXPECT_EQ(std::pair(module->formatType, module->playbackMode), std::pair(format, mode)) << where;
        check(*module, where);
    }
}
