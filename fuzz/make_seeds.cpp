// Writes the seed corpora of the fuzz targets into the directory named by
// its argument, one folder per target: tagged documents made by the driver
// and by hand, delimited text behind the strings that open it, and host
// call sequences.
#include <filesystem>
#include <fstream>
#include <random>

#include "fuzz_support.h"

using namespace mergedb::fuzz;

namespace {

std::filesystem::path outDir;

void seed(const std::string &target, const std::string &name, const Bytes &bytes) {
    std::filesystem::create_directories(outDir / target);
    std::ofstream out(outDir / target / name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes text(std::string_view s) { return Bytes(s.begin(), s.end()); }

// A variable token with its body.
Bytes token(uint8_t lead, uint8_t code, const Bytes &body = {}) {
    auto l = static_cast<uint16_t>(body.size() + 4);
    Bytes length = {static_cast<uint8_t>(l), static_cast<uint8_t>(l >> 8)};
    return Bytes{lead, code} + length + body + length + Bytes{code, lead};
}

const Bytes FIELD_END_0 = {18, 10};
const Bytes RECORD_END_0 = {5, 10};
const Bytes FIELD_END_1 = token(222, 49) + Bytes{10};
const Bytes RECORD_END_1 = token(222, 52, {0, 0}) + Bytes{12};

// A tagged document: header, a prefix of filler up to docOffset, stream.
Bytes document(uint8_t minorVersion, uint32_t docOffset, const Bytes &stream) {
    Bytes bytes = {0xFF, 'Z', 'R', 'N', static_cast<uint8_t>(docOffset), static_cast<uint8_t>(docOffset >> 8), 0, 0,
                   1, 10, 0, minorVersion, 0, 0, 0, 0};
    bytes.resize(docOffset, 0x20);
    return bytes + stream;
}

Bytes nameOn(std::string_view name) { return Bytes{195, 12, 195} + text(name) + Bytes{196, 12, 196}; }

// Tables made by the driver: a head, and records put in by inserts.
void driverTables() {
    uint32_t database = scratchDatabase(DB_SUBTYPE_TAGGED);
    const std::vector<std::vector<std::string>> shapes = {
        {}, {"ab", "c"}, {"", "x", "a longer value with blanks"}, {std::string(300, 'v'), "", "-12", "1/2/1997"}};
    for (uint16_t kind : {DB_KIND_TAGGED_0, DB_KIND_TAGGED_1}) {
        for (size_t fields = 1; fields <= 4; fields += 3) {
            for (size_t records = 0; records < shapes.size(); ++records) {
                uint32_t list = 0;
                for (size_t f = 0; f < fields; ++f) dbBuildMerge(&list, ("Field" + std::to_string(f)).c_str());
                dbCreateMerge(database, "s.doc", list, kind);
                uint32_t table = 0;
                dbOpenTableMerge(DB_SUBTYPE_TAGGED, database, "s.doc", 0, 0, &table, nullptr, nullptr, nullptr,
                                 nullptr, 0);
                for (size_t r = 0; r < records; ++r) {
                    dbClearRecordMerge(table);
                    for (size_t f = 0; f < fields; ++f) {
                        const std::string &value = shapes[records][(r + f) % shapes[records].size()];
                        dbPutFieldValueHMerge(table, static_cast<uint16_t>(f), value.c_str(), DB_TYPE_TEXT,
                                              static_cast<uint16_t>(value.size()));
                    }
                    dbInsertMerge(table, 0, nullptr);
                }
                dbCloseTableMerge(&table);
                seed("fuzz_tagged", "driver-" + std::to_string(kind) + "-" + std::to_string(fields) + "-" +
                                        std::to_string(records),
                     readFile("s.doc"));
            }
        }
    }
    removeFile("s.doc");
}

// Documents with the tokens and head forms that the driver never writes.
void handmadeDocuments() {
    const Bytes extended = {192, 0x17, 1, 192};
    const Bytes attribute = {195, 3, 195};
    const Bytes value = text("a") + extended + Bytes{169, 140, 9} + attribute + text("b") + token(223, 7, {5, 10}) +
                        Bytes{193, 1, 2, 3, 4, 5, 6, 7, 193};
    const Bytes numberedHead0 = Bytes{14, 10} + nameOn("Name") + text("12,34,56,78,xyz") + Bytes{10} + nameOn("City") +
                                Bytes{10} + FIELD_END_0 + RECORD_END_0;
    seed("fuzz_tagged", "numbered-0",
         document(0, 16, numberedHead0 + value + FIELD_END_0 + text("z") + FIELD_END_0 + RECORD_END_0 + text("q") +
                             FIELD_END_0 + RECORD_END_0));
    const Bytes numberedHead1 = token(222, 72) + text("skipped") + token(222, 98) + Bytes{10} + text("a~") + Bytes{10} +
                                text("b~~rest") + Bytes{10} + text("1,2,3,4,") + Bytes{10} + text("5,6,7,8,") +
                                Bytes{10} + RECORD_END_1;
    seed("fuzz_tagged", "numbered-1",
         document(1, 40, numberedHead1 + FIELD_END_1 + value + FIELD_END_1 + RECORD_END_1 + text("x") + FIELD_END_1 +
                             RECORD_END_1));
    // Dialect 0 marks in a file of dialect 1, records ended by the other
    // dialect's mark, a final byte 26.
    const Bytes plainHead = Bytes{10, 14, 10} + nameOn("A") + Bytes{140} + FIELD_END_0 + RECORD_END_0;
    seed("fuzz_tagged", "mixed-marks",
         document(1, 16, plainHead + text("x") + FIELD_END_0 + RECORD_END_1 + text("y") + FIELD_END_1 + RECORD_END_0 +
                             Bytes{26}));
    // A record longer than one window, in a variable token and in text.
    seed("fuzz_tagged", "long-record",
         document(0, 16, numberedHead0 + token(223, 1, Bytes(9000, 'b')) + Bytes(5000, 'c') + FIELD_END_0 +
                             RECORD_END_0));
}

// A delimited input: the four strings, each behind its length, the options
// byte, then the file.
Bytes delimited(std::string_view field, std::string_view record, std::string_view quote, std::string_view ignore,
                uint8_t options, std::string_view file) {
    Bytes bytes;
    for (std::string_view s : {field, record, quote, ignore}) bytes = bytes + Bytes{static_cast<uint8_t>(s.size())} + text(s);
    return bytes + Bytes{options} + text(file);
}

void delimitedInputs() {
    seed("fuzz_delimited", "csv",
         delimited(",", "\r\n", "\"", "", 0,
                   "\"ab\",\"c\",\"\"\r\n\"a,b\",\"x\"\"y\",z\r\n\"q\"w\",\"e\r\nf\",g\r\n,,\r\n"));
    seed("fuzz_delimited", "ignore", delimited(";", "\n", "'", " ", 4, " a ; 'b c' ;d\n\nx;y;z\n'open\n"));
    seed("fuzz_delimited", "long-strings",
         delimited("||", "#\r\n", "<<", "--", 3, "a||b--c||<<d||e>><<#\r\nf||<<g<<||h#\r\n\x1a"));
    seed("fuzz_delimited", "same-first-bytes", delimited("\r,", "\r\n", "\r", "", 0, "a\r,b\r\r\n\rc\r\r,d\r\n"));
    seed("fuzz_delimited", "empty-strings", delimited("", "", "", "", 0, "a,b\nc\n"));
    seed("fuzz_delimited", "long-record", delimited(",", "\n", "\"", "", 0, std::string(30000, 'x') + "\ny,z\n"));
}

// Host call sequences: random ones, and runs of deletes that reach a
// compaction in each kind of table.
void hostCallInputs() {
    std::mt19937 random(20240601);
    for (int i = 0; i < 24; ++i) {
        Bytes bytes(64 + random() % 1500);
        for (uint8_t &b : bytes) b = static_cast<uint8_t>(random());
        seed("fuzz_host_calls", "random-" + std::to_string(i), bytes);
    }
    const uint8_t DELETE_RUN = 13;
    for (uint8_t kind = 0; kind < 3; ++kind) {
        Bytes bytes = {kind, 2, 4};
        if (kind == 0) bytes = bytes + Bytes{0, 0, 0, 0};
        bytes = bytes + Bytes{1, 'a', 0, 2, 'b', 'c', 0, 0, 0, 1, 'd', 0};
        for (int run = 0; run < 7; ++run) bytes = bytes + Bytes{DELETE_RUN, 31};
        seed("fuzz_host_calls", "compaction-" + std::to_string(kind), bytes + Bytes{12});
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    outDir = argv[1];
    driverTables();
    handmadeDocuments();
    delimitedInputs();
    hostCallInputs();
    return 0;
}
