// Helpers shared by the test binaries: corpus location, temporary files.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

// Absolute path of a file in the shared corpus, or "" when the corpus is absent.
std::string corpusPath(const std::string& relative);

// Skips the current test with a clear message when the corpus is missing.
#define REQUIRE_CORPUS()                                                              \
    do {                                                                              \
        if (corpusPath("").empty())                                                   \
            GTEST_SKIP() << "shared corpus not found at " OXA_CORPUS_DIR;             \
    } while (0)

// A fresh, empty directory for this test; removed with its contents at exit.
std::string temporaryDirectory();

std::vector<uint8_t> readWholeFile(const std::string& path);
bool writeWholeFile(const std::string& path, const std::vector<uint8_t>& bytes);

// Writes an ALSA configuration that keeps the system's and redefines
// "plughw" as the file plugin over the null device, writing raw PCM to
// `capturePath`. Point ALSA_CONFIG_PATH at it before libasound starts.
bool writeAlsaCaptureConfig(const std::string& configPath, const std::string& capturePath);
