// What the fuzz targets and the seed generator share: a scratch directory,
// the host's side of a session, a reader that decodes an input, and the
// walk that reads every field of every record in every type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mergedb/mergedb.h"

namespace mergedb::fuzz {

using Bytes = std::vector<uint8_t>;

// A directory of this process, removed with its files at exit.
const std::string &scratchDir();

void writeFile(const std::string &name, const Bytes &bytes);
void writeFile(const std::string &name, std::string_view text);
Bytes readFile(const std::string &name);
void removeFile(const std::string &name);

// A database of the subtype on the scratch directory, opened once.
uint32_t scratchDatabase(uint16_t subtype);

// Stops the run as a finding when a condition the driver promises fails.
#define FUZZ_CHECK(condition) ((condition) ? (void)0 : ::mergedb::fuzz::fail(#condition, __FILE__, __LINE__))
[[noreturn]] void fail(const char *what, const char *file, int line);

// Takes bytes off the front of an input; an input that runs out gives 0s.
class Reader {
public:
    Reader(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    bool empty() const { return position_ >= size_; }
    uint8_t byte();
    // A string of up to limit bytes, its length from the first byte.
    std::string text(size_t limit);
    // Whatever is left.
    Bytes rest();

private:
    const uint8_t *data_;
    size_t size_;
    size_t position_ = 0;
};

// Walks the table forward from the first record and backward from the last,
// reading every field of each record in every type into buffers of exactly
// the size the host must supply, and jumps to the given file offsets. A
// walk that goes on for more steps than the file has bytes never ends.
void walkTable(uint32_t table, uint32_t fileSize, const std::vector<uint32_t> &jumps);

}  // namespace mergedb::fuzz
