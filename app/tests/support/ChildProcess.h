// ChildProcess: runs a built executable of this project as a user would,
// feeding its standard input and capturing what it prints, or what it plays
// through ALSA. Shared by the Oxa and OxaMod test binaries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct ProcessResult {
    int status = -1;  // exit status, or -1 when it did not exit normally
    std::string out;
    std::string err;
};

// What a run must have given: its exit status and both output streams, exactly.
struct ExpectedOutcome {
    int status;
    std::string out, err;
};
// Checks `result` against `expected`, naming the arguments in each failure.
void expectOutcome(const ProcessResult& result, const ExpectedOutcome& expected,
                   const std::vector<std::string>& arguments);

// stdinText null: standard input is closed (end of input at once).
ProcessResult runProgram(const char* executable, const std::vector<std::string>& arguments,
                         const char* stdinText = nullptr, const std::string& workingDirectory = "",
                         const std::vector<std::string>& environment = {});

// Runs the executable in `dir` with "plughw" redefined as the file plugin
// over the null device writing into a FIFO, and returns the raw PCM it
// played: once `wantedBytes` have come, standard input is closed (the key
// press) and the FIFO is drained until the program has ended.
std::vector<uint8_t> capturePlayback(const char* executable, const std::string& dir,
                                     const std::vector<std::string>& arguments, size_t wantedBytes, int& status);
