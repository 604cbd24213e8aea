// The last close of a deleted file, on a thread of its own.
//
// Closing the last descriptor of a file whose name is gone gives the file's
// blocks back, and on a file system mounted to trim the disk on each delete
// that close waits for the disk: 30 ms for a 100 MB table on our machines,
// twice what writing the table takes. A commit that deletes its backup
// hands that close to a thread and returns.
//
// The room comes back before this library writes again: a write first waits
// for the thread, which has ended long since unless the write follows the
// delete closely. So do the next late close, a fork() (so that no child
// inherits the descriptor and keeps the blocks), and the library's unload
// or the process's exit, so that no thread runs the library's code after it
// is gone. Like the rest of the library this serves one caller at a time.
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <mutex>
#include <new>

#include "platform/posix_internal.h"

namespace mergedb::posix {
namespace {

// The thread of the last late close, until someone waits for it.
pthread_t *lastStarted = nullptr;

void *closeDescriptor(void *fd) {
    close(static_cast<int>(reinterpret_cast<intptr_t>(fd)));
    return nullptr;
}

void waitForLast() {
    pthread_t *started = lastStarted;
    lastStarted = nullptr;
    if (started == nullptr) return;
    pthread_join(*started, nullptr);
    delete started;
}

// The thread of a close, or null where none could start.
pthread_t *startClose(int fd) {
    auto *started = new (std::nothrow) pthread_t;
    if (started == nullptr) return nullptr;
    void *argument = reinterpret_cast<void *>(static_cast<intptr_t>(fd));
    if (pthread_create(started, nullptr, closeDescriptor, argument) == 0) return started;
    delete started;
    return nullptr;
}

// A fork waits for the close before it copies the descriptors. Should a
// close start between that wait and the copy, the child forgets its thread,
// which it does not have.
void registerForkHandlers() {
    static std::once_flag registered;
    std::call_once(registered, [] { pthread_atfork(waitForLast, nullptr, [] { lastStarted = nullptr; }); });
}

struct WaitAtUnload {
    ~WaitAtUnload() { waitForLast(); }
} waitAtUnload;

}  // namespace

void closeLater(int fd) {
    registerForkHandlers();
    waitForLast();
    lastStarted = startClose(fd);
    if (lastStarted == nullptr) close(fd);
}

void waitForLateCloses() {
    if (lastStarted != nullptr) waitForLast();
}

}  // namespace mergedb::posix
