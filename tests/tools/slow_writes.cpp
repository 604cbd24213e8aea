// Loaded in front of the C library by the crash test: every write of 64 KiB
// or more at a position takes 20 ms longer, so that a kill can land between
// the writes of a commit rather than only before or after them.
#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

extern "C" ssize_t pwrite(int fd, const void *buffer, size_t count, off_t offset) {
    using Write = ssize_t (*)(int, const void *, size_t, off_t);
    static auto real = reinterpret_cast<Write>(dlsym(RTLD_NEXT, "pwrite"));
    ssize_t written = real(fd, buffer, count, offset);
    if (count >= 65536) {
        struct timespec pause = {0, 20 * 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    return written;
}
