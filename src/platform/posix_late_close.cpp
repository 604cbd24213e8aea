// The last close of a deleted file, on a thread of its own.
//
// Closing the last descriptor of a file whose name is gone gives the file's
// blocks back, and on a file system mounted to trim the disk on each delete
// that close waits for the disk: 30 ms for a 100 MB table on our machines,
// twice what writing the table takes. A commit that deletes its backup
// hands that close to a thread and returns.
//
// The room comes back before the library takes room again: a write first
// waits for the thread, which has ended long since unless the write follows
// the delete closely. So does the next late close, and the library's
// unload or the process's exit, so that no thread runs the library's code
// after it is gone. A child of fork() has none of its parent's threads: it
// never waits for them.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <new>

#include "platform/posix_internal.h"

namespace mergedb::posix {
namespace {

struct Started {
    pthread_t thread;
    pid_t process;
};

std::atomic<Started *> lastStarted{nullptr};

void *closeDescriptor(void *fd) {
    close(static_cast<int>(reinterpret_cast<intptr_t>(fd)));
    return nullptr;
}

void waitFor(Started *started) {
    if (started == nullptr) return;
    if (started->process == getpid()) pthread_join(started->thread, nullptr);
    delete started;
}

// The thread of a close, or null where none could start.
Started *startClose(int fd) {
    auto *started = new (std::nothrow) Started{{}, getpid()};
    if (started == nullptr) return nullptr;
    void *argument = reinterpret_cast<void *>(static_cast<intptr_t>(fd));
    if (pthread_create(&started->thread, nullptr, closeDescriptor, argument) == 0) return started;
    delete started;
    return nullptr;
}

struct WaitAtUnload {
    ~WaitAtUnload() { waitFor(lastStarted.exchange(nullptr)); }
} waitAtUnload;

}  // namespace

void closeLater(int fd) {
    Started *started = startClose(fd);
    if (started == nullptr) close(fd);
    waitFor(lastStarted.exchange(started));
}

void waitForLateCloses() {
    if (lastStarted.load(std::memory_order_relaxed) != nullptr) waitFor(lastStarted.exchange(nullptr));
}

}  // namespace mergedb::posix
