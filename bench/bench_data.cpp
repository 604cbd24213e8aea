#include "bench_data.h"

#include <cstdio>
#include <random>
#include <stdexcept>
#include <vector>

namespace mergedb::bench {
namespace {

const char *const WORDS[] = {"Smith", "Jones", "Garcia", "Miller", "Davis", "Lopez", "Wilson", "Anderson",
                             "Thomas", "Taylor", "Moore", "Jackson", "Martin", "Lee", "Perez", "White"};

std::string headFor(DataKind kind) {
    std::string head(16, '\0');
    const unsigned char header[16] = {0xFF, 'Z', 'R', 'N', 16, 0, 0, 0, 1, 10, 0,
                                      static_cast<unsigned char>(kind == DataKind::Tagged1), 0, 0, 0, 0};
    head.assign(reinterpret_cast<const char *>(header), 16);
    if (kind == DataKind::Tagged0) {
        head += "\x0e\n";
        for (int f = 1; f <= 10; ++f) head += "\xc3\x0c\xc3" "Field" + std::to_string(f) + "\xc4\x0c\xc4\n";
        head += "\x12\n\x05\n";
    } else {
        head += std::string("\xde\x62\x04\x00\x04\x00\x62\xde\n", 9);
        for (int f = 1; f <= 10; ++f) head += "Field" + std::to_string(f) + "~";
        head += "~" + std::string("\xde\x34\x06\x00\x00\x00\x06\x00\x34\xde\x0c", 11);
    }
    return head;
}

std::string fieldValue(std::mt19937 &random, int field) {
    std::string value = WORDS[random() % 16];
    if (field % 3 == 0) value += std::string(" ") + WORDS[random() % 16];
    if (field == 4) value += ", " + std::to_string(random() % 10000);  // holds the field delimiter
    return value;
}

void appendRecord(std::string &out, DataKind kind, std::mt19937 &random) {
    static const std::string fieldEnd1("\xde\x31\x04\x00\x04\x00\x31\xde\n", 9);
    static const std::string recordEnd1("\xde\x34\x06\x00\x00\x00\x06\x00\x34\xde\x0c", 11);
    for (int f = 1; f <= 10; ++f) {
        std::string value = fieldValue(random, f);
        switch (kind) {
        case DataKind::Delimited:
            if (f > 1) out += ',';
            if (f % 2 == 0) {
                out += '"' + value + '"';
            } else {
                out += value;
            }
            break;
        case DataKind::Tagged0: out += value + "\x12\n"; break;
        case DataKind::Tagged1: out += value + fieldEnd1; break;
        }
    }
    switch (kind) {
    case DataKind::Delimited: out += "\r\n"; break;
    case DataKind::Tagged0: out += "\x05\n"; break;
    case DataKind::Tagged1: out += recordEnd1; break;
    }
}

}  // namespace

uint64_t writeTable(const std::string &path, DataKind kind, uint64_t size, uint32_t seed) {
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) throw std::runtime_error("cannot write " + path);
    std::mt19937 random(seed);
    std::string chunk = kind == DataKind::Delimited ? "" : headFor(kind);
    uint64_t written = 0;
    uint64_t records = 0;
    while (written < size) {
        appendRecord(chunk, kind, random);
        ++records;
        if (chunk.size() >= (1u << 20) || written + chunk.size() >= size) {
            std::fwrite(chunk.data(), 1, chunk.size(), file);
            written += chunk.size();
            chunk.clear();
        }
    }
    std::fclose(file);
    return records;
}

}  // namespace mergedb::bench
