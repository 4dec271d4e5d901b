// ProcessRunner: fork, exec and capture.
#include "app/tests/ProcessRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

const char* const usageText =
    "Oxa audio codec v1.0\n"
    "usage: Oxa [args] <file> [-o <outfile>]\n"
    "       -d decompress\n"
    "       -p force playback\n"
    "       -f force to overwrite output\n"
    "       -o override output file\n"
    "       -v verbose mode\n"
    "       -t <n> ATH offset in dB (0=default, <0 causes less cutoffs)\n"
    "       -q <n> set quantization bits (4-8, 5=default)\n"
    "       -w <n> specify window size (2^n, 2048=default)\n"
    "       -l <n> specify playback latency in msec (50=default)\n"
    "              increase this if you experience playback problems\n";

ProcessResult runOxa(const std::vector<std::string>& arguments, const char* stdinText,
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
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(OXA_EXECUTABLE));
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(OXA_EXECUTABLE, argv.data());
        _exit(127);
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
