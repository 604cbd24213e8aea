#include "bench_flush.h"

#include <dlfcn.h>

#include <chrono>

namespace {

std::chrono::steady_clock::duration flushing{};

}  // namespace

extern "C" int fsync(int fd) {
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    auto start = std::chrono::steady_clock::now();
    int result = real(fd);
    flushing += std::chrono::steady_clock::now() - start;
    return result;
}

namespace mergedb::bench {

double flushSeconds() { return std::chrono::duration<double>(flushing).count(); }

void flushReset() { flushing = {}; }

}  // namespace mergedb::bench
