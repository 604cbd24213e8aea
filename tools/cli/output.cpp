#include "output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "arguments.h"
#include "display_width.h"
#include "json_text.h"

namespace mergedb::cli {
namespace {

constexpr size_t PROGRESS_STEP = 1000;

// Whether a count of progress stands on stderr's line, which a note must
// clear first.
bool progressShown = false;

void clearProgress() {
    if (progressShown) std::fputs("\r\033[K", stderr);
    progressShown = false;
}
constexpr const char *COLUMN_GAP = "  ";

// RFC 4180: a field with a comma, a quote or a line break goes in quotes,
// and its quotes are doubled.
std::string csvField(std::string_view value) {
    if (value.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(value);
    std::string quoted = "\"";
    for (char c : value) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + '"';
}

class CsvWriter : public RecordWriter {
public:
    explicit CsvWriter(bool withHeader) : withHeader_(withHeader) {}
    void header(const std::vector<std::string> &names) override {
        if (withHeader_ && !names.empty()) line(names);
    }
    void record(const std::vector<std::string> &values) override { line(values); }

private:
    void line(const std::vector<std::string> &fields) const { writeOut(csvLine(fields) + "\n"); }

    bool withHeader_;
};

// One object per record, keys in field order, each once.
class JsonWriter : public RecordWriter {
public:
    void header(const std::vector<std::string> &names) override { keys_ = host::jsonKeys(names); }
    void record(const std::vector<std::string> &values) override { writeOut(host::jsonObject(keys_, values) + "\n"); }

private:
    std::vector<std::string> keys_;
};

// Columns as wide as their widest cell on a terminal, so every record is
// held until the end.
class TableWriter : public RecordWriter {
public:
    explicit TableWriter(bool withHeader) : withHeader_(withHeader) {}
    void header(const std::vector<std::string> &names) override {
        if (withHeader_) rows_.push_back(cells(names));
    }
    void record(const std::vector<std::string> &values) override { rows_.push_back(cells(values)); }
    void finish() override {
        std::vector<size_t> widths;
        for (const auto &row : rows_) {
            widths.resize(std::max(widths.size(), row.size()));
            for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
        }
        for (size_t r = 0; r < rows_.size(); ++r) {
            line(rows_[r], widths);
            if (r == 0 && withHeader_) line(rule(widths), widths);
        }
    }

private:
    // Line breaks and tabs in a value would break the columns.
    static std::vector<std::string> cells(std::vector<std::string> values) {
        for (std::string &value : values) {
            std::replace_if(
                value.begin(), value.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
        }
        return values;
    }
    static std::vector<std::string> rule(const std::vector<size_t> &widths) {
        std::vector<std::string> dashes;
        for (size_t width : widths) dashes.emplace_back(width, '-');
        return dashes;
    }
    void line(const std::vector<std::string> &row, const std::vector<size_t> &widths) const {
        std::string text;
        for (size_t i = 0; i < row.size(); ++i) {
            text += std::string(i == 0 ? "" : COLUMN_GAP) + row[i];
            if (i + 1 < row.size()) text.append(widths[i] - displayWidth(row[i]), ' ');
        }
        writeOut(text + "\n");
    }

    bool withHeader_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace

void writeOut(std::string_view bytes) { std::fwrite(bytes.data(), 1, bytes.size(), stdout); }

std::string recordCount(size_t count) { return std::to_string(count) + (count == 1 ? " record" : " records"); }

std::string csvLine(const std::vector<std::string> &values) {
    std::string text;
    for (size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : ",") + csvField(values[i]);
    return text;
}

std::string joined(const std::vector<std::string> &items) {
    std::string text;
    for (const std::string &item : items) text += (text.empty() ? "" : ", ") + item;
    return text;
}

std::unique_ptr<RecordWriter> formatWriter(const Invocation &invocation, bool withHeader) {
    std::string format = invocation.value("--format").value_or("csv");
    if (format == "csv") return std::make_unique<CsvWriter>(withHeader);
    if (format == "json") return std::make_unique<JsonWriter>();
    if (format == "table") return std::make_unique<TableWriter>(withHeader);
    invocation.fail("unknown format '" + format + "'; csv, json or table");
}

void note(const std::string &label, const std::string &text) {
    std::fflush(stdout);
    clearProgress();
    std::fprintf(stderr, "mergedb: %s: %s\n", label.c_str(), text.c_str());
}

Progress::Progress(std::string label, bool printsRecords)
    : label_(std::move(label)), enabled_(isatty(STDERR_FILENO) && !(printsRecords && isatty(STDOUT_FILENO))) {}

Progress::~Progress() { clearProgress(); }

void Progress::tick() {
    if (++count_ % PROGRESS_STEP != 0 || !enabled_) return;
    std::fprintf(stderr, "\r%s: %zu records", label_.c_str(), count_);
    progressShown = true;
}

}  // namespace mergedb::cli
