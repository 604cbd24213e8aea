// Deterministic test data for the benchmarks: the same address records as
// delimited text or as tagged documents of either dialect.
#pragma once

#include <cstdint>
#include <string>

namespace mergedb::bench {

enum class DataKind { Delimited, Tagged0, Tagged1 };

// Writes about size bytes of records with ten fields to path, some of them
// quoted with embedded delimiters. Gives the number of records.
uint64_t writeTable(const std::string &path, DataKind kind, uint64_t size, uint32_t seed = 1);

}  // namespace mergedb::bench
