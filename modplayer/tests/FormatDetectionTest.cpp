// Automatic format detection: every MOD, S3M and XM of the shared corpus
// goes to its own loader, and whatever no other loader claims ends in the
// MOD loader.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "core/MemoryStream.h"
#include "core/tests/support/TestSupport.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/XmFormat.h"

using namespace mod;

namespace {

std::vector<std::string> corpusFiles(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(corpusPath(folder), error))
        if (entry.path().extension() == "." + folder)
            files.push_back(folder + "/" + entry.path().filename().string());
    std::sort(files.begin(), files.end());
    return files;
}

int32_t loadedFormat(const std::vector<uint8_t>& bytes, int32_t format) {
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    Module module;
    return loadModule(module, stream, format, 0) ? module.formatType : int32_t(FormatNone);
}

}  // namespace

TEST(FormatDetection, CorpusModsAndXmsGoToTheirOwnLoader) {
    REQUIRE_CORPUS();
    for (const auto& [folder, format] : {std::pair("mod", FormatMod), std::pair("xm", FormatXm)}) {
        std::vector<std::string> files = corpusFiles(folder);
        EXPECT_GE(files.size(), 5u) << folder;
        for (const std::string& file : files)
            EXPECT_EQ(loadedFormat(readWholeFile(corpusPath(file)), FormatAutomatic), format) << file;
    }
}

// Passes once the S3M loader reads the corpus; skipped in builds without it.
TEST(FormatDetection, CorpusS3msGoToTheS3mLoader) {
    REQUIRE_CORPUS();
    std::vector<std::string> files = corpusFiles("s3m");
    ASSERT_GE(files.size(), 3u);
    for (const std::string& file : files) {
        std::vector<uint8_t> bytes = readWholeFile(corpusPath(file));
        if (loadedFormat(bytes, FormatS3m) != FormatS3m)
            GTEST_SKIP() << "the S3M loader in this build does not read " << file;
        EXPECT_EQ(loadedFormat(bytes, FormatXm), FormatNone) << file;
        EXPECT_EQ(loadedFormat(bytes, FormatAutomatic), FormatS3m) << file;
    }
}

// An untagged MOD of zeros (600-byte header, one 1024-byte pattern) whose
// first bytes come close to an XM header.
TEST(FormatDetection, NearXmHeadersEndInTheModLoader) {
    const struct { const char* what; const char* id; uint16_t version; } cases[] = {
        {"zeros", "", 0},
        {"version 0x0103", xmIdText, 0x0103},
        {"version 0x0102", xmIdText, 0x0102},
        {"version bytes swapped", xmIdText, 0x0401},
        {"id text one byte off", "Extended Module; ", xmVersion},
        {"id text in capitals", "EXTENDED MODULE: ", xmVersion},
        {"an XM whose song header is broken", xmIdText, xmVersion},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> bytes(1624, 0);
        std::memcpy(bytes.data(), c.id, std::strlen(c.id));
        bytes[xmVersionOffset] = uint8_t(c.version);
        bytes[xmVersionOffset + 1] = uint8_t(c.version >> 8);
        EXPECT_EQ(loadedFormat(bytes, FormatXm), FormatNone) << c.what;
        EXPECT_EQ(loadedFormat(bytes, FormatAutomatic), FormatMod) << c.what;
    }
}
