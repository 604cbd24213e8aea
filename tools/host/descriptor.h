// A file descriptor that closes itself; negative when the open failed.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace mergedb::host {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// count bytes of fd at offset, passing over interrupted calls. False when
// they did not all come: errno tells the failure, 0 a file that ends
// sooner.
inline bool readExactly(int fd, char *buffer, size_t count, uint64_t offset) {
    for (size_t done = 0; done < count;) {
        ssize_t got = ::pread(fd, buffer + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            if (got == 0) errno = 0;
            return false;
        }
        done += static_cast<size_t>(got);
    }
    return true;
}

}  // namespace mergedb::host
