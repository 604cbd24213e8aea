// Find by example: the host fills the fields with what it looks for, and
// the driver walks the records until one fits. The example is kept as the
// criteria, a copy of the field values, because each record examined
// overwrites the fields.
#include <cstring>

#include "fields/field_array.h"
#include "frame/result.h"
#include "navigation/navigation.h"
#include "platform/windows_api.h"
#include "records/field_extraction.h"
#include "records/record_format.h"

namespace mergedb {
namespace {

constexpr char WILDCARD = '*';

std::span<const char> valueText(const FieldEntry &entry) {
    return {blockLockAs<char>(entry.value), blockSize(entry.value)};
}

void freeCriteria(MergeTable &table) { fieldsFree(&table.criteria, &table.criteriaCount); }

uint16_t copyCriterion(MergeTable &table, const FieldEntry &field) {
    if (uint16_t code = fieldsAdd(&table.criteria, &table.criteriaCount)) return code;
    FieldEntry &criterion = blockLockAs<FieldEntry>(table.criteria)[table.criteriaCount - 1];
    std::memcpy(criterion.name, field.name, FIELD_NAME_SIZE);
    std::span<const char> text = valueText(field);
    if (text.data() == nullptr) return ERR_MEMORY;
    uint16_t length = table.format->textLength(text);
    BlockHandle block = blockResize(criterion.value, static_cast<uint16_t>(length + 1));
    if (block == 0) return ERR_MEMORY;
    criterion.value = block;
    table.format->textCopy(std::span<char>(blockLockAs<char>(block), length + 1u), text);
    return 0;
}

uint16_t buildCriteria(MergeTable &table) {
    const auto *fields = blockLockAs<FieldEntry>(table.fields);
    for (int i = 0; i < table.fieldCount; ++i) {
        uint16_t code = fields == nullptr ? uint16_t{ERR_MEMORY} : copyCriterion(table, fields[i]);
        if (code != 0) {
            freeCriteria(table);
            return code;
        }
        fields = blockLockAs<FieldEntry>(table.fields);
    }
    return 0;
}

// Whether field index of the record just loaded fits its criterion. A field
// without a criterion (added since the search began) is blank in the
// example.
bool matchField(const MergeTable &table, const FieldEntry &field, int index, uint32_t blankRule) {
    const auto *criteria = blockLockAs<FieldEntry>(table.criteria);
    if (criteria == nullptr) return true;
    const char *c = index < table.criteriaCount ? blockLockAs<char>(criteria[index].value) : "";
    const char *v = blockLockAs<char>(field.value);
    if (c == nullptr || v == nullptr) return false;
    const RecordFormat &format = *table.format;
    if (format.textLength(std::span<const char>(c, std::strlen(c) + 1)) == 0) {
        return blankRule == 0 || field.blankCriterion == 0 || format.textLength(valueText(field)) == 0;
    }
    if (const char *star = std::strchr(c, WILDCARD)) return _strnicmp(v, c, static_cast<size_t>(star - c)) == 0;
    return _stricmp(v, c) == 0;
}

// All fields must fit.
bool matchRecord(const MergeTable &table, uint32_t blankRule) {
    const auto *fields = blockLockAs<FieldEntry>(table.fields);
    for (int i = 0; i < table.fieldCount; ++i) {
        if (!matchField(table, fields[i], i, blankRule)) return false;
    }
    return true;
}

uint16_t findRecord(MergeTable &table, uint16_t first, uint32_t blankRule) {
    uint16_t code = first == DB_WALK_FIRST ? moveToFirst(table) : moveToNext(table);
    while (code == 0) {
        code = loadFields(table);
        if (code == 0 && matchRecord(table, blankRule)) return 0;
        if (code == 0) code = moveToNext(table);
    }
    return code;
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbFindRecordMerge(uint32_t handle, uint32_t, uint32_t, uint32_t, uint16_t first,
                                                   uint32_t blankRule) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (first == DB_WALK_FIRST) {
        freeCriteria(*table);
        if (uint16_t code = buildCriteria(*table)) return errorResult(code);
    }
    return findRecord(*table, first, blankRule) == 0 ? DB_RESULT_OK : END_OF_DATA;
}
