// Field discovery in tagged documents: the first record of the document
// stream is the head record, and it names the fields, in one of two forms.
// A document without a head does not open.
#include <cstring>

#include "fields/field_array.h"
#include "formats/tagged_format.h"
#include "formats/tagged_text.h"
#include "mergedb/mergedb.h"
#include "records/discovery.h"
#include "records/parse_cursor.h"

namespace mergedb {
namespace {

// Raw bytes of a name in the head, tokens included, and its end.
constexpr size_t NAME_BUFFER_SIZE = 164;
constexpr uint8_t NAME_LIST_END = '~';

enum class NameForm { Dialect0, Dialect1 };

struct HeadSearch {
    bool found = false;
    bool numbered = false;
    NameForm form = NameForm::Dialect0;
};

Token tokenAtCursor(const ParseCursor &record) { return tokenAt(record.cursor, record.limit); }

// The two-byte tests look at the byte behind the cursor too.
bool functionAtCursor(const ParseCursor &record, uint8_t code) {
    return isFunctionToken(tokenAtCursor(record), code);
}
bool attrOnAtCursor(const ParseCursor &record) {
    return record.remaining() >= 2 && isAttrOn(record.cursor, ATTR_FIELD_NAME);
}
bool attrOffAtCursor(const ParseCursor &record) {
    return record.remaining() >= 2 && isAttrOff(record.cursor, ATTR_FIELD_NAME);
}

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

// Steps over the token at the cursor, whatever its class.
uint16_t skipToken(ParseCursor &record) {
    switch (tokenAtCursor(record).cls) {
    case TOKEN_END: return ERR_FORMAT;
    case TOKEN_FIXED: return record.skipFixed();
    case TOKEN_VARIABLE: return record.skipVariable();
    default: return record.advance(1);
    }
}

// A head whose stream starts with neither mark: look for a byte 14 or the
// name list token, before any text and before the record's end.
uint16_t plainSearch(ParseCursor &record, MergeTable &table, HeadSearch &search) {
    while (!record.atLimit()) {
        uint8_t byte = *record.cursor;
        switch (tokenAtCursor(record).cls) {
        case TOKEN_END: return ERR_FORMAT;
        case TOKEN_CHAR: return 0;
        case TOKEN_CONTROL:
            if (byte == MARK_HEAD_START) {
                search.found = true;
                search.form = NameForm::Dialect0;
                table.hasFieldNames = 1;
                return 0;
            }
            if (byte == MARK_FIELD_END) return 0;
            break;
        case TOKEN_VARIABLE:
            if (functionAtCursor(record, FUNCTION_NAME_LIST)) {
                search.found = true;
                search.form = NameForm::Dialect1;
                table.hasFieldNames = 1;
                return record.skipVariable();
            }
            if (functionAtCursor(record, FUNCTION_RECORD_END)) return record.skipVariable();
            break;
        default: break;
        }
        if (uint16_t code = skipToken(record)) return code;
    }
    return 0;
}

// A numbered head: the first name token tells the form.
uint16_t numberedSearch(ParseCursor &record, HeadSearch &search) {
    for (;;) {
        if (record.atLimit() || tokenAtCursor(record).cls == TOKEN_END) return ERR_FORMAT;
        if (attrOnAtCursor(record)) {
            search.form = NameForm::Dialect0;
            return 0;
        }
        if (functionAtCursor(record, FUNCTION_NAME_LIST)) {
            search.form = NameForm::Dialect1;
            return 0;
        }
        if (uint16_t code = skipToken(record)) return code;
    }
}

// One name line of dialect 0, the cursor on its attribute-on token.
uint16_t readNameDialect0(ParseCursor &record, MergeTable &table, bool numbered) {
    if (uint16_t code = record.skipFixed()) return code;
    NameBuffer name;
    while (!attrOffAtCursor(record)) {
        if (record.atLimit()) return ERR_FORMAT;
        name.append(record.cursor, 1);
        if (uint16_t code = record.advance(1)) return code;
    }
    if (uint16_t code = record.skipFixed()) return code;
    if (uint16_t code = addNamedField(table, name)) return code;
    if (numbered && !record.atLimit() && *record.cursor != MARK_LINE_END) {
        if (uint16_t code = parseFieldNumbers(record, table, table.fieldCount - 1)) return code;
    }
    return record.skipLine();
}

uint16_t readNamesDialect0(ParseCursor &record, MergeTable &table, bool numbered) {
    for (;;) {
        if (record.atLimit()) return ERR_FORMAT;
        uint8_t byte = *record.cursor;
        uint16_t code = 0;
        switch (tokenAtCursor(record).cls) {
        case TOKEN_END: return ERR_FORMAT;
        case TOKEN_CONTROL:
            code = record.advance(1);
            if (code == 0 && byte == MARK_FIELD_END) return 0;
            break;
        case TOKEN_FIXED: code = attrOnAtCursor(record) ? readNameDialect0(record, table, numbered) : record.skipFixed(); break;
        default: code = skipToken(record); break;
        }
        if (code != 0) return code;
    }
}

// One name of dialect 1, up to its tilde; tokens are kept whole.
uint16_t collectNameDialect1(ParseCursor &record, NameBuffer &name) {
    if (!record.atLimit() && *record.cursor == MARK_LINE_END) {
        if (uint16_t code = record.advance(1)) return code;
    }
    for (;;) {
        if (record.atLimit()) return ERR_FORMAT;
        uint8_t cls = tokenAtCursor(record).cls;
        if (cls == TOKEN_END) return ERR_FORMAT;
        if (cls == TOKEN_FIXED || cls == TOKEN_VARIABLE) {
            TokenStep step = tokenStepAt(record.cursor, record.limit);
            if (step.kind != TOKEN_STEP_OK) return ERR_FORMAT;
            name.append(record.cursor, step.length);
            if (uint16_t code = record.advance(static_cast<int32_t>(step.length))) return code;
            continue;
        }
        uint8_t byte = *record.cursor;
        if (uint16_t code = record.advance(1)) return code;
        if (byte == NAME_LIST_END) return 0;
        name.append(&byte, 1);
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
    if (!numbered || functionAtCursor(record, FUNCTION_RECORD_END)) return 0;
    for (int index = 0; index < table.fieldCount; ++index) {
        if (uint16_t code = record.skipLine()) return code;
        if (uint16_t code = parseFieldNumbers(record, table, index)) return code;
    }
    return 0;
}

uint16_t readNamesDialect1(ParseCursor &record, MergeTable &table, bool numbered) {
    for (;;) {
        if (record.atLimit()) return ERR_FORMAT;
        uint8_t byte = *record.cursor;
        uint16_t code = 0;
        switch (tokenAtCursor(record).cls) {
        case TOKEN_END: return ERR_FORMAT;
        case TOKEN_CONTROL:
            code = record.advance(1);
            if (code == 0 && (byte == MARK_RECORD_END || byte == MARK_FIELD_END)) return 0;
            break;
        case TOKEN_VARIABLE: {
            bool ends = functionAtCursor(record, FUNCTION_FIELD_END) || functionAtCursor(record, FUNCTION_RECORD_END);
            bool list = functionAtCursor(record, FUNCTION_NAME_LIST);
            code = record.skipVariable();
            if (code == 0 && ends) return 0;
            if (code == 0 && list) code = readNameList(record, table, numbered);
            break;
        }
        default: code = skipToken(record); break;
        }
        if (code != 0) return code;
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
        if ((!record.atLimit() && *record.cursor == MARK_HEAD_START) ||
            functionAtCursor(record, FUNCTION_NUMBERED_HEAD)) {
            search.found = true;
            search.numbered = true;
            table.hasFieldNames = 1;
            return numberedSearch(record, search);
        }
        return plainSearch(record, table, search);
    });
    if (code != 0) return code;
    if (!search.found) return ERR_FORMAT;
    return walkHead(head, [&](ParseCursor &record) {
        return search.form == NameForm::Dialect0 ? readNamesDialect0(record, table, search.numbered)
                                                 : readNamesDialect1(record, table, search.numbered);
    });
}

}  // namespace mergedb
