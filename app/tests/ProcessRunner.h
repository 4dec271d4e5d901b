// ProcessRunner: runs the built Oxa executable as a user would, feeding its
// standard input and capturing both output streams separately.
#pragma once

#include <string>
#include <vector>

struct ProcessResult {
    int status = -1;  // exit status, or -1 when it did not exit normally
    std::string out;
    std::string err;
};

// stdinText null: standard input is closed (end of input at once).
ProcessResult runOxa(const std::vector<std::string>& arguments, const char* stdinText = nullptr,
                     const std::string& workingDirectory = "", const std::vector<std::string>& environment = {});

// The usage text exactly as the tool prints it.
extern const char* const usageText;
