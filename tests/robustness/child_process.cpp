// Processes are forked: POSIX only.
#if !defined(_WIN32)

#include "robustness/child_process.h"

#include <csignal>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace mergedb::test {

ChildProcess::ChildProcess(const std::function<int(ChildProcess &)> &body) {
    int down[2];
    int up[2];
    if (pipe(down) != 0 || pipe(up) != 0) std::abort();
    pid_ = fork();
    if (pid_ < 0) std::abort();
    if (pid_ == 0) {
        close(down[1]);
        close(up[0]);
        in_ = down[0];
        out_ = up[1];
        // The child leaves without the test's exit handlers.
        _exit(body(*this));
    }
    close(down[0]);
    close(up[1]);
    in_ = up[0];
    out_ = down[1];
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) kill();
    close(in_);
    close(out_);
}

void ChildProcess::send(uint32_t word) {
    if (write(out_, &word, sizeof word) != sizeof word) std::abort();
}

bool ChildProcess::receive(uint32_t *word) { return read(in_, word, sizeof *word) == sizeof *word; }

int ChildProcess::kill() {
    ::kill(pid_, SIGKILL);
    return wait();
}

int ChildProcess::wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace mergedb::test

#endif
