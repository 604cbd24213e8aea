#include "bench_peers.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

#ifdef MERGEDB_BENCH_LIBCSV
#include <csv.h>
#endif

extern char **environ;

namespace mergedb::bench {
namespace {

constexpr size_t BLOCK = 1 << 20;

// An open file descriptor, closed when it goes.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (fd_ >= 0) close(fd_);
    }
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

private:
    int fd_;
};

// Calls consume(bytes, count) for each block of the file. False when a
// read fails.
template <typename Consume>
bool readBlocks(const std::string &path, Consume consume) {
    Descriptor file(open(path.c_str(), O_RDONLY));
    if (!file.valid()) return false;
    auto block = std::make_unique<char[]>(BLOCK);
    for (;;) {
        ssize_t got = read(file.get(), block.get(), BLOCK);
        if (got < 0) return false;
        if (got == 0) return true;
        consume(block.get(), static_cast<size_t>(got));
    }
}

#ifdef MERGEDB_BENCH_LIBCSV
// The same work as a host's read of a field: the value into a buffer.
struct CsvSink {
    WalkTotals totals;
    char buffer[BUFFER_TEXT_LIMIT + 2];
};

void csvField(void *field, size_t length, void *data) {
    auto &sink = *static_cast<CsvSink *>(data);
    size_t count = std::min(length, BUFFER_TEXT_LIMIT);
    if (count != 0) std::memcpy(sink.buffer, field, count);
    sink.buffer[count] = '\0';
    sink.totals.textBytes += count;
}

void csvRecord(int, void *data) { static_cast<CsvSink *>(data)->totals.records++; }
#endif

}  // namespace

bool haveLibcsv() {
#ifdef MERGEDB_BENCH_LIBCSV
    return true;
#else
    return false;
#endif
}

std::optional<WalkTotals> libcsvWalk([[maybe_unused]] const std::string &path) {
#ifdef MERGEDB_BENCH_LIBCSV
    csv_parser parser{};
    if (csv_init(&parser, 0) != 0) return std::nullopt;
    CsvSink sink{};
    bool parsed = true;
    bool read = readBlocks(path, [&](const char *bytes, size_t count) {
        if (csv_parse(&parser, bytes, count, csvField, csvRecord, &sink) != count) parsed = false;
    });
    parsed = read && parsed && csv_fini(&parser, csvField, csvRecord, &sink) == 0;
    csv_free(&parser);
    if (!parsed) return std::nullopt;
    return sink.totals;
#else
    return std::nullopt;
#endif
}

std::optional<uint64_t> countLineEnds(const std::string &path) {
    uint64_t count = 0;
    bool read = readBlocks(path, [&count](const char *bytes, size_t size) {
        const char *end = bytes + size;
        for (const char *p = bytes; (p = static_cast<const char *>(std::memchr(p, '\n', end - p))) != nullptr; ++p) {
            ++count;
        }
    });
    if (!read) return std::nullopt;
    return count;
}

bool copyFile(const std::string &from, const std::string &to) {
    Descriptor target(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
    if (!target.valid()) return false;
    bool written = true;
    bool read = readBlocks(from, [&](const char *bytes, size_t count) {
        if (written && write(target.get(), bytes, count) != static_cast<ssize_t>(count)) written = false;
    });
    return read && written;
}

ChildRun runChild(const std::vector<std::string> &argv) {
    ChildRun run;
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return run;
    Descriptor reading(pipeEnds[0]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    std::vector<char *> args;
    for (const std::string &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);

    auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    int spawned = posix_spawn(&child, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    if (spawned != 0) return run;
    char chunk[4096];
    for (ssize_t got; (got = read(reading.get(), chunk, sizeof chunk)) > 0;) run.output.append(chunk, got);
    int status = 0;
    if (waitpid(child, &status, 0) != child) return run;
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.exitedCleanly = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return run;
}

bool childSucceeds(const std::vector<std::string> &argv) {
    return access(argv[0].c_str(), X_OK) == 0 && runChild(argv).exitedCleanly;
}

}  // namespace mergedb::bench
