#include "support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>

#include "catalogue/database.h"
#include "platform/windows_api.h"
#include "support/fault_env.h"
#include "support/test_platform.h"

namespace mergedb::test {

Bytes bytesOf(const std::string &text) { return Bytes(text.begin(), text.end()); }

Bytes join(const std::vector<Bytes> &parts) {
    Bytes all;
    for (const Bytes &part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes hex(const std::string &text) {
    std::istringstream in(text);
    Bytes bytes;
    for (unsigned byte; in >> std::hex >> byte;) bytes.push_back(static_cast<uint8_t>(byte));
    return bytes;
}

std::string native(std::string path) {
    std::replace(path.begin(), path.end(), '/', PATH_SEPARATOR);
    return path;
}

// A fresh name under the temporary directory; create_directory tells
// whether the name was free.
TempDir::TempDir() {
    std::random_device random;
    std::filesystem::path candidate;
    do {
        candidate = std::filesystem::temp_directory_path() / ("mergedb-test-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(candidate));
    path_ = candidate.string();
}

TempDir::~TempDir() {
    std::error_code ignored;
    // Files made read-only by a test must not stop the clean-up, and names
    // that were written exactly go the same way.
    const std::filesystem::path root = exactPath(path_);
    for (const auto &entry : std::filesystem::recursive_directory_iterator(root, ignored)) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
    }
    std::filesystem::remove_all(root, ignored);
}

void TempDir::write(const std::string &name, const Bytes &bytes) const {
    std::ofstream out(exactPath(file(name)), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    // On Windows a file that a table holds open can't be written over; a
    // test that tried would go on with the old bytes.
    if (!out) ADD_FAILURE() << "could not write " << name;
}

Bytes TempDir::read(const std::string &name) const {
    std::ifstream in(file(name), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string TempDir::file(const std::string &name) const { return path_ + native("/" + name); }

bool TempDir::exists(const std::string &name) const { return std::filesystem::exists(file(name)); }

#if defined(__linux__)
int heldAfterDelete(const std::string &name) {
    int held = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (!error && target.ends_with(name + " (deleted)")) held++;
    }
    return held;
}
#endif

uint32_t liveBlocks() {
    uint32_t live = 0;
    for (uint32_t i = 0; i < blockregistry::slotCount; ++i) live += blockregistry::slots[i].address != nullptr;
    return live;
}

void *messagesModule() {
    static void *module = loadModule(MERGEDB_MESSAGES_MODULE);
    return module;
}

uint32_t openDatabase(const TempDir &dir, uint16_t subtype) {
    uint32_t session = 0;
    dbInitMerge(1, 0, 0, 0, &session, messagesModule());
    uint32_t database = 0;
    if (dbOpenDBMerge(subtype, 0, 0, dir.path().c_str(), &database) != 0) {
        throw std::runtime_error("dbOpenDBMerge failed");
    }
    databaseLock(database)->env = &faultEnv();
    return database;
}

DbResult openDelimited(uint32_t database, const std::string &name, uint32_t *table, const char *fieldDelimiter,
                       const char *recordDelimiter, const char *quote, const char *ignore, uint16_t access,
                       uint16_t exclusive) {
    return dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database, name.c_str(), access, exclusive, table,
                            fieldDelimiter, recordDelimiter, quote, ignore, 0);
}

DbResult openTagged(uint32_t database, const std::string &name, uint32_t *table, uint16_t access,
                    uint16_t exclusive) {
    return dbOpenTableMerge(DB_SUBTYPE_TAGGED, database, name.c_str(), access, exclusive, table, nullptr,
                            nullptr, nullptr, nullptr, 0);
}

namespace {

const Bytes FIELD_END_0 = {0x12, 0x0A};
const Bytes RECORD_END_0 = {0x05, 0x0A};
const Bytes FIELD_END_1 = {0xDE, 0x31, 4, 0, 4, 0, 0x31, 0xDE, 0x0A};
const Bytes RECORD_END_1 = {0xDE, 0x34, 6, 0, 0, 0, 6, 0, 0x34, 0xDE, 0x0C};
const Bytes NAME_ON = {0xC3, 0x0C, 0xC3};
const Bytes NAME_OFF = {0xC4, 0x0C, 0xC4, 0x0A};

}  // namespace

Bytes taggedHead(uint8_t minorVersion, const std::vector<std::string> &names) {
    if (minorVersion == 1) {
        Bytes head = {0xDE, 0x62, 4, 0, 4, 0, 0x62, 0xDE, 0x0A};
        for (const std::string &name : names) head = join({head, bytesOf(name + "~")});
        return join({head, bytesOf("~"), RECORD_END_1});
    }
    Bytes head = {0x0E, 0x0A};
    for (const std::string &name : names) head = join({head, NAME_ON, bytesOf(name), NAME_OFF});
    return join({head, FIELD_END_0, RECORD_END_0});
}

Bytes taggedRecord(uint8_t minorVersion, const std::vector<std::string> &values) {
    const bool dialect1 = minorVersion == 1;
    Bytes record;
    for (const std::string &value : values) {
        record = join({record, bytesOf(value), dialect1 ? FIELD_END_1 : FIELD_END_0});
    }
    return join({record, dialect1 ? RECORD_END_1 : RECORD_END_0});
}

Bytes taggedDocument(uint8_t minorVersion, const Bytes &stream) {
    return join({{0xFF, 'Z', 'R', 'N', 16, 0, 0, 0, 1, 10, 0, minorVersion, 0, 0, 0, 0}, stream});
}

}  // namespace mergedb::test
