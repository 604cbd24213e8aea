// Collects the runs of all cases and prints, at the end, a table of speeds
// and of the ratios that the targets are stated in.
#pragma once

#include <benchmark/benchmark.h>

#include <iosfwd>
#include <map>
#include <string>

namespace mergedb::bench {

// Counters that the cases set and the summary reads.
inline constexpr const char *COUNTER_MEGABYTES = "MB";  // the table's size, 10^6 bytes
inline constexpr const char *COUNTER_PEAK = "peak_MiB";
inline constexpr const char *COUNTER_FLUSH = "flush_ms";  // time spent flushing, left out of the case's time

struct CaseResult {
    double bestSeconds = 0;  // the fastest repetition, per iteration
    double megabytes = 0;
    double peakMiB = 0;
    double flushSeconds = 0;  // of the fastest repetition
    int runs = 0;
    std::string error;  // of the last run that failed
};

class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override;
    void printSummary(std::ostream &out, int repetitions) const;

private:
    std::map<std::string, CaseResult> results_;
};

}  // namespace mergedb::bench
