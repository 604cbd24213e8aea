// A child process of the test, forked before the test opens any table so
// that it shares none of the test's open files, with a pipe each way.
#pragma once

#include <cstdint>
#include <functional>
#include <sys/types.h>

namespace mergedb::test {

class ChildProcess {
public:
    // Runs body in the child, which then ends with body's result as its
    // exit status. body reads what the test sends with receive and answers
    // with send.
    explicit ChildProcess(const std::function<int(ChildProcess &)> &body);
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // A word to the other side; receive gives false when that side is gone.
    void send(uint32_t word);
    bool receive(uint32_t *word);

    // Kills the child without warning, or waits for its end; gives its exit
    // status, or -1 when it was killed.
    int kill();
    int wait();

private:
    pid_t pid_ = -1;
    int in_ = -1;   // what the other side sends
    int out_ = -1;  // what this side sends
};

}  // namespace mergedb::test
