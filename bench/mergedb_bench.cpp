// Benchmarks of the driver through its exports, side by side with other
// readers of the same data. Tables are written, deterministically, into a
// temporary directory that goes with the run.
//
//   mergedb_bench [--quick] [benchmark flags]
//
// --quick uses small tables and one short repetition, so that the test
// command keeps every case working. The sizes can be set in bytes with
// MERGEDB_BENCH_SMALL, MERGEDB_BENCH_MEDIUM and MERGEDB_BENCH_LARGE, the
// repetitions with MERGEDB_BENCH_REPETITIONS. The peers' interpreters are
// MERGEDB_BENCH_PYTHON and MERGEDB_BENCH_PERL.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "bench_data.h"
#include "bench_flush.h"
#include "bench_host.h"
#include "bench_peers.h"
#include "bench_report.h"

namespace {

using namespace mergedb::bench;

struct Settings {
    uint64_t small;   // dbLastMerge's small table
    uint64_t medium;  // the walks, peers, edits and search
    uint64_t large;   // dbLastMerge's large table and the peak memory
    int repetitions;
    bool quick;
};

uint64_t fromEnvironment(const char *name, uint64_t fallback) {
    const char *text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 10) : fallback;
}

std::string textFromEnvironment(const char *name, const char *fallback) {
    const char *text = std::getenv(name);
    return text != nullptr ? text : fallback;
}

Settings settingsFor(bool quick) {
    Settings settings{};
    settings.quick = quick;
    settings.small = fromEnvironment("MERGEDB_BENCH_SMALL", quick ? 1ull << 16 : 1ull << 20);
    settings.medium = fromEnvironment("MERGEDB_BENCH_MEDIUM", quick ? 1ull << 20 : 100'000'000ull);
    settings.large = fromEnvironment("MERGEDB_BENCH_LARGE", quick ? 1ull << 22 : 1ull << 30);
    settings.repetitions = static_cast<int>(fromEnvironment("MERGEDB_BENCH_REPETITIONS", quick ? 1 : 3));
    return settings;
}

Settings settings;
std::unique_ptr<Workspace> workspace;
bool anyFailure = false;

// A case that went wrong: the run fails.
void fail(benchmark::State &state, const std::string &message) {
    anyFailure = true;
    state.SkipWithError(message.c_str());
}

// A peer that is not installed is left out, and the run goes on.
void skipPeer(benchmark::State &state, const std::string &peer) {
    state.SkipWithError(("not installed: " + peer).c_str());
}

std::string resultText(DbResult result) {
    std::ostringstream text;
    text << "result 0x" << std::hex << result;
    return text.str();
}

void reportSize(benchmark::State &state, const Table &table) {
    state.counters[COUNTER_MEGABYTES] = static_cast<double>(table.facts.fileBytes) / 1e6;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * table.facts.fileBytes));
}

// Whether a walk saw what the table holds.
bool sawWholeTable(benchmark::State &state, const WalkTotals &totals, const Table &table) {
    if (totals.records == table.facts.records && totals.textBytes == table.facts.textBytes) return true;
    fail(state, "saw " + std::to_string(totals.records) + " records and " + std::to_string(totals.textBytes) +
                    " bytes of text, the table holds " + std::to_string(table.facts.records) + " and " +
                    std::to_string(table.facts.textBytes));
    return false;
}

// An open table, closed when it goes.
class OpenTable {
public:
    OpenTable(benchmark::State &state, const Table &table, Access access = Access::ReadOnly) {
        DbResult result = 0;
        handle_ = workspace->open(table, access, result);
        if (handle_ == 0) fail(state, "open " + table.name + ": " + resultText(result));
    }
    OpenTable(const OpenTable &) = delete;
    OpenTable &operator=(const OpenTable &) = delete;
    ~OpenTable() { close(); }
    DbResult close() {
        DbResult result = handle_ != 0 ? dbCloseTableMerge(&handle_) : DB_RESULT_OK;
        handle_ = 0;
        return result;
    }
    uint32_t handle() const { return handle_; }

private:
    uint32_t handle_ = 0;
};

using Walker = WalkOutcome (*)(uint32_t, const std::vector<std::string> &);

// Cases 1 and 3: every record, every field as short text.
void walkCase(benchmark::State &state, DataKind kind, Shape shape, Walker walker) {
    const Table &table = workspace->addressTable(kind, settings.medium, shape);
    OpenTable open(state, table);
    if (open.handle() == 0) return;
    std::vector<std::string> names = fieldNames(open.handle());
    WalkOutcome outcome;
    for (auto _ : state) outcome = walker(open.handle(), names);
    if (outcome.end != DB_RESULT_END_OF_DATA) return fail(state, "walk stopped with " + resultText(outcome.end));
    if (sawWholeTable(state, outcome.totals, table)) reportSize(state, table);
}

// Case 2: libcsv in this process.
void libcsvCase(benchmark::State &state, Shape shape) {
    if (!haveLibcsv()) return skipPeer(state, "libcsv (libcsv-dev)");
    const Table &table = workspace->addressTable(DataKind::Delimited, settings.medium, shape);
    std::optional<WalkTotals> totals;
    for (auto _ : state) totals = libcsvWalk(table.path);
    if (!totals) return fail(state, "libcsv could not read " + table.path);
    if (sawWholeTable(state, *totals, table)) reportSize(state, table);
}

// Case 2: the floor, a plain read that counts record delimiters.
void floorCase(benchmark::State &state) {
    const Table &table = workspace->addressTable(DataKind::Delimited, settings.medium);
    std::optional<uint64_t> records;
    for (auto _ : state) records = countLineEnds(table.path);
    if (records != table.facts.records) return fail(state, "the floor counted a wrong number of records");
    reportSize(state, table);
}

// Case 2: a peer in its own process, timed from start to exit. It prints
// the records and the bytes of text it saw.
void childPeerCase(benchmark::State &state, const std::string &peer, const std::vector<std::string> &check,
                   const std::vector<std::string> &run, Shape shape = Shape::Address) {
    if (!childSucceeds(check)) return skipPeer(state, peer);
    const Table &table = workspace->addressTable(DataKind::Delimited, settings.medium, shape);
    std::vector<std::string> argv = run;
    argv.insert(argv.end(), {std::filesystem::path(table.path).parent_path().string(), table.name,
                             std::to_string(ADDRESS_FIELDS)});
    ChildRun child;
    for (auto _ : state) {
        child = runChild(argv);
        state.SetIterationTime(child.seconds);
    }
    if (!child.exitedCleanly) return fail(state, peer + " failed");
    WalkTotals totals;
    std::istringstream(child.output) >> totals.records >> totals.textBytes;
    if (sawWholeTable(state, totals, table)) reportSize(state, table);
}

void pythonCase(benchmark::State &state, Shape shape) {
    std::string python = textFromEnvironment("MERGEDB_BENCH_PYTHON", "/usr/bin/python3");
    childPeerCase(state, "Python's csv module (python3)", {python, "-c", "import csv"},
                  {python, MERGEDB_BENCH_SOURCE_DIR "/peer_python_csv.py"}, shape);
}

void perlCase(benchmark::State &state) {
    std::string perl = textFromEnvironment("MERGEDB_BENCH_PERL", "/usr/bin/perl");
    childPeerCase(state, "Perl's DBD::CSV (libdbd-csv-perl)", {perl, "-MDBD::CSV", "-e", "1"},
                  {perl, MERGEDB_BENCH_SOURCE_DIR "/peer_perl_dbd_csv.pl"});
}

// Case 4: dbLastMerge reads only the end of the file.
void lastCase(benchmark::State &state, DataKind kind, uint64_t size) {
    const Table &table = workspace->addressTable(kind, size);
    OpenTable open(state, table);
    if (open.handle() == 0) return;
    DbResult result = dbLastMerge(open.handle(), 0, nullptr);
    if (result != DB_RESULT_OK) return fail(state, "dbLastMerge gave " + resultText(result));
    if (fieldText(open.handle(), fieldName(kind, 1)) != std::to_string(table.facts.records)) {
        return fail(state, "dbLastMerge did not reach the last record");
    }
    for (auto _ : state) benchmark::DoNotOptimize(dbLastMerge(open.handle(), 0, nullptr));
}

// Case 5: one record in a hundred updated while walking, then the commit at
// close. The time counts the puts, updates and the close without its flush
// to the disk; the walk that reaches the records is case 1's. The close
// alone goes to the counter close_ms, its flush to flush_ms.
double updateAndCommit(benchmark::State &state, const Table &table) {
    OpenTable open(state, table, Access::ReadWrite);
    if (open.handle() == 0) return 0;
    uint32_t handle = open.handle();
    std::string field = fieldName(table.kind, 2);
    const char updated[] = "Updated";
    std::chrono::steady_clock::duration spent{};
    uint64_t record = 0;
    for (DbResult moved = dbFirstMerge(handle); moved == DB_RESULT_OK; moved = dbNextMerge(handle, 0, nullptr)) {
        if (record++ % 100 != 0) continue;
        auto start = std::chrono::steady_clock::now();
        DbResult result = dbPutFieldValueMerge(handle, field.c_str(), updated, DB_TYPE_TEXT, sizeof updated - 1);
        if (result == DB_RESULT_OK) result = dbUpdateMerge(handle, 0, nullptr);
        spent += std::chrono::steady_clock::now() - start;
        if (result != DB_RESULT_OK) {
            fail(state, "update gave " + resultText(result));
            return 0;
        }
    }
    flushReset();
    auto start = std::chrono::steady_clock::now();
    DbResult closed = open.close();
    auto closing = std::chrono::steady_clock::now() - start;
    double flushed = flushSeconds();
    state.counters["close_ms"] = std::chrono::duration<double, std::milli>(closing).count();
    state.counters[COUNTER_FLUSH] = flushed * 1e3;
    spent += closing;
    if (closed != DB_RESULT_OK) fail(state, "the commit gave " + resultText(closed));
    return std::chrono::duration<double>(spent).count() - flushed;
}

// Whether the committed table reads back: the first record updated, the
// last one where it was.
bool committedWell(benchmark::State &state, const Table &copy, uint64_t records) {
    OpenTable open(state, copy);
    if (open.handle() == 0) return false;
    bool firstUpdated = dbFirstMerge(open.handle()) == DB_RESULT_OK &&
                        fieldText(open.handle(), fieldName(copy.kind, 2)) == "Updated";
    bool lastKept = dbLastMerge(open.handle(), 0, nullptr) == DB_RESULT_OK &&
                    fieldText(open.handle(), fieldName(copy.kind, 1)) == std::to_string(records);
    if (firstUpdated && lastKept) return true;
    fail(state, "the committed table does not read back");
    return false;
}

// Before a timed write of a table's size, outside the time: two files of
// that size (a commit holds the backup and the new file) are written and
// removed, so that the pages the timed write takes come from memory used
// before. On the virtual machines we measure on, the first
// write into memory the machine has not used yet costs up to ten times as
// much, and would be charged to whichever case comes first after the cases
// that filled the page cache. Then what is left for the disk to write is
// written (sync), for the kernel makes a writer wait when too much waits.
void settleMemory(const Table &table) {
    std::string scratch[] = {table.path + ".settle1", table.path + ".settle2"};
    for (const std::string &path : scratch) copyFile(table.path, path);
    for (const std::string &path : scratch) std::filesystem::remove(path);
    ::sync();
}

void updateCase(benchmark::State &state, DataKind kind) {
    const Table &table = workspace->addressTable(kind, settings.medium);
    Table copy = workspace->existing(kind, "update_" + table.name);
    for (auto _ : state) {
        if (!copyFile(table.path, copy.path)) return fail(state, "cannot copy " + table.path);
        settleMemory(table);
        state.SetIterationTime(updateAndCommit(state, copy));
        if (state.error_occurred() || !committedWell(state, copy, table.facts.records)) break;
    }
    std::filesystem::remove(copy.path);
    if (!state.error_occurred()) reportSize(state, table);
}

// Case 5's yardstick: a plain copy of the same file.
void copyCase(benchmark::State &state, DataKind kind) {
    const Table &table = workspace->addressTable(kind, settings.medium);
    std::string target = table.path + ".copy";
    bool copied = true;
    for (auto _ : state) {
        state.PauseTiming();
        settleMemory(table);
        state.ResumeTiming();
        copied = copyFile(table.path, target) && copied;
    }
    std::filesystem::remove(target);
    if (!copied) return fail(state, "cannot copy " + table.path);
    reportSize(state, table);
}

// Case 6: find by example, with a criterion that only the last record fits.
void findCase(benchmark::State &state, DataKind kind) {
    const Table &table = workspace->addressTable(kind, settings.medium);
    OpenTable open(state, table);
    if (open.handle() == 0) return;
    uint32_t handle = open.handle();
    std::string field = fieldName(kind, 1);
    std::string last = std::to_string(table.facts.records);
    DbResult found = DB_RESULT_OK;
    for (auto _ : state) {
        dbClearRecordMerge(handle);
        dbPutFieldValueMerge(handle, field.c_str(), last.c_str(), DB_TYPE_TEXT, static_cast<uint16_t>(last.size()));
        found = dbFindRecordMerge(handle, 0, 0, 0, 1, 0);
        if (found != DB_RESULT_OK) break;
    }
    if (found != DB_RESULT_OK) return fail(state, "dbFindRecordMerge gave " + resultText(found));
    if (fieldText(handle, field) != last) return fail(state, "dbFindRecordMerge found the wrong record");
    reportSize(state, table);
}

// Case 7: dbGetFieldValueMerge by name in a table of 1000 fields.
void fieldByNameCase(benchmark::State &state, DataKind kind, int position) {
    constexpr int WIDE_FIELDS = 1000;
    const Table &table = workspace->wideTable(kind, WIDE_FIELDS);
    OpenTable open(state, table);
    if (open.handle() == 0) return;
    if (DbResult result = dbFirstMerge(open.handle())) return fail(state, "dbFirstMerge gave " + resultText(result));
    std::string name = fieldName(kind, position);
    if (fieldText(open.handle(), name) != wideValue(position)) return fail(state, "wrong value");
    char buffer[256];
    uint16_t length = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(dbGetFieldValueMerge(open.handle(), name.c_str(), buffer, DB_TYPE_TEXT, &length));
    }
}

// Case 8: the walk of case 1 over the large table, alone in a process of
// its own, whose peak resident set is measured.
void peakMemoryCase(benchmark::State &state, DataKind kind) {
    const Table &table = workspace->addressTable(kind, settings.large);
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::vector<std::string> argv = {self, "--walk-alone",
                                     std::filesystem::path(table.path).parent_path().string(), table.name,
                                     std::to_string(static_cast<int>(kind))};
    ChildRun child;
    for (auto _ : state) {
        child = runChild(argv);
        state.SetIterationTime(child.seconds);
    }
    if (!child.exitedCleanly) return fail(state, "the walk in its own process failed");
    WalkTotals totals;
    uint64_t peakKiB = 0;
    std::istringstream(child.output) >> totals.records >> totals.textBytes >> peakKiB;
    if (!sawWholeTable(state, totals, table)) return;
    reportSize(state, table);
    state.counters[COUNTER_PEAK] = static_cast<double>(peakKiB) / 1024;
}

// Case 9: the mergedb tool as a process, start to exit, on a copy of the
// delimited table of half the medium size (50 MB): the deletes of every
// record whose number ends in 7 (50,000 of them, where the driver would
// rewrite the table at every 200th), against the update of one record,
// which costs one walk and one commit.
void toolCase(benchmark::State &state, bool deleteMany) {
    const Table &table = workspace->addressTable(DataKind::Delimited, settings.medium / 2);
    Table copy = workspace->existing(DataKind::Delimited, "tool_" + table.name);
    uint64_t records = table.facts.records;
    uint64_t changed = deleteMany ? (records + 3) / 10 : 1;
    std::vector<std::string> argv = {MERGEDB_TOOL, deleteMany ? "delete" : "update", copy.path, "--where"};
    if (deleteMany) {
        argv.insert(argv.end(), {"1=*7"});
    } else {
        argv.insert(argv.end(), {"1=" + std::to_string(records), "--set", "2=Updated"});
    }
    ChildRun child;
    for (auto _ : state) {
        if (!copyFile(table.path, copy.path)) return fail(state, "cannot copy " + table.path);
        child = runChild(argv);
        state.SetIterationTime(child.seconds);
        if (!child.exitedCleanly) break;
    }
    std::optional<uint64_t> left = countLineEnds(copy.path);
    std::filesystem::remove(copy.path);
    std::string said = (deleteMany ? "deleted " : "updated ") + std::to_string(changed) +
                       (changed == 1 ? " record" : " records") +
                       (deleteMany && changed >= 200 ? ", in one rewrite of the table\n" : "\n");
    if (!child.exitedCleanly || child.output != said) return fail(state, "the tool said: " + child.output);
    if (left != records - (deleteMany ? changed : 0)) return fail(state, "the table does not hold what it should");
    state.counters["changed"] = static_cast<double>(changed);
    reportSize(state, table);
}

// Case 10: a one-off query that keeps the records whose second field
// begins with a prefix, over the delimited table, each way a process timed
// from start to exit that writes the records found, one a line: the
// extension (the sqlite3 shell loads it and makes the table of the file),
// SQLite's own way (.import of the file into a table, then the same query),
// and the tool's find.
enum class SqlWay { Extension, Import, ToolFind };

constexpr const char *SQL_PREFIX = "Mill";
constexpr const char *SQL_QUERY = "SELECT * FROM t WHERE \"2\" LIKE 'Mill%';";

// The records that the query must find: the second field of the bench's
// records is quoted and follows the number.
std::optional<uint64_t> recordsWithPrefix(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    std::string wanted = std::string(",\"") + SQL_PREFIX;
    uint64_t found = 0;
    while (std::getline(in, line)) found += line.find(wanted) == line.find(',');
    if (!in.eof()) return std::nullopt;
    return found;
}

std::vector<std::string> sqlArguments(SqlWay way, const std::string &sqlite, const std::string &path) {
    std::string columns;
    for (int f = 1; f <= ADDRESS_FIELDS; ++f) columns += (f == 1 ? "\"" : ", \"") + std::to_string(f) + "\"";
    switch (way) {
    case SqlWay::Extension:
        // An instrumented build loads into the shell after its runtimes.
        if (std::string_view(MERGEDB_SQLITE_PRELOAD).empty()) {
            return {sqlite, ":memory:", std::string(".load ") + MERGEDB_SQLITE_EXTENSION,
                    "CREATE VIRTUAL TABLE t USING mergedb('" + path + "');", SQL_QUERY};
        }
        return {"/usr/bin/env", std::string("LD_PRELOAD=") + MERGEDB_SQLITE_PRELOAD, "ASAN_OPTIONS=detect_leaks=0",
                sqlite, ":memory:", std::string(".load ") + MERGEDB_SQLITE_EXTENSION,
                "CREATE VIRTUAL TABLE t USING mergedb('" + path + "');", SQL_QUERY};
    case SqlWay::Import:
        return {sqlite, ":memory:", "CREATE TABLE t(" + columns + ");", ".import --csv " + path + " t", SQL_QUERY};
    case SqlWay::ToolFind: return {MERGEDB_TOOL, "find", path, std::string("2=") + SQL_PREFIX + "*"};
    }
    return {};
}

void sqlCase(benchmark::State &state, SqlWay way) {
    std::string sqlite = textFromEnvironment("MERGEDB_BENCH_SQLITE3", "/usr/bin/sqlite3");
    if (way != SqlWay::ToolFind && !childSucceeds({sqlite, "-version"})) {
        return skipPeer(state, "the sqlite3 shell (sqlite3)");
    }
    const Table &table = workspace->addressTable(DataKind::Delimited, settings.medium);
    std::vector<std::string> argv = sqlArguments(way, sqlite, table.path);
    ChildRun child;
    for (auto _ : state) {
        child = runChild(argv);
        state.SetIterationTime(child.seconds);
        if (!child.exitedCleanly) break;
    }
    if (!child.exitedCleanly) return fail(state, argv[0] + " failed: " + child.output.substr(0, 200));
    auto lines = static_cast<uint64_t>(std::count(child.output.begin(), child.output.end(), '\n'));
    if (lines != recordsWithPrefix(table.path)) return fail(state, "the query found a wrong number of records");
    state.counters["found"] = static_cast<double>(lines);
    reportSize(state, table);
}

// This process's peak resident set in KiB, as the kernel keeps it (VmHWM).
// The parent can't ask wait4 for it: a child started by posix_spawn shares
// the parent's memory until its exec, and the kernel counts the parent's
// peak into the child's.
uint64_t peakResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::strtoull(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

// The child of case 8: walks one table and prints what it saw and its peak
// memory.
int walkAlone(const std::string &directory, const std::string &name, int kind) {
    Workspace existing(directory);
    Table table = existing.existing(static_cast<DataKind>(kind), name);
    DbResult result = 0;
    uint32_t handle = existing.open(table, Access::ReadOnly, result);
    if (handle == 0) return 1;
    WalkOutcome outcome = walkForward(handle, fieldNames(handle));
    dbCloseTableMerge(&handle);
    std::cout << outcome.totals.records << ' ' << outcome.totals.textBytes << ' ' << peakResidentKiB() << '\n';
    return outcome.end == DB_RESULT_END_OF_DATA ? 0 : 1;
}

// A case that runs once per repetition and times itself as a whole.
benchmark::internal::Benchmark *once(benchmark::internal::Benchmark *bench, int repetitions = settings.repetitions) {
    return bench->Iterations(1)->Repetitions(repetitions)->Unit(benchmark::kMillisecond);
}

struct KindName {
    DataKind kind;
    const char *name;
};

constexpr KindName ALL_KINDS[] = {
    {DataKind::Delimited, "delimited"}, {DataKind::Tagged0, "tagged0"}, {DataKind::Tagged1, "tagged1"}};

struct ShapeName {
    Shape shape;
    const char *suffix;
};

constexpr ShapeName ALL_SHAPES[] = {{Shape::Address, ""}, {Shape::Quoted, "_quoted"}, {Shape::LongText, "_long"}};

void registerCases() {
    using benchmark::RegisterBenchmark;
    for (const KindName &k : ALL_KINDS) {
        once(RegisterBenchmark(("walk/" + std::string(k.name)).c_str(), walkCase, k.kind, Shape::Address,
                               walkForward))
            ->UseRealTime();
    }
    // The delimited walk and its peers on the other shapes of data too.
    for (const ShapeName &d : ALL_SHAPES) {
        std::string suffix = d.suffix;
        if (d.shape != Shape::Address) {
            once(RegisterBenchmark(("walk/delimited" + suffix).c_str(), walkCase, DataKind::Delimited, d.shape,
                                   walkForward))
                ->UseRealTime();
        }
        once(RegisterBenchmark(("peer/libcsv" + suffix).c_str(), libcsvCase, d.shape))->UseRealTime();
        once(RegisterBenchmark(("peer/python_csv" + suffix).c_str(), pythonCase, d.shape))->UseManualTime();
    }
    // DBD::CSV takes a minute for the medium table: one repetition.
    once(RegisterBenchmark("peer/perl_dbd_csv", perlCase), 1)->UseManualTime();
    once(RegisterBenchmark("peer/floor_memchr", floorCase))->UseRealTime();
    for (const KindName &k : ALL_KINDS) {
        once(RegisterBenchmark(("walk_back/" + std::string(k.name)).c_str(), walkCase, k.kind, Shape::Address,
                               walkBackward))
            ->UseRealTime();
    }
    for (const KindName &k : {ALL_KINDS[0], ALL_KINDS[1]}) {
        std::string kind = k.name;
        for (auto [size, label] : {std::pair{settings.small, "_small"}, std::pair{settings.large, "_large"}}) {
            RegisterBenchmark(("last/" + kind + label).c_str(), lastCase, k.kind, size)
                ->Repetitions(settings.repetitions)
                ->Unit(benchmark::kMicrosecond);
        }
        once(RegisterBenchmark(("update_commit/" + kind).c_str(), updateCase, k.kind))->UseManualTime();
        once(RegisterBenchmark(("copy/" + kind).c_str(), copyCase, k.kind))->UseRealTime();
        once(RegisterBenchmark(("find_last/" + kind).c_str(), findCase, k.kind))->UseRealTime();
        for (int position : {1, 500, 1000}) {
            RegisterBenchmark(("field_by_name/" + kind + "_" + std::to_string(position)).c_str(), fieldByNameCase,
                              k.kind, position)
                ->Repetitions(settings.repetitions);
        }
    }
    once(RegisterBenchmark("peak_memory/delimited_large", peakMemoryCase, DataKind::Delimited), 1)->UseManualTime();
    once(RegisterBenchmark("tool_delete_many/delimited", toolCase, true))->UseManualTime();
    once(RegisterBenchmark("tool_update_one/delimited", toolCase, false))->UseManualTime();
    once(RegisterBenchmark("sql_prefix/extension", sqlCase, SqlWay::Extension))->UseManualTime();
    once(RegisterBenchmark("sql_prefix/sqlite_import", sqlCase, SqlWay::Import))->UseManualTime();
    once(RegisterBenchmark("sql_prefix/tool_find", sqlCase, SqlWay::ToolFind))->UseManualTime();
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 5 && std::string(argv[1]) == "--walk-alone") return walkAlone(argv[2], argv[3], std::atoi(argv[4]));

    std::vector<char *> args = {argv[0]};
    bool quick = false;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--quick") {
            quick = true;
        } else {
            args.push_back(argv[i]);
        }
    }
    settings = settingsFor(quick);
    // Defaults first, so that flags on the command line win.
    std::string minTime = "--benchmark_min_time=0.01";
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    if (quick) args.insert(args.begin() + 1, minTime.data());
    if (settings.repetitions > 1) args.insert(args.begin() + 1, interleave.data());
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;

    workspace = std::make_unique<Workspace>();
    registerCases();
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printSummary(std::cout, settings.repetitions);
    benchmark::Shutdown();
    workspace.reset();
    return anyFailure ? 1 : 0;
}
