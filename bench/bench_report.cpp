#include "bench_report.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <vector>

namespace mergedb::bench {
namespace {

// How one figure is judged: a ratio of two cases' times, or a counter.
struct Target {
    std::string label;
    std::string numerator;    // case whose time is divided
    std::string denominator;  // by this case's time; empty: the numerator's peak memory
    double limit;             // 0: no target, the figure is only shown
    bool atLeast;             // the figure must reach the limit, else stay within it
};

const std::vector<Target> TARGETS = {
    {"1. walk, delimited, vs libcsv (speed ratio)", "peer/libcsv", "walk/delimited", 1, true},
    {"1. walk, delimited, vs Python csv (speed ratio)", "peer/python_csv", "walk/delimited", 5, true},
    {"1. walk, delimited, vs Perl DBD::CSV (speed ratio)", "peer/perl_dbd_csv", "walk/delimited", 0, true},
    {"1. walk, delimited, every field quoted, vs libcsv (speed ratio)", "peer/libcsv_quoted",
     "walk/delimited_quoted", 1, true},
    {"1. walk, delimited, every field quoted, vs Python csv (speed ratio)", "peer/python_csv_quoted",
     "walk/delimited_quoted", 5, true},
    {"1. walk, delimited, long text, vs libcsv (speed ratio)", "peer/libcsv_long", "walk/delimited_long", 1, true},
    {"1. walk, delimited, long text, vs Python csv (speed ratio)", "peer/python_csv_long", "walk/delimited_long", 5,
     true},
    {"1. walk, delimited, vs the floor (time ratio)", "walk/delimited", "peer/floor_memchr", 3, false},
    {"1. walk, tagged dialect 0, vs delimited (time ratio)", "walk/tagged0", "walk/delimited", 1.2, false},
    {"1. walk, tagged dialect 1, vs delimited (time ratio)", "walk/tagged1", "walk/delimited", 1.2, false},
    {"3. backward vs forward, delimited (time ratio)", "walk_back/delimited", "walk/delimited", 2, false},
    {"3. backward vs forward, tagged dialect 0 (time ratio)", "walk_back/tagged0", "walk/tagged0", 2, false},
    {"3. backward vs forward, tagged dialect 1 (time ratio)", "walk_back/tagged1", "walk/tagged1", 2, false},
    {"4. dbLastMerge, large vs small file, delimited (time ratio)", "last/delimited_large", "last/delimited_small",
     1.5, false},
    {"4. dbLastMerge, large vs small file, tagged dialect 0 (time ratio)", "last/tagged0_large",
     "last/tagged0_small", 1.5, false},
    {"5. update 1% and commit, without the flush, vs copy, delimited (time ratio)", "update_commit/delimited",
     "copy/delimited", 3, false},
    {"5. update 1% and commit, without the flush, vs copy, tagged dialect 0 (time ratio)", "update_commit/tagged0",
     "copy/tagged0", 3, false},
    {"6. find the last record vs forward walk, delimited (time ratio)", "find_last/delimited", "walk/delimited", 0,
     false},
    {"6. find the last record vs forward walk, tagged dialect 0 (time ratio)", "find_last/tagged0", "walk/tagged0",
     0, false},
    {"7. value by name, field 1000 vs field 1, delimited (time ratio)", "field_by_name/delimited_1000",
     "field_by_name/delimited_1", 1.5, false},
    {"7. value by name, field 1000 vs field 1, tagged dialect 0 (time ratio)", "field_by_name/tagged0_1000",
     "field_by_name/tagged0_1", 1.5, false},
    {"8. peak memory of the walk, delimited, large file (MiB)", "peak_memory/delimited_large", "", 16, false},
    {"9. the tool: a tenth of the records deleted vs one record updated, delimited (time ratio)",
     "tool_delete_many/delimited", "tool_update_one/delimited", 2, false},
    {"10. SQL prefix query, one-off: the extension vs SQLite's .import (speed ratio)", "sql_prefix/sqlite_import",
     "sql_prefix/extension", 1, true},
    {"10. SQL prefix query, one-off: the extension vs the tool's find (speed ratio)", "sql_prefix/tool_find",
     "sql_prefix/extension", 1, true},
};

std::string format(const char *pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

std::string duration(double seconds) {
    if (seconds >= 1) return format("%.3f s", seconds);
    if (seconds >= 1e-3) return format("%.3f ms", seconds * 1e3);
    if (seconds >= 1e-6) return format("%.3f us", seconds * 1e6);
    return format("%.1f ns", seconds * 1e9);
}

}  // namespace

void SummaryReporter::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration) continue;
        CaseResult &result = results_[run.run_name.function_name];
        if (run.error_occurred) {
            result.error = run.error_message;
            continue;
        }
        double seconds = run.real_accumulated_time / static_cast<double>(std::max<int64_t>(run.iterations, 1));
        auto counter = [&run](const char *name) {
            auto found = run.counters.find(name);
            return found == run.counters.end() ? 0.0 : found->second.value;
        };
        if (result.runs == 0 || seconds < result.bestSeconds) result.flushSeconds = counter(COUNTER_FLUSH) / 1e3;
        result.bestSeconds = result.runs == 0 ? seconds : std::min(result.bestSeconds, seconds);
        result.runs++;
        result.megabytes = counter(COUNTER_MEGABYTES);
        result.peakMiB = std::max(result.peakMiB, counter(COUNTER_PEAK));
    }
    ConsoleReporter::ReportRuns(runs);
}

void SummaryReporter::printSummary(std::ostream &out, int repetitions) const {
    out << "\nBest of " << repetitions << " repetition(s) per case.\n\n"
        << "| Case | Size (MB) | Best time | MB/s |\n|---|---:|---:|---:|\n";
    for (const auto &[name, result] : results_) {
        out << "| " << name;
        if (result.flushSeconds > 0) out << " (without its flush of " << duration(result.flushSeconds) << ")";
        out << " | ";
        if (result.runs == 0) {
            out << " | failed: " << result.error << " | |\n";
            continue;
        }
        bool sized = result.megabytes > 0;
        out << (sized ? format("%.1f", result.megabytes) : "") << " | " << duration(result.bestSeconds) << " | "
            << (sized ? format("%.1f", result.megabytes / result.bestSeconds) : "") << " |\n";
    }

    out << "\n| Target | Figure | Goal | Verdict |\n|---|---:|---:|---|\n";
    for (const Target &target : TARGETS) {
        auto figureOf = [this](const std::string &name, std::string &missing) -> const CaseResult * {
            auto found = results_.find(name);
            if (found == results_.end() || found->second.runs == 0) {
                missing = found == results_.end() ? name + " did not run" : name + ": " + found->second.error;
                return nullptr;
            }
            return &found->second;
        };
        std::string missing;
        const CaseResult *numerator = figureOf(target.numerator, missing);
        const CaseResult *denominator = target.denominator.empty() ? numerator : figureOf(target.denominator, missing);
        out << "| " << target.label << " | ";
        if (numerator == nullptr || denominator == nullptr) {
            out << " | | n/a (" << missing << ") |\n";
            continue;
        }
        double figure = target.denominator.empty() ? numerator->peakMiB
                                                   : numerator->bestSeconds / denominator->bestSeconds;
        out << format("%.2f", figure) << " | ";
        if (target.limit == 0) {
            out << " | shown only |\n";
            continue;
        }
        bool met = target.atLeast ? figure >= target.limit : figure <= target.limit;
        out << (target.atLeast ? ">= " : "<= ") << format("%.1f", target.limit) << " | " << (met ? "met" : "MISSED")
            << " |\n";
    }
}

}  // namespace mergedb::bench
