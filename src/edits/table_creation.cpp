// Making new tables. The host builds a list of field names, one call per
// name, and hands it over with a table's name and kind. A tagged table gets
// the header, the prefix block and a head record that names the fields; a
// delimited table is an empty file.
#include <array>
#include <cstring>
#include <span>

#include "fields/field_array.h"
#include "formats/tagged_format.h"
#include "catalogue/database.h"
#include "frame/result.h"
#include "tablefile/file_service.h"
#include "tablefile/table_path.h"
#include "formats/tagged_text.h"

namespace mergedb {
namespace {

// One name of a field list, NUL-ended.
using NameSlot = char[FIELD_NAME_SIZE];

// Room for a name's text on its way into a head.
constexpr size_t NAME_TEXT_SIZE = 160;

// A list may hold one name more than a table, so that creation, and not
// building, refuses the list that is too long.
constexpr uint16_t LIST_LIMIT = FIELD_LIMIT + 1;

static_assert(LIST_LIMIT * FIELD_NAME_SIZE <= UINT16_MAX, "a full list fits one block");

// The slots of the list behind handle, a block of whole slots made as a
// field list, which tells how many names it holds. A stale handle or any
// other block is never read, resized or freed as a list.
std::span<NameSlot> fieldListSlots(BlockHandle list) {
    auto *slots = blockLockKind<NameSlot>(list, BlockKind::FieldList);
    return slots == nullptr ? std::span<NameSlot>() : std::span<NameSlot>(slots, blockSize(list) / FIELD_NAME_SIZE);
}

void fieldListFree(BlockHandle list) {
    if (!fieldListSlots(list).empty()) blockFree(&list);
}

// A name longer than a slot holds is refused rather than cut.
uint16_t fieldListAdd(BlockHandle *listSlot, const char *name) {
    size_t length = strnlen(name, FIELD_NAME_SIZE);
    if (length >= FIELD_NAME_SIZE) return ERR_UNSUPPORTED;
    BlockHandle list = 0;
    if (*listSlot == 0) {
        list = blockAlloc(FIELD_NAME_SIZE, BlockKind::FieldList);
        if (list == 0) return ERR_MEMORY;
    } else {
        size_t count = fieldListSlots(*listSlot).size();
        if (count == 0) return ERR_MEMORY;
        if (count >= LIST_LIMIT) return ERR_TOO_MANY_FIELDS;
        list = blockResize(*listSlot, static_cast<uint16_t>((count + 1) * FIELD_NAME_SIZE));
        if (list == 0) return ERR_MEMORY;
    }
    *listSlot = list;
    std::memcpy(fieldListSlots(list).back(), name, length + 1);
    return 0;
}

// Writes bytes at the file's position; a short write is ERR_WRITE.
uint16_t writeBytes(FileObject &file, std::span<const uint8_t> bytes) {
    if (bytes.empty()) return 0;
    int16_t written = fileWrite(&file, bytes.data(), static_cast<uint16_t>(bytes.size()));
    return written == static_cast<int16_t>(bytes.size()) ? 0 : ERR_WRITE;
}

// The whole file: header, prefix block and head record.
uint16_t writeTaggedFile(FileObject &file, std::span<const NameSlot> names, uint16_t kind) {
    const auto header = createdHeader(kind);
    const TaggedHeadMarks marks = taggedHeadMarks(kind);
    for (std::span<const uint8_t> part :
         {std::span<const uint8_t>(header), std::span<const uint8_t>(CREATED_PREFIX_BLOCK), marks.start}) {
        if (uint16_t code = writeBytes(file, part)) return code;
    }
    for (const NameSlot &slot : names) {
        // A name goes in as its raw OEM text, measured as tagged text.
        std::array<char, NAME_TEXT_SIZE> text{};
        textToOemRaw(slot, text);
        std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t *>(text.data()), textLength(text));
        for (std::span<const uint8_t> part : {marks.beforeName, bytes, marks.afterName}) {
            if (uint16_t code = writeBytes(file, part)) return code;
        }
    }
    if (uint16_t code = writeBytes(file, marks.listEnd)) return code;
    return writeBytes(file, taggedRecordEnd(kind));
}

// The work of a tagged database. The caller frees the list.
uint16_t createTaggedTable(const Env &env, const char *path, BlockHandle list, uint16_t kind) {
    std::span<const NameSlot> names = fieldListSlots(list);
    if (names.size() > static_cast<size_t>(FIELD_LIMIT)) return ERR_TOO_MANY_FIELDS;
    if (names.empty()) return ERR_MEMORY;
    if (!isTaggedKind(kind)) return ERR_FORMAT;
    FileObject file;
    if (uint16_t code = fileCreate(env, path, MODE_CREATE_REPLACE, &file)) return code;
    uint16_t code = writeTaggedFile(file, names, kind);
    fileClose(&file);
    // An incomplete file would not open as a table: it goes.
    if (code != 0) fileDelete(env, path);
    return code;
}

// The path of a new table: a null name is ERR_MEMORY, and a path too long
// for the buffer ERR_CREATE, as no file can be made under it.
uint16_t creationPath(const MergeDatabase &database, const char *tableName, char (&path)[PATH_BUFFER_SIZE]) {
    if (tableName == nullptr) return ERR_MEMORY;
    return joinTablePath(database.path, tableName, TableName::Whole, path) ? 0 : ERR_CREATE;
}

uint16_t createEmptyFile(const Env &env, const char *path) {
    FileObject file;
    if (uint16_t code = fileCreate(env, path, MODE_CREATE_REPLACE, &file)) return code;
    return fileClose(&file);
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbBuildMerge(uint32_t *listSlot, const char *name) {
    if (listSlot == nullptr || name == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(fieldListAdd(listSlot, name));
}

// On a tagged database the list is freed whatever the outcome; a delimited
// table is an empty file, and its list is left alone.
extern "C" DbResult MERGEDB_CALL dbCreateMerge(uint32_t databaseHandle, const char *tableName, uint32_t list,
                                               uint16_t kind) {
    const MergeDatabase *database = databaseLock(databaseHandle);
    if (database == nullptr) return errorResult(ERR_MEMORY);
    if (database->subtype != DB_SUBTYPE_TAGGED && database->subtype != DB_SUBTYPE_DELIMITED) {
        return errorResult(ERR_UNSUPPORTED);
    }
    char path[PATH_BUFFER_SIZE];
    uint16_t code = creationPath(*database, tableName, path);
    const Env &env = *database->env;
    if (database->subtype == DB_SUBTYPE_DELIMITED) return errorResult(code != 0 ? code : createEmptyFile(env, path));
    if (code == 0) code = createTaggedTable(env, path, list, kind);
    fieldListFree(list);
    return errorResult(code);
}
