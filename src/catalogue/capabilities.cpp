// What a host may ask about a database and the driver's capabilities, most
// of it answered with constants: one data type, no indexes, no locks. Also
// the table option, and the existence and erasure of a database's files.
#include <cstring>
#include <iterator>

#include "fields/field_array.h"
#include "catalogue/database.h"
#include "frame/host_memory.h"
#include "frame/messages.h"
#include "frame/result.h"
#include "tablefile/file_service.h"
#include "tablefile/table_path.h"

namespace mergedb {
namespace {

// Item 12 of a database loads the text of code 0 with this buffer.
constexpr int NO_ERROR_TEXT_SIZE = 80;

enum class InfoAnswer : uint8_t { Unsupported, Path, SubtypeName, NoErrorText, Word, ZeroBytes, DelimitedFlag };

struct InfoItem {
    InfoAnswer answer;
    uint16_t value;  // the word of Word, the byte count of ZeroBytes
};

// The items of dbGetDBInfoMerge, by number.
constexpr InfoItem DATABASE_ITEMS[] = {
    {InfoAnswer::Unsupported, 0},          // 0
    {InfoAnswer::Path, 0},                 // 1
    {InfoAnswer::SubtypeName, 0},          // 2
    {InfoAnswer::Word, PATH_BUFFER_SIZE},  // 3
    {InfoAnswer::Word, FIELD_NAME_SIZE},   // 4
    {InfoAnswer::Word, 0},                 // 5
    {InfoAnswer::Word, FIELD_VALUE_LIMIT}, // 6
    {InfoAnswer::ZeroBytes, 1},            // 7
    {InfoAnswer::ZeroBytes, 9},            // 8
    {InfoAnswer::ZeroBytes, 9},            // 9
    {InfoAnswer::Unsupported, 0},          // 10
    {InfoAnswer::Unsupported, 0},          // 11
    {InfoAnswer::NoErrorText, 0},          // 12
    {InfoAnswer::ZeroBytes, 1},            // 13
    {InfoAnswer::Unsupported, 0},          // 14
    {InfoAnswer::DelimitedFlag, 0},        // 15
    {InfoAnswer::ZeroBytes, 1},            // 16
};

static_assert(DATABASE_ITEMS[DB_DATABASE_ITEM_PATH].answer == InfoAnswer::Path);
static_assert(DATABASE_ITEMS[DB_DATABASE_ITEM_SUBTYPE_NAME].answer == InfoAnswer::SubtypeName);
static_assert(DATABASE_ITEMS[DB_DATABASE_ITEM_PATH_SIZE].value == PATH_BUFFER_SIZE);
static_assert(DATABASE_ITEMS[DB_DATABASE_ITEM_NAME_SIZE].value == FIELD_NAME_SIZE);
static_assert(DATABASE_ITEMS[DB_DATABASE_ITEM_VALUE_SIZE].value == FIELD_VALUE_LIMIT);
static_assert(DATABASE_ITEMS[DB_DATABASE_ITEM_NO_ERROR_TEXT].answer == InfoAnswer::NoErrorText);
static_assert(DATABASE_ITEMS[DB_DATABASE_ITEM_ANSI_OPTION].answer == InfoAnswer::DelimitedFlag);

uint16_t loadText(UINT id, int bufferSize, char *out) {
    return loadOemText(id, bufferSize, out) > 0 ? 0 : ERR_GENERAL;
}

uint16_t subtypeName(uint16_t subtype, char *out) {
    if (subtype == DB_SUBTYPE_TAGGED) return loadText(DB_MSG_SUBTYPE_TAGGED, SUBTYPE_NAME_SIZE, out);
    if (subtype == DB_SUBTYPE_DELIMITED) return loadText(DB_MSG_SUBTYPE_DELIMITED, SUBTYPE_NAME_SIZE, out);
    return ERR_UNSUPPORTED;
}

uint16_t databaseInfo(const MergeDatabase &database, void *out, uint16_t item) {
    if (item >= std::size(DATABASE_ITEMS) || DATABASE_ITEMS[item].answer == InfoAnswer::Unsupported) {
        return ERR_UNSUPPORTED;
    }
    if (out == nullptr) return ERR_MEMORY;
    const InfoItem &entry = DATABASE_ITEMS[item];
    auto *text = static_cast<char *>(out);
    switch (entry.answer) {
    case InfoAnswer::Path: {
        size_t length = strnlen(database.path, PATH_BUFFER_SIZE - 1);
        std::memcpy(text, database.path, length);
        text[length] = '\0';
        return 0;
    }
    case InfoAnswer::SubtypeName:
        return subtypeName(database.subtype, text);
    case InfoAnswer::NoErrorText:
        return loadText(DB_MSG_OK, NO_ERROR_TEXT_SIZE, text);
    case InfoAnswer::Word:
        storeToHost(out, entry.value);
        return 0;
    case InfoAnswer::ZeroBytes:
        std::memset(out, 0, entry.value);
        return 0;
    case InfoAnswer::DelimitedFlag:
        storeToHost(out, uint32_t{database.subtype == DB_SUBTYPE_DELIMITED});
        return 0;
    case InfoAnswer::Unsupported:
        break;
    }
    return ERR_UNSUPPORTED;
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbGetDBInfoMerge(uint32_t handle, void *out, uint16_t item) {
    const MergeDatabase *database = databaseLock(handle);
    if (database == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(databaseInfo(*database, out, item));
}

// Walks the table kinds of a tagged database: 43, then 44, then the end.
extern "C" DbResult MERGEDB_CALL dbGetDBSubTypesMerge(uint32_t handle, char *nameOut, uint16_t *kindOut,
                                                      uint16_t firstOrNext) {
    MergeDatabase *database = databaseLock(handle);
    if (database == nullptr || nameOut == nullptr || kindOut == nullptr) return errorResult(ERR_MEMORY);
    // Delimited text has no kinds to offer.
    if (database->subtype != DB_SUBTYPE_TAGGED) return END_OF_DATA;
    UINT id = DB_MSG_KIND_TAGGED_0;
    if (firstOrNext == DB_WALK_FIRST) {
        database->subtypeCursor = 0;
        *kindOut = DB_KIND_TAGGED_0;
    } else if (database->subtypeCursor != 0) {
        return END_OF_DATA;
    } else {
        database->subtypeCursor = 1;
        *kindOut = DB_KIND_TAGGED_1;
        id = DB_MSG_KIND_TAGGED_1;
    }
    return errorResult(loadText(id, KIND_NAME_SIZE, nameOut));
}

// There is one data type.
extern "C" DbResult MERGEDB_CALL dbGetTypeNamesMerge(uint32_t, uint32_t, char *nameOut, uint16_t firstOrNext) {
    if (firstOrNext != DB_WALK_FIRST) return END_OF_DATA;
    if (nameOut == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(loadText(DB_MSG_DATA_TYPE, TYPE_NAME_SIZE, nameOut));
}

extern "C" DbResult MERGEDB_CALL dbGetTypeInfoMerge(uint32_t, uint32_t, uint16_t a, uint16_t b, uint32_t, uint32_t,
                                                    uint16_t *out1, uint16_t *out2, uint16_t *out3,
                                                    uint32_t *out4) {
    if (out1 == nullptr || out2 == nullptr || out3 == nullptr || out4 == nullptr) return errorResult(ERR_MEMORY);
    *out1 = b;
    *out2 = 0;
    *out3 = a;
    *out4 = 0;
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbGetNameInfoMerge(uint32_t, uint32_t, uint32_t, uint32_t, uint16_t *out1,
                                                    uint16_t *out2, uint16_t *out3, uint32_t *out4) {
    if (out1 == nullptr || out2 == nullptr || out3 == nullptr || out4 == nullptr) return errorResult(ERR_MEMORY);
    *out1 = 1;
    *out2 = 0xFFFF;
    *out3 = 0;
    *out4 = 0;
    return DB_RESULT_OK;
}

// Nothing is indexed.
extern "C" DbResult MERGEDB_CALL dbIsIndexedMerge(uint32_t, uint32_t, uint32_t, uint16_t *out1, uint32_t *out2) {
    if (out1 == nullptr || out2 == nullptr) return errorResult(ERR_MEMORY);
    *out1 = 0xFFFF;
    *out2 = 0;
    return DB_RESULT_OK;
}

// Every map is valid.
extern "C" DbResult MERGEDB_CALL dbIsValidMapMerge(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                                   uint32_t *valid) {
    if (valid == nullptr) return errorResult(ERR_MEMORY);
    *valid = 1;
    return DB_RESULT_OK;
}

// A lock is reported as taken, though none is.
extern "C" DbResult MERGEDB_CALL dbRecLockMerge(uint32_t, uint32_t *locked) {
    if (locked == nullptr) return errorResult(ERR_MEMORY);
    *locked = 1;
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbRecUnlockMerge(uint32_t, uint32_t *locked) {
    if (locked == nullptr) return errorResult(ERR_MEMORY);
    *locked = 0;
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbGetSessionInfoMerge(uint32_t, unsigned char *out, uint16_t item) {
    if (item != DB_SESSION_ITEM_FLAG) return errorResult(ERR_UNSUPPORTED);
    if (out == nullptr) return errorResult(ERR_MEMORY);
    *out = 0;
    return DB_RESULT_OK;
}

// Option 1 makes a delimited table convert its text between the OEM and
// ANSI pages from the next value on; every table takes it, and the text
// operations of tagged documents, whose characters are tokens, ignore it.
extern "C" DbResult MERGEDB_CALL dbSetTableOptionMerge(uint32_t handle, uint16_t option) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (option != DB_OPTION_ANSI_TEXT) return errorResult(ERR_UNSUPPORTED);
    table->oemConversion = 1;
    return DB_RESULT_OK;
}

// A missing file, or a name too long to be one, is told through exists.
extern "C" DbResult MERGEDB_CALL dbExistsMerge(uint32_t, uint32_t handle, const char *name, uint32_t *exists) {
    const MergeDatabase *database = databaseLock(handle);
    if (database == nullptr || name == nullptr || exists == nullptr) return errorResult(ERR_MEMORY);
    char path[PATH_BUFFER_SIZE];
    *exists = joinTablePath(database->path, name, TableName::Whole, path) && fileExists(*database->env, path) == 0 ? 1 : 0;
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbEraseMerge(uint32_t, uint32_t handle, const char *name) {
    const MergeDatabase *database = databaseLock(handle);
    if (database == nullptr || name == nullptr) return errorResult(ERR_MEMORY);
    char path[PATH_BUFFER_SIZE];
    if (!joinTablePath(database->path, name, TableName::Whole, path)) return errorResult(ERR_DELETE);
    return errorResult(fileDelete(*database->env, path));
}
