// Benchmarks of the driver through its exports. Data is generated in a
// temporary directory, deterministically; sizes come from the environment
// so that bench/run --quick stays small:
//   MERGEDB_BENCH_SMALL, MERGEDB_BENCH_LARGE   bytes of the two table sizes
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "bench_data.h"
#include "mergedb/mergedb.h"

namespace {

using mergedb::bench::DataKind;

uint64_t sizeFromEnvironment(const char *name, uint64_t fallback) {
    const char *text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 10) : fallback;
}

const uint64_t SMALL = sizeFromEnvironment("MERGEDB_BENCH_SMALL", 1ull << 20);
const uint64_t LARGE = sizeFromEnvironment("MERGEDB_BENCH_LARGE", 1ull << 30);

// One database directory for the whole run, removed at exit.
class Workspace {
public:
    Workspace() {
        std::string pattern = (std::filesystem::temp_directory_path() / "mergedb-bench-XXXXXX").string();
        directory_ = mkdtemp(pattern.data());
        uint32_t session = 0;
        dbInitMerge(1, 0, 0, 0, &session, dlopen(MERGEDB_MESSAGES_MODULE, RTLD_NOW));
        dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, directory_.c_str(), &database_);
    }
    ~Workspace() {
        dbCloseDBMerge(&database_);
        std::filesystem::remove_all(directory_);
    }

    // The name of a table of this kind and size, made on first use.
    std::string table(DataKind kind, uint64_t size) {
        std::string name = "t" + std::to_string(static_cast<int>(kind)) + "_" + std::to_string(size) +
                           (kind == DataKind::Delimited ? ".txt" : ".doc");
        if (made_.emplace(name, true).second) {
            mergedb::bench::writeTable(directory_ + "/" + name, kind, size);
        }
        return name;
    }

    uint32_t open(DataKind kind, uint64_t size) {
        std::string name = table(kind, size);
        uint32_t handle = 0;
        DbResult result = kind == DataKind::Delimited
                              ? dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database_, name.c_str(), 1, 0, &handle, ",",
                                                 "\r\n", "\"", "", 0)
                              : dbOpenTableMerge(DB_SUBTYPE_TAGGED, database_, name.c_str(), 1, 0, &handle,
                                                 nullptr, nullptr, nullptr, nullptr, 0);
        return result == DB_RESULT_OK ? handle : 0;
    }

private:
    std::string directory_;
    uint32_t database_ = 0;
    std::map<std::string, bool> made_;
};

Workspace &workspace() {
    static Workspace instance;
    return instance;
}

// dbLastMerge reads only the end of the file: its cost must not grow with
// the file.
void lastRecord(benchmark::State &state, DataKind kind, uint64_t size) {
    uint32_t table = workspace().open(kind, size);
    if (table == 0) {
        state.SkipWithError("table did not open");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(dbLastMerge(table, 0, nullptr));
    }
    dbCloseTableMerge(&table);
}

BENCHMARK_CAPTURE(lastRecord, delimited_small, DataKind::Delimited, SMALL);
BENCHMARK_CAPTURE(lastRecord, delimited_large, DataKind::Delimited, LARGE);
BENCHMARK_CAPTURE(lastRecord, tagged0_small, DataKind::Tagged0, SMALL);
BENCHMARK_CAPTURE(lastRecord, tagged0_large, DataKind::Tagged0, LARGE);

}  // namespace

BENCHMARK_MAIN();
