// Fuzz target: the command-line parser, the path helpers and UTF-8 decoding
// on arbitrary bytes. The input is split into arguments at NUL bytes.
#include <cstdint>
#include <string>
#include <vector>

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "core/String.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> arguments = {"Oxa"};
    std::string current;
    for (size_t i = 0; i < size && arguments.size() < 64; ++i) {
        if (data[i] == 0) {
            arguments.push_back(current);
            current.clear();
        } else {
            current.push_back(char(data[i]));
        }
    }
    arguments.push_back(current);

    std::vector<char*> argv;
    for (std::string& a : arguments)
        argv.push_back(a.data());
    settings = Settings();
    parseArguments(int(argv.size()), argv.data());

    String text(reinterpret_cast<const char*>(data), int32_t(size));
    String normal = normalizePath(text);
    String renamed = setExtension(text, "oxa");
    String joined = joinPath(text, normal);
    // Text without NUL bytes comes back byte for byte, valid UTF-8 or not.
    if (std::string(text.c_str()).size() == size && std::string(text.c_str()) != std::string(data, data + size))
        __builtin_trap();
    (void)renamed;
    (void)joined;
    settings = Settings();
    return 0;
}
