#include "fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "robustness/host_areas.h"

namespace mergedb::fuzz {
namespace {

using test::fieldItemAreaSize;
using test::isTextType;
using test::valueAreaSize;

constexpr uint16_t LAST_TYPE = 16;

// Reads the field at index in every type into a heap buffer of exactly its
// size, so that a write past it is caught. A table without fields has no
// field array.
void readField(uint32_t table, uint16_t index, uint16_t count) {
    for (uint16_t type = 0; type <= LAST_TYPE; ++type) {
        size_t size = valueAreaSize(type);
        auto buffer = std::make_unique<char[]>(size);
        uint16_t length = 0xEEEE;
        DbResult result = dbGetFieldValueHMerge(table, index, buffer.get(), type, &length);
        if (index >= count) {
            FUZZ_CHECK(result == DB_RESULT_ERROR(count == 0 ? ERR_MEMORY : ERR_NO_FIELD));
            continue;
        }
        FUZZ_CHECK(result == DB_RESULT_OK);
        if (length == 0xEEEE || length == 0) continue;
        FUZZ_CHECK(length <= size);
        if (isTextType(type)) FUZZ_CHECK(length == strnlen(buffer.get(), size));
    }
}

void readRecordValues(uint32_t table) {
    uint16_t count = 0;
    FUZZ_CHECK(dbGetTableInfoMerge(table, &count, 2) == DB_RESULT_OK);
    for (uint16_t i = 0; i <= count; ++i) readField(table, i, count);
    for (uint16_t i = 0; i < count; ++i) {
        auto name = std::make_unique<char[]>(fieldItemAreaSize(1));
        FUZZ_CHECK(dbGetFieldInfoHMerge(table, i, name.get(), 1) == DB_RESULT_OK);
        auto value = std::make_unique<char[]>(valueAreaSize(DB_TYPE_TEXT));
        uint16_t length = 0;
        FUZZ_CHECK(dbGetFieldValueMerge(table, name.get(), value.get(), DB_TYPE_TEXT, &length) == DB_RESULT_OK);
    }
}

// The names and items of the fields and of the table.
void readDirectory(uint32_t table) {
    uint16_t count = 0;
    FUZZ_CHECK(dbGetTableInfoMerge(table, &count, 2) == DB_RESULT_OK);
    uint16_t seen = 0;
    auto name = std::make_unique<char[]>(fieldItemAreaSize(1));
    for (uint16_t mode = 1;; mode = 0) {
        uint16_t index = 0;
        DbResult result = dbGetFieldNamesMerge(table, name.get(), &index, mode);
        if (result == DB_RESULT_END_OF_DATA) break;
        FUZZ_CHECK(result == DB_RESULT_OK && index == seen);
        FUZZ_CHECK(++seen <= count);
    }
    FUZZ_CHECK(seen == count);
    for (uint16_t i = 0; i <= count; ++i) {
        // Items 0 to 6: the five that answer and one at either side.
        for (uint16_t item = 0; item <= 6; ++item) {
            auto out = std::make_unique<char[]>(fieldItemAreaSize(item));
            DbResult result = dbGetFieldInfoHMerge(table, i, out.get(), item);
            // Item 5 needs the resource module, which these sessions lack.
            if (item == 5) continue;
            DbResult expected = i < count ? DB_RESULT_OK : DB_RESULT_ERROR(count == 0 ? ERR_NO_FIELDS : ERR_NO_FIELD);
            FUZZ_CHECK(result == expected);
        }
    }
    uint16_t kind = 0;
    FUZZ_CHECK(dbGetTableInfoMerge(table, &kind, 1) == DB_RESULT_OK);
    auto path = std::make_unique<char[]>(256);
    FUZZ_CHECK(dbGetTableInfoMerge(table, path.get(), 4) == DB_RESULT_OK);
}

}  // namespace

const std::string &scratchDir() {
    // Never destroyed, so that the removal at exit still has it.
    static const std::string *path = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "mergedb-fuzz-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(scratchDir(), ignored);
        });
        return new std::string(pattern);
    }();
    return *path;
}

void writeFile(const std::string &name, const Bytes &bytes) {
    std::ofstream out(scratchDir() + "/" + name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void writeFile(const std::string &name, std::string_view text) { writeFile(name, Bytes(text.begin(), text.end())); }

Bytes readFile(const std::string &name) {
    std::ifstream in(scratchDir() + "/" + name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void removeFile(const std::string &name) { std::remove((scratchDir() + "/" + name).c_str()); }

namespace {
uint32_t databases[2] = {};
}

uint32_t scratchDatabase(uint16_t subtype) {
    uint32_t &database = databases[subtype == DB_SUBTYPE_DELIMITED];
    if (database == 0) {
        uint32_t session = 0;
        dbInitMerge(1, 0, 0, 0, &session, nullptr);
        if (dbOpenDBMerge(subtype, 0, 0, scratchDir().c_str(), &database) != DB_RESULT_OK) std::abort();
        // Closed before the blocks' registry goes at exit, which was made
        // by the open.
        std::atexit([] {
            for (uint32_t &open : databases) dbCloseDBMerge(&open);
        });
    }
    return database;
}

void fail(const char *what, const char *file, int line) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
    std::abort();
}

uint8_t Reader::byte() { return position_ < size_ ? data_[position_++] : 0; }

std::string Reader::text(size_t limit) {
    size_t length = byte() % (limit + 1);
    std::string result;
    while (result.size() < length && !empty()) result.push_back(static_cast<char>(byte()));
    return result;
}

Bytes Reader::rest() {
    Bytes bytes(data_ + std::min(position_, size_), data_ + size_);
    position_ = size_;
    return bytes;
}

void walkTable(uint32_t table, uint32_t fileSize, const std::vector<uint32_t> &jumps) {
    readDirectory(table);
    readRecordValues(table);
    // Every record a walk delivers holds at least one byte of the file.
    using Move = DbResult (*)(uint32_t, uint32_t, uint32_t *);
    const Move steps[] = {dbNextMerge, dbPrevMerge};
    for (int direction = 0; direction < 2; ++direction) {
        uint32_t mark = 0;
        DbResult result = direction == 0 ? dbFirstMerge(table) : dbLastMerge(table, 1, &mark);
        for (uint32_t records = 0; result != DB_RESULT_END_OF_DATA; ++records) {
            FUZZ_CHECK(records <= fileSize);
            if (result == DB_RESULT_OK) readRecordValues(table);
            else FUZZ_CHECK(DB_RESULT_IS_ERROR(result));
            result = steps[direction](table, 1, &mark);
            FUZZ_CHECK(result != DB_RESULT_OK || mark == 1);
        }
    }
    for (uint32_t position : jumps) {
        uint32_t mark = 0;
        if (dbGetRecordMerge(table, 1, &mark, position) == DB_RESULT_OK) {
            FUZZ_CHECK(mark == position);
            readRecordValues(table);
        }
    }
}

}  // namespace mergedb::fuzz
