// What the driver is measured against: other readers of the same delimited
// file, a plain read of it, a plain copy, and child processes timed from
// outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mergedb::bench {

// What a walk over a table saw: every record, and the bytes of every field
// value as it landed in a 256-byte buffer.
struct WalkTotals {
    uint64_t records = 0;
    uint64_t textBytes = 0;
};

// Bytes of text a 256-byte buffer takes, its NUL not counted.
inline constexpr size_t BUFFER_TEXT_LIMIT = 254;

// Whether libcsv was found when the benchmarks were built.
bool haveLibcsv();

// libcsv over the file, every field copied into a buffer. Empty when libcsv
// is missing or the parse fails.
std::optional<WalkTotals> libcsvWalk(const std::string &path);

// The floor: the file read in large blocks, its line ends counted with
// memchr. Empty when the file cannot be read.
std::optional<uint64_t> countLineEnds(const std::string &path);

// A plain copy in large blocks. False when it fails.
bool copyFile(const std::string &from, const std::string &to);

struct ChildRun {
    bool exitedCleanly = false;  // exit status 0
    double seconds = 0;          // wall time from start to exit
    std::string output;          // what it wrote to standard output
};

// Runs argv[0] (a path) with its arguments and waits for it.
ChildRun runChild(const std::vector<std::string> &argv);

// Whether argv[0] is a program that exits 0 with these arguments.
bool childSucceeds(const std::vector<std::string> &argv);

}  // namespace mergedb::bench
