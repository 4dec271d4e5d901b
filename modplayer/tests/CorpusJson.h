// Readers of the corpus's JSON records (modinfo.json, trackers_info.json)
// shared by the module corpus tests.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "core/String.h"

// A JSON file written one value or bracket per line, flattened to
// "path -> scalar as written": "[5].libxmp.sample_list[0].len" -> "30092".
inline std::map<std::string, std::string> flattenJson(const std::vector<uint8_t>& bytes) {
    struct Level { std::string path; bool isArray; int next; };
    std::vector<Level> levels;
    std::map<std::string, std::string> values;
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

// A module's text quoted the way the records write it (8-bit names as \u escapes).
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
