// Records on stdout in the formats of the tool, and the progress of long
// walks on stderr.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace mergedb::cli {

void writeOut(std::string_view bytes);

// "1 record", "2 records".
std::string recordCount(size_t count);

// Values as a line of CSV, without its line end: RFC 4180 quoting.
std::string csvLine(const std::vector<std::string> &values);

// "a, b, c".
std::string joined(const std::vector<std::string> &items);

// Takes the records of a walk, in UTF-8.
class RecordWriter {
public:
    virtual ~RecordWriter() = default;
    virtual void header(const std::vector<std::string> &names) = 0;
    virtual void record(const std::vector<std::string> &values) = 0;
    virtual void finish() {}
};

class Invocation;

// The writer that --format names, "csv" (the default), "json" or "table";
// any other name is a usage error.
std::unique_ptr<RecordWriter> formatWriter(const Invocation &invocation, bool withHeader);

// "mergedb: LABEL: TEXT" on stderr, for what a person should know while the
// command goes on.
void note(const std::string &label, const std::string &text);

// Counts the records of a walk and, when stderr is a terminal, shows the
// count there now and then. A walk that prints records shows none while
// they go to the same terminal.
class Progress {
public:
    Progress(std::string label, bool printsRecords);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void tick();
    size_t count() const { return count_; }

private:
    std::string label_;
    bool enabled_;
    size_t count_ = 0;
};

}  // namespace mergedb::cli
