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

[[noreturn]] void execute(const char* executable, const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(executable));
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execv(executable, argv.data());
    _exit(127);
}

}  // namespace

ProcessResult runProgram(const char* executable, const std::vector<std::string>& arguments, const char* stdinText,
                         const std::string& workingDirectory, const std::vector<std::string>& environment) {
    int in[2], out[2], err[2];
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0)
        return {};
    pid_t child = fork();
    if (child == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
            close(fd);
        if (!workingDirectory.empty() && chdir(workingDirectory.c_str()) != 0)
            _exit(127);
        for (const std::string& variable : environment)
            putenv(strdup(variable.c_str()));
        execute(executable, arguments);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    if (stdinText) {
        ssize_t ignored = write(in[1], stdinText, std::strlen(stdinText));
        (void)ignored;
    }
    close(in[1]);

    ProcessResult result;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    for (int open = 2; open > 0;) {
        if (poll(fds, 2, -1) < 0)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP)))
                continue;
            char chunk[4096];
            ssize_t n = read(fds[i].fd, chunk, sizeof chunk);
            if (n > 0) {
                sinks[i]->append(chunk, size_t(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

std::vector<uint8_t> capturePlayback(const char* executable, const std::string& dir,
                                     const std::vector<std::string>& arguments, size_t wanted, int& status) {
    std::string fifo = dir + "/capture.raw";
    unlink(fifo.c_str());
    mkfifo(fifo.c_str(), 0600);
    std::string config = dir + "/alsa.conf";
    writeAlsaCaptureConfig(config, fifo);

    int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    int input[2];
    if (reader < 0 || pipe(input) != 0)
        return {};
    pid_t child = fork();
    if (child == 0) {
        dup2(input[0], 0);
        close(input[0]);
        close(input[1]);
        close(reader);
        int quiet = open("/dev/null", O_WRONLY);
        dup2(quiet, 1);
        if (chdir(dir.c_str()) != 0)
            _exit(127);
        setenv("ALSA_CONFIG_PATH", config.c_str(), 1);
        execute(executable, arguments);
    }
    close(input[0]);
    std::vector<uint8_t> captured;
    bool inputOpen = true;
    for (int idle = 0; idle < 100;) {
        if (inputOpen && captured.size() >= wanted) {
            close(input[1]);
            inputOpen = false;
        }
        pollfd fd = {reader, POLLIN, 0};
        if (poll(&fd, 1, 100) <= 0) {
            ++idle;  // the writer may not have opened yet, or has gone
            if (waitpid(child, &status, WNOHANG) == child) {
                child = -1;
                break;
            }
            continue;
        }
        uint8_t chunk[65536];
        ssize_t n = read(reader, chunk, sizeof chunk);
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
    if (child > 0)
        waitpid(child, &status, 0);
    status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return captured;
}
