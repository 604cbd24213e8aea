// Field discovery in tagged documents: the first record of the document
// stream is the head record, and it names the fields, in one of two forms.
// A document without a head does not open.
#include <cstring>

#include "fields/field_array.h"
#include "formats/tagged_text.h"
#include "mergedb/mergedb.h"
#include "records/discovery.h"
#include "records/parse_cursor.h"

namespace mergedb {
namespace {

// Raw bytes of a name in the head, tokens included.
constexpr size_t NAME_BUFFER_SIZE = 164;

enum class NameForm { Dialect0, Dialect1 };

struct HeadSearch {
    bool found = false;
    bool numbered = false;
    NameForm form = NameForm::Dialect0;
};

// A name being collected; bytes past its room are passed over unstored,
// and a token is stored whole or not at all.
struct NameBuffer {
    char bytes[NAME_BUFFER_SIZE];
    size_t length = 0;
    bool full = false;

    void append(const uint8_t *from, size_t count) {
        if (full || length + count >= NAME_BUFFER_SIZE) {
            full = true;
            return;
        }
        std::memcpy(bytes + length, from, count);
        length += count;
    }
    std::span<const char> text() {
        bytes[length] = '\0';
        return {bytes, length + 1};
    }
};

uint16_t addNamedField(MergeTable &table, NameBuffer &name) {
    if (fieldsAdd(&table.fields, &table.fieldCount) != 0) return ERR_MEMORY;
    auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return ERR_MEMORY;
    textToOem(name.text(), array[table.fieldCount - 1].name);
    return 0;
}

// The four numbers behind a name go to info in a crossed order.
uint16_t parseFieldNumbers(ParseCursor &record, FieldEntry &entry) {
    constexpr int ORDER[4] = {1, 0, 3, 2};
    for (int slot : ORDER) {
        if (uint16_t code = record.number(&entry.info[slot])) return code;
    }
    return 0;
}

uint16_t parseFieldNumbers(ParseCursor &record, MergeTable &table, int index) {
    auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return ERR_MEMORY;
    return parseFieldNumbers(record, array[index]);
}

// A head whose stream starts with neither mark: look for a byte 14 or the
// name list token, before any text and before a byte 18 or the record's
// end.
uint16_t plainSearch(ParseCursor &record, HeadSearch &search) {
    while (!record.atLimit()) {
        Token token = record.token();
        if (isCharacter(token) || token.first == MARK_FIELD_END) return 0;
        bool list = isFunctionToken(token, FUNCTION_NAME_LIST);
        if (token.first == MARK_HEAD_START || list) {
            search.found = true;
            search.form = list ? NameForm::Dialect1 : NameForm::Dialect0;
            return list ? record.pass(token) : 0;
        }
        if (uint16_t code = record.pass(token)) return code;
        if (isFunctionToken(token, FUNCTION_RECORD_END)) return 0;
    }
    return 0;
}

// A numbered head: the first name token tells the form.
uint16_t numberedSearch(ParseCursor &record, HeadSearch &search) {
    for (;;) {
        Token token = record.token();
        if (isAttrOn(token, ATTR_FIELD_NAME) || isFunctionToken(token, FUNCTION_NAME_LIST)) {
            search.form = isAttrOn(token, ATTR_FIELD_NAME) ? NameForm::Dialect0 : NameForm::Dialect1;
            return 0;
        }
        if (uint16_t code = record.pass(token)) return code;
    }
}

// One name line of dialect 0, the cursor on its attribute-on token: the
// name's bytes as they stand up to the attribute-off token, then, in a
// numbered head, the four numbers, then the rest of the line.
uint16_t readNameDialect0(ParseCursor &record, MergeTable &table, bool numbered) {
    if (uint16_t code = record.pass(record.token())) return code;
    NameBuffer name;
    while (!isAttrOff(record.token(), ATTR_FIELD_NAME)) {
        if (record.atLimit()) return ERR_FORMAT;
        name.append(record.cursor, 1);
        if (uint16_t code = record.advance(1)) return code;
    }
    if (uint16_t code = record.pass(record.token())) return code;
    if (uint16_t code = addNamedField(table, name)) return code;
    if (numbered && !record.atLimit() && *record.cursor != MARK_LINE_END) {
        if (uint16_t code = parseFieldNumbers(record, table, table.fieldCount - 1)) return code;
    }
    return record.skipLine();
}

// One name of dialect 1, up to its tilde; tokens are kept whole.
uint16_t collectNameDialect1(ParseCursor &record, NameBuffer &name) {
    if (record.token().first == MARK_LINE_END) {
        if (uint16_t code = record.advance(1)) return code;
    }
    for (;;) {
        Token token = record.token();
        if (token.step.kind != TOKEN_STEP_OK) return ERR_FORMAT;
        if (token.first == NAME_LIST_SEPARATOR) return record.pass(token);
        name.append(record.cursor, token.step.length);
        if (uint16_t code = record.pass(token)) return code;
    }
}

// The names behind the name list token, ended by an empty name; then, in a
// numbered head, each field's four numbers at the start of a line.
uint16_t readNameList(ParseCursor &record, MergeTable &table, bool numbered) {
    for (;;) {
        NameBuffer name;
        if (uint16_t code = collectNameDialect1(record, name)) return code;
        if (textLength(name.text()) == 0) break;
        if (uint16_t code = addNamedField(table, name)) return code;
    }
    if (!numbered || isFunctionToken(record.token(), FUNCTION_RECORD_END)) return 0;
    for (int index = 0; index < table.fieldCount; ++index) {
        if (uint16_t code = record.skipLine()) return code;
        if (uint16_t code = parseFieldNumbers(record, table, index)) return code;
    }
    return 0;
}

// The names of the head, token by token from its first byte: dialect 0
// reads a name line at each attribute-on token of the field name and ends
// behind a byte 18; dialect 1 reads the list behind each name list token
// and ends behind a field or record end.
uint16_t readNames(ParseCursor &record, MergeTable &table, const HeadSearch &search) {
    bool dialect0 = search.form == NameForm::Dialect0;
    for (;;) {
        Token token = record.token();
        if (dialect0 && isAttrOn(token, ATTR_FIELD_NAME)) {
            if (uint16_t code = readNameDialect0(record, table, search.numbered)) return code;
            continue;
        }
        if (uint16_t code = record.pass(token)) return code;
        if (dialect0 ? token.first == MARK_FIELD_END : endsField(token) || endsRecord(token)) return 0;
        if (!dialect0 && isFunctionToken(token, FUNCTION_NAME_LIST)) {
            if (uint16_t code = readNameList(record, table, search.numbered)) return code;
        }
    }
}

// Runs a walk over the head record from its first byte.
template <typename Walk>
uint16_t walkHead(EditNode &head, Walk walk) {
    ParseCursor record(head);
    if (!record.valid()) return ERR_MEMORY;
    return walk(record);
}

}  // namespace

uint16_t discoverTaggedFields(MergeTable &table) {
    if (uint16_t code = readFirstRecord(table)) return code;
    EditNode head = *currentRecord(table);
    HeadSearch search;
    uint16_t code = walkHead(head, [&](ParseCursor &record) {
        Token first = record.token();
        if (first.first == MARK_HEAD_START || isFunctionToken(first, FUNCTION_NUMBERED_HEAD)) {
            search.found = true;
            search.numbered = true;
            return numberedSearch(record, search);
        }
        return plainSearch(record, search);
    });
    if (code != 0) return code;
    if (!search.found) return ERR_FORMAT;
    table.hasFieldNames = 1;
    return walkHead(head, [&](ParseCursor &record) { return readNames(record, table, search); });
}

}  // namespace mergedb
