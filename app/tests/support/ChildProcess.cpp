// ChildProcess: fork, exec and capture.
#include "app/tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "core/tests/support/TestSupport.h"

namespace {

// Starts `executable` in `dir` with the given descriptors (opened close-on-exec)
// as its standard input, output and error, and `environment` ("NAME=value") added.
pid_t spawn(const char* executable, const std::vector<std::string>& arguments, const std::string& dir,
            const std::vector<std::string>& environment, int in, int out, int err) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    dup2(in, 0), dup2(out, 1), dup2(err, 2);
    if (!dir.empty() && chdir(dir.c_str()) != 0)
        _exit(127);
    for (const std::string& variable : environment)
        putenv(strdup(variable.c_str()));
    std::vector<char*> argv = {const_cast<char*>(executable)};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execv(executable, argv.data());
    _exit(127);
}

int exitStatusOf(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string textOf(const std::string& path) {
    const std::vector<uint8_t> bytes = readWholeFile(path);
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace

// The outputs go to files, so that neither can fill a pipe while the other is read.
ProcessResult runProgram(const char* executable, const std::vector<std::string>& arguments, const char* stdinText,
                         const std::string& workingDirectory, const std::vector<std::string>& environment) {
    const std::string captures = temporaryDirectory();
    const std::string inPath = captures + "/in", outPath = captures + "/out", errPath = captures + "/err";
    writeWholeFile(inPath, stdinText ? std::vector<uint8_t>(stdinText, stdinText + std::strlen(stdinText))
                                     : std::vector<uint8_t>());
    const int in = open(inPath.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const pid_t child = spawn(executable, arguments, workingDirectory, environment, in, out, err);
    close(in), close(out), close(err);
    ProcessResult result;
    result.status = exitStatusOf(child);
    result.out = textOf(outPath);
    result.err = textOf(errPath);
    return result;
}

void expectOutcome(const ProcessResult& result, const ExpectedOutcome& expected,
                   const std::vector<std::string>& arguments) {
    std::string shown;
    for (const std::string& a : arguments)
        shown += "[" + a + "] ";
    EXPECT_EQ(result.status, expected.status) << shown;
    EXPECT_EQ(result.out, expected.out) << shown;
    EXPECT_EQ(result.err, expected.err) << shown;
}

// The FIFO paces the player: the file plugin blocks on it until we read.
std::vector<uint8_t> capturePlayback(const char* executable, const std::string& dir,
                                     const std::vector<std::string>& arguments, size_t wanted, int& status) {
    const std::string fifo = dir + "/capture.raw", config = dir + "/alsa.conf";
    unlink(fifo.c_str());
    mkfifo(fifo.c_str(), 0600);
    writeAlsaCaptureConfig(config, fifo);
    int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), input[2];
    if (reader < 0 || pipe2(input, O_CLOEXEC) != 0)
        return {};
    const int quiet = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t child = spawn(executable, arguments, dir, {"ALSA_CONFIG_PATH=" + config}, input[0], quiet, 2);
    close(input[0]), close(quiet);

    std::vector<uint8_t> captured;
    bool inputOpen = true, exited = false;
    for (int idle = 0; idle < 100 && !exited;) {
        if (inputOpen && captured.size() >= wanted) {
            close(input[1]);  // the key press
            inputOpen = false;
        }
        pollfd fd = {reader, POLLIN, 0};
        if (poll(&fd, 1, 100) <= 0) {
            ++idle;  // the writer may not have opened yet, or has gone
            exited = waitpid(child, &status, WNOHANG) == child;
            continue;
        }
        uint8_t chunk[65536];
        const ssize_t n = read(reader, chunk, sizeof chunk);
        if (n > 0)
            captured.insert(captured.end(), chunk, chunk + n);
        else if (n == 0 && !inputOpen)
            break;  // the program closed the device
        else if (n == 0)
            usleep(1000);
    }
    if (inputOpen)
        close(input[1]);
    close(reader);
    status = exited ? (WIFEXITED(status) ? WEXITSTATUS(status) : -1) : exitStatusOf(child);
    return captured;
}
