// Typed reads of field values: the text that the current record left in a
// field's entry, converted afresh on each call into the type the host asks
// for, in the host's buffer.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

#include "fields/field_array.h"
#include "formats/byte_runs.h"
#include "frame/host_memory.h"
#include "frame/result.h"
#include "platform/windows_api.h"
#include "records/record_format.h"
#include "tablefile/table.h"

namespace mergedb {
namespace {

// The field number that asks for a lookup by name.
constexpr uint16_t BY_NAME = 65535;

// Bytes of text that the host's buffer takes, its NUL not counted.
constexpr size_t SHORT_TEXT_LIMIT = 254;
constexpr size_t LONG_TEXT_LIMIT = FIELD_VALUE_LIMIT;

// The date and time conversions see the first 40 bytes of a value.
constexpr size_t WORK_TEXT_LIMIT = 40;
constexpr size_t WORK_SIZE = WORK_TEXT_LIMIT + 1;

// A time text: hh?mm?ss?hh, two-byte columns three bytes apart.
constexpr size_t TIME_TEXT_LENGTH = 11;
constexpr size_t TIME_COLUMNS = 4;
constexpr size_t TIME_COLUMN_STEP = 3;

// Where the blanks between the two halves of a date and time may start.
constexpr size_t TIME_HALF_SEARCH_START = 10;

// The work buffer, with a time text's width of zeros behind it, so that the
// time columns read from any position up to its end stay inside.
using WorkBuffer = std::array<char, WORK_SIZE + TIME_TEXT_LENGTH>;

// Stores the value in the host's buffer and its size as the length result.
template <typename T>
void putValue(void *buffer, uint16_t *length, const T &value) {
    storeToHost(buffer, value);
    *length = sizeof value;
}

// The value as a C string for the runtime's number conversions. A block
// without an end reads as no number, so that nothing past it is read.
const char *plainString(std::span<const char> value) {
    return std::memchr(value.data(), '\0', value.size()) != nullptr ? value.data() : "";
}

// The value's first 40 bytes as a plain string, zeros behind it.
WorkBuffer workCopy(std::span<const char> value) {
    WorkBuffer work{};
    std::memcpy(work.data(), value.data(), strnlen(value.data(), std::min(value.size(), WORK_TEXT_LIMIT)));
    return work;
}

// atoi of width bytes (at most 4) at start, read as a string of their own.
int32_t columnNumber(const char *start, size_t width) {
    char column[5] = {};
    std::memcpy(column, start, width);
    return runtimeAtol(column);
}

uint32_t dateWord(int32_t year, int32_t first, int32_t second) {
    return static_cast<uint32_t>(year & 0xFFFF) << 16 | static_cast<uint32_t>(first & 0xFF) << 8 |
           static_cast<uint32_t>(second & 0xFF);
}

// The time word of the columns of a time text at text; the bytes between
// the columns are not read.
uint32_t timeWord(const char *text) {
    uint32_t word = 0;
    for (size_t column = 0; column < TIME_COLUMNS; ++column) {
        word = word << 8 | static_cast<uint32_t>(columnNumber(text + column * TIME_COLUMN_STEP, 2) & 0xFF);
    }
    return word;
}

// A date split from its end at the last two "/": year, second number, and
// the first number in front. False when the text has fewer than two.
bool slashDate(std::span<const char> value, uint32_t *word) {
    WorkBuffer work = workCopy(value);
    char *slash = std::strrchr(work.data(), '/');
    if (slash == nullptr) return false;
    *slash = '\0';
    int32_t year = runtimeAtol(slash + 1);
    slash = std::strrchr(work.data(), '/');
    if (slash == nullptr) return false;
    *slash = '\0';
    *word = dateWord(year, runtimeAtol(work.data()), runtimeAtol(slash + 1));
    return true;
}

// The date from fixed columns, then the time from the first byte behind
// byte 10 that is no blank, NUL or tab. A text without a time half gives
// the time word 0.
std::array<uint32_t, 2> dateTimeWords(std::span<const char> value) {
    WorkBuffer work = workCopy(value);
    uint32_t date = dateWord(columnNumber(&work[6], 4), columnNumber(&work[0], 2), columnNumber(&work[3], 2));
    size_t position = TIME_HALF_SEARCH_START;
    while (position < WORK_SIZE && (work[position] == ' ' || work[position] == '\0' || work[position] == '\t')) {
        ++position;
    }
    return {date, timeWord(&work[position])};
}

// OEM text of the entry's value, the block's bytes, in buffer: at most
// limit bytes and a NUL. Gives the bytes of text. A value that extraction
// saw to be printable characters is that text as it stands, which needs
// neither a scan nor a conversion. Asked to be inline, as the read of short
// text, which most reads are, is the rest of its caller.
[[gnu::always_inline]] inline uint16_t readText(const MergeTable &table, const FieldEntry &entry,
                                                std::span<const char> value, char *buffer, size_t limit) {
    if (entry.printable && entry.length < value.size()) {
        return copyTextOut(buffer, value.data(), std::min<size_t>(entry.length, limit));
    }
    return table.format->textToHost(value, buffer, limit, table.oemConversion != 0);
}

bool isShortText(uint16_t type) {
    return type == DB_TYPE_TEXT || type == DB_TYPE_TEXT_8 || type == DB_TYPE_TEXT_10 || type == DB_TYPE_TEXT_15;
}

// Writes the value, a non-empty text, in a type other than short text.
// Types that are not known write nothing, not even the length. Kept out of
// the read of short text, which most reads are, so that it costs that read
// nothing.
[[gnu::noinline]] void convertFieldText(const MergeTable &table, void *buffer, const FieldEntry &entry,
                                        std::span<const char> value, uint16_t *length, uint16_t type) {
    switch (type) {
    case DB_TYPE_LONG_TEXT:
        *length = readText(table, entry, value, static_cast<char *>(buffer), LONG_TEXT_LIMIT);
        break;
    case DB_TYPE_INT16:
        putValue(buffer, length, static_cast<int16_t>(runtimeAtol(plainString(value))));
        break;
    case DB_TYPE_INT32:
        putValue(buffer, length, static_cast<int32_t>(runtimeAtol(plainString(value))));
        break;
    case DB_TYPE_FLOAT:
        putValue(buffer, length, static_cast<float>(std::atof(plainString(value))));
        break;
    case DB_TYPE_DOUBLE:
        putValue(buffer, length, std::strtod(plainString(value), nullptr));
        break;
    case DB_TYPE_DATE:
        if (uint32_t word = 0; slashDate(value, &word)) putValue(buffer, length, word);
        else *length = 0;
        break;
    case DB_TYPE_TIME:
        // Any other length leaves buffer and length result as they are.
        if (table.format->textLength(value) == TIME_TEXT_LENGTH) putValue(buffer, length, timeWord(workCopy(value).data()));
        break;
    case DB_TYPE_LOGICAL:
        putValue(buffer, length, uint32_t{value[0] == 'T' || value[0] == 'Y'});
        break;
    case DB_TYPE_DATE_TIME:
        putValue(buffer, length, dateTimeWords(value));
        break;
    default:
        break;
    }
}

// Finds the field, by name when number is BY_NAME, and converts its value.
// An empty value gives the length 0 and leaves the buffer untouched.
uint16_t fetchFieldValue(MergeTable &table, const char *name, uint16_t number, void *buffer, uint16_t *length,
                         uint16_t type) {
    const FieldEntry *array = fieldArrayOf(table);
    if (array == nullptr) return ERR_MEMORY;
    int index = number;
    if (number == BY_NAME) index = name != nullptr ? fieldFindByName(table, array, name) : -1;
    if (index < 0 || index >= table.fieldCount) return ERR_NO_FIELD;
    const FieldEntry &entry = array[index];
    uint16_t size = 0;
    const auto *text = blockLockSized<const char>(entry.value, size);
    if (text == nullptr) return ERR_MEMORY;
    std::span<const char> value{text, size};
    if (value.empty() || value[0] == '\0') {
        *length = 0;
        return 0;
    }
    if (isShortText(type)) {
        *length = readText(table, entry, value, static_cast<char *>(buffer), SHORT_TEXT_LIMIT);
    } else {
        convertFieldText(table, buffer, entry, value, length, type);
    }
    return 0;
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbGetFieldValueMerge(uint32_t handle, const char *name, void *buffer,
                                                      uint16_t type, uint16_t *length) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr || name == nullptr || buffer == nullptr || length == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(fetchFieldValue(*table, name, BY_NAME, buffer, length, type));
}

extern "C" DbResult MERGEDB_CALL dbGetFieldValueHMerge(uint32_t handle, uint16_t number, void *buffer,
                                                       uint16_t type, uint16_t *length) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr || buffer == nullptr || length == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(fetchFieldValue(*table, nullptr, number, buffer, length, type));
}
