#include "bench_data.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "bench_peers.h"

namespace mergedb::bench {
namespace {

const char *const WORDS[] = {"Smith", "Jones", "Garcia", "Miller", "Davis", "Lopez", "Wilson", "Anderson",
                             "Thomas", "Taylor", "Moore", "Jackson", "Martin", "Lee", "Perez", "White"};

const std::string FIELD_END_1("\xde\x31\x04\x00\x04\x00\x31\xde\n", 9);
const std::string RECORD_END_1("\xde\x34\x06\x00\x00\x00\x06\x00\x34\xde\x0c", 11);
const std::string NAME_LIST_1("\xde\x62\x04\x00\x04\x00\x62\xde\n", 9);

// A 16-byte header with the stream right behind it, and the head record.
std::string headFor(DataKind kind, int fieldCount) {
    const unsigned char header[16] = {0xFF, 'Z', 'R', 'N', 16, 0, 0, 0, 1, 10, 0,
                                      static_cast<unsigned char>(kind == DataKind::Tagged1), 0, 0, 0, 0};
    std::string head(reinterpret_cast<const char *>(header), sizeof header);
    if (kind == DataKind::Tagged0) {
        head += "\x0e\n";
        for (int f = 1; f <= fieldCount; ++f) head += "\xc3\x0c\xc3" + fieldName(kind, f) + "\xc4\x0c\xc4\n";
        head += "\x12\n\x05\n";
    } else {
        head += NAME_LIST_1;
        for (int f = 1; f <= fieldCount; ++f) head += fieldName(kind, f) + "~";
        head += "~" + RECORD_END_1;
    }
    return head;
}

void appendDelimited(std::string &out, const std::vector<std::string> &values, Shape shape = Shape::Address) {
    for (size_t f = 0; f < values.size(); ++f) {
        if (f > 0) out += FIELD_DELIMITER;
        // Every even field (counted from 1) is quoted, or every field.
        if (f % 2 == 1 || shape == Shape::Quoted) {
            out += QUOTE + values[f] + QUOTE;
        } else {
            out += values[f];
        }
    }
    out += RECORD_DELIMITER;
}

void appendRecord(std::string &out, DataKind kind, Shape shape, const std::vector<std::string> &values) {
    switch (kind) {
    case DataKind::Delimited: appendDelimited(out, values, shape); return;
    case DataKind::Tagged0:
        for (const std::string &value : values) out += value + "\x12\n";
        out += "\x05\n";
        return;
    case DataKind::Tagged1:
        for (const std::string &value : values) out += value + FIELD_END_1;
        out += RECORD_END_1;
        return;
    }
}

void addressRecord(std::vector<std::string> &values, uint64_t number, Shape shape, std::mt19937 &random) {
    values.assign(ADDRESS_FIELDS, {});
    values[0] = std::to_string(number);
    for (int f = 2; f <= ADDRESS_FIELDS; ++f) {
        std::string &value = values[f - 1];
        value = WORDS[random() % 16];
        if (f % 3 == 0) value += std::string(" ") + WORDS[random() % 16];
        if (f == 4) value += ", " + std::to_string(random() % 10000);  // holds the field delimiter
    }
    if (shape != Shape::LongText) return;
    // The last field, which is quoted, a note of sentences.
    std::string &note = values[ADDRESS_FIELDS - 1];
    for (size_t length = 1000 + random() % 3001; note.size() < length;) {
        note += std::string(note.empty() ? "" : random() % 8 == 0 ? ", " : " ") + WORDS[random() % 16];
    }
    note += ".";
}

// Buffers a table's bytes and writes them in large pieces.
class TableWriter {
public:
    TableWriter(const std::string &path, DataKind kind, int fieldCount, Shape shape = Shape::Address)
        : file_(std::fopen(path.c_str(), "wb"), &std::fclose), kind_(kind), shape_(shape) {
        if (file_ == nullptr) throw std::runtime_error("cannot write " + path);
        if (kind != DataKind::Delimited) chunk_ = headFor(kind, fieldCount);
    }

    void add(const std::vector<std::string> &values) {
        appendRecord(chunk_, kind_, shape_, values);
        ++facts_.records;
        for (const std::string &value : values) facts_.textBytes += std::min(value.size(), BUFFER_TEXT_LIMIT);
        if (chunk_.size() >= (1u << 20)) flush();
    }

    TableFacts finish() {
        flush();
        if (std::fflush(file_.get()) != 0) throw std::runtime_error("cannot write a table");
        return facts_;
    }

private:
    void flush() {
        if (std::fwrite(chunk_.data(), 1, chunk_.size(), file_.get()) != chunk_.size()) {
            throw std::runtime_error("cannot write a table");
        }
        facts_.fileBytes += chunk_.size();
        chunk_.clear();
    }

    std::unique_ptr<std::FILE, decltype(&std::fclose)> file_;
    DataKind kind_;
    Shape shape_;
    std::string chunk_;
    TableFacts facts_;
};

}  // namespace

std::string fieldName(DataKind kind, int i) {
    return (kind == DataKind::Delimited ? "" : "Field") + std::to_string(i);
}

std::string wideValue(int i) {
    std::string value = "v";
    return value += std::to_string(i);
}

TableFacts writeAddressTable(const std::string &path, DataKind kind, uint64_t size, Shape shape, uint32_t seed) {
    TableWriter writer(path, kind, ADDRESS_FIELDS, shape);
    std::mt19937 random(seed);
    std::vector<std::string> values;
    std::string delimited;
    for (uint64_t delimitedBytes = 0, number = 1; delimitedBytes < size; ++number) {
        addressRecord(values, number, shape, random);
        delimited.clear();
        appendDelimited(delimited, values, shape);
        delimitedBytes += delimited.size();
        writer.add(values);
    }
    return writer.finish();
}

TableFacts writeWideTable(const std::string &path, DataKind kind, int fieldCount) {
    constexpr int RECORDS = 4;
    TableWriter writer(path, kind, fieldCount);
    std::vector<std::string> values;
    for (int f = 1; f <= fieldCount; ++f) values.push_back(wideValue(f));
    for (int r = 0; r < RECORDS; ++r) writer.add(values);
    return writer.finish();
}

}  // namespace mergedb::bench
