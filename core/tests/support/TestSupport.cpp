// Helpers shared by the test binaries.
#include "core/tests/support/TestSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>

std::string corpusPath(const std::string& relative) {
    struct stat info;
    if (stat(OXA_CORPUS_DIR, &info) != 0 || !S_ISDIR(info.st_mode))
        return "";
    return std::string(OXA_CORPUS_DIR) + "/" + relative;
}

namespace {
std::vector<std::string>& createdDirectories() {
    static std::vector<std::string>* directories = [] {
        auto* list = new std::vector<std::string>;
        std::atexit([] {
            for (const std::string& dir : createdDirectories())
                std::system(("rm -rf '" + dir + "'").c_str());
        });
        return list;
    }();
    return *directories;
}
}  // namespace

std::string temporaryDirectory() {
    char pattern[] = "/tmp/oxa-test-XXXXXX";
    const char* dir = mkdtemp(pattern);
    if (!dir)
        return "/tmp";
    createdDirectories().push_back(dir);
    return dir;
}

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint8_t> bytes(n);
    for (uint8_t& b : bytes)
        b = uint8_t(random());
    return bytes;
}

std::vector<uint8_t> readWholeFile(const std::string& path) {
    std::vector<uint8_t> bytes;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
        return bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + n);
    std::fclose(f);
    return bytes;
}

bool writeWholeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    bool ok = bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
}

bool writeAlsaCaptureConfig(const std::string& configPath, const std::string& capturePath) {
    std::string config =
        "</usr/share/alsa/alsa.conf>\n"
        "pcm.!plughw {\n"
        "  @args [ CARD DEV SUBDEV ]\n"
        "  @args.CARD { type string }\n"
        "  @args.DEV { type integer }\n"
        "  @args.SUBDEV { type integer default -1 }\n"
        "  type file\n"
        "  slave.pcm \"null\"\n"
        "  file \"" + capturePath + "\"\n"
        "  format \"raw\"\n"
        "}\n";
    return writeWholeFile(configPath, std::vector<uint8_t>(config.begin(), config.end()));
}
