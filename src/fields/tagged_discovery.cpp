// Field discovery in tagged documents: the first record of the document
// stream is the head record, and it names the fields, in one of two forms.
// A document without a head does not open.
#include <cstring>

#include "fields/discovery.h"
#include "fields/field_array.h"
#include "fields/parse_cursor.h"
#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"
#include "values/text.h"

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

bool atLimit() { return parseCursor.cursor >= parseCursor.limit; }

// The two-byte tests look at the byte behind the cursor too.
bool functionAtCursor(uint8_t code) { return parseRemaining() >= 2 && isFunction(parseCursor.cursor, code); }
bool attrOnAtCursor() { return parseRemaining() >= 2 && isAttrOn(parseCursor.cursor, ATTR_FIELD_NAME); }
bool attrOffAtCursor() { return parseRemaining() >= 2 && isAttrOff(parseCursor.cursor, ATTR_FIELD_NAME); }

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
uint16_t parseFieldNumbers(FieldEntry &entry) {
    constexpr int ORDER[4] = {1, 0, 3, 2};
    for (int slot : ORDER) {
        if (uint16_t code = parseNumber(&entry.info[slot])) return code;
    }
    return 0;
}

uint16_t parseFieldNumbers(MergeTable &table, int index) {
    auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return ERR_MEMORY;
    return parseFieldNumbers(array[index]);
}

// Steps over the token at the cursor, whatever its class.
uint16_t skipToken() {
    switch (tokenClass(parseCursor.cursor)) {
    case TOKEN_END: return ERR_FORMAT;
    case TOKEN_FIXED: return parseSkipFixed();
    case TOKEN_VARIABLE: return parseSkipVariable();
    default: return parseAdvance(1);
    }
}

// A head whose stream starts with neither mark: look for a byte 14 or the
// name list token, before any text and before the record's end.
uint16_t plainSearch(MergeTable &table, HeadSearch &search) {
    while (!atLimit()) {
        uint8_t byte = *parseCursor.cursor;
        switch (tokenClass(parseCursor.cursor)) {
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
            if (functionAtCursor(FUNCTION_NAME_LIST)) {
                search.found = true;
                search.form = NameForm::Dialect1;
                table.hasFieldNames = 1;
                return parseSkipVariable();
            }
            if (functionAtCursor(FUNCTION_RECORD_END)) return parseSkipVariable();
            break;
        default: break;
        }
        if (uint16_t code = skipToken()) return code;
    }
    return 0;
}

// A numbered head: the first name token tells the form.
uint16_t numberedSearch(HeadSearch &search) {
    for (;;) {
        if (atLimit() || tokenClass(parseCursor.cursor) == TOKEN_END) return ERR_FORMAT;
        if (attrOnAtCursor()) {
            search.form = NameForm::Dialect0;
            return 0;
        }
        if (functionAtCursor(FUNCTION_NAME_LIST)) {
            search.form = NameForm::Dialect1;
            return 0;
        }
        if (uint16_t code = skipToken()) return code;
    }
}

// One name line of dialect 0, the cursor on its attribute-on token.
uint16_t readNameDialect0(MergeTable &table, bool numbered) {
    if (uint16_t code = parseSkipFixed()) return code;
    NameBuffer name;
    while (!attrOffAtCursor()) {
        if (atLimit()) return ERR_FORMAT;
        name.append(parseCursor.cursor, 1);
        if (uint16_t code = parseAdvance(1)) return code;
    }
    if (uint16_t code = parseSkipFixed()) return code;
    if (uint16_t code = addNamedField(table, name)) return code;
    if (numbered && !atLimit() && *parseCursor.cursor != MARK_LINE_END) {
        if (uint16_t code = parseFieldNumbers(table, table.fieldCount - 1)) return code;
    }
    return parseSkipLine();
}

uint16_t readNamesDialect0(MergeTable &table, bool numbered) {
    for (;;) {
        if (atLimit()) return ERR_FORMAT;
        uint8_t byte = *parseCursor.cursor;
        uint16_t code = 0;
        switch (tokenClass(parseCursor.cursor)) {
        case TOKEN_END: return ERR_FORMAT;
        case TOKEN_CONTROL:
            code = parseAdvance(1);
            if (code == 0 && byte == MARK_FIELD_END) return 0;
            break;
        case TOKEN_FIXED: code = attrOnAtCursor() ? readNameDialect0(table, numbered) : parseSkipFixed(); break;
        default: code = skipToken(); break;
        }
        if (code != 0) return code;
    }
}

// One name of dialect 1, up to its tilde; tokens are kept whole.
uint16_t collectNameDialect1(NameBuffer &name) {
    if (!atLimit() && *parseCursor.cursor == MARK_LINE_END) {
        if (uint16_t code = parseAdvance(1)) return code;
    }
    for (;;) {
        if (atLimit()) return ERR_FORMAT;
        uint8_t cls = tokenClass(parseCursor.cursor);
        if (cls == TOKEN_END) return ERR_FORMAT;
        if (cls == TOKEN_FIXED || cls == TOKEN_VARIABLE) {
            TokenStep step = tokenStepAt(parseCursor.cursor, parseCursor.limit);
            if (step.kind != TOKEN_STEP_OK) return ERR_FORMAT;
            name.append(parseCursor.cursor, step.length);
            if (uint16_t code = parseAdvance(static_cast<int32_t>(step.length))) return code;
            continue;
        }
        uint8_t byte = *parseCursor.cursor;
        if (uint16_t code = parseAdvance(1)) return code;
        if (byte == NAME_LIST_END) return 0;
        name.append(&byte, 1);
    }
}

// The names behind the name list token, ended by an empty name; then, in a
// numbered head, each field's four numbers at the start of a line.
uint16_t readNameList(MergeTable &table, bool numbered) {
    for (;;) {
        NameBuffer name;
        if (uint16_t code = collectNameDialect1(name)) return code;
        if (textLength(name.text()) == 0) break;
        if (uint16_t code = addNamedField(table, name)) return code;
    }
    if (!numbered || functionAtCursor(FUNCTION_RECORD_END)) return 0;
    for (int index = 0; index < table.fieldCount; ++index) {
        if (uint16_t code = parseSkipLine()) return code;
        if (uint16_t code = parseFieldNumbers(table, index)) return code;
    }
    return 0;
}

uint16_t readNamesDialect1(MergeTable &table, bool numbered) {
    for (;;) {
        if (atLimit()) return ERR_FORMAT;
        uint8_t byte = *parseCursor.cursor;
        uint16_t code = 0;
        switch (tokenClass(parseCursor.cursor)) {
        case TOKEN_END: return ERR_FORMAT;
        case TOKEN_CONTROL:
            code = parseAdvance(1);
            if (code == 0 && (byte == MARK_RECORD_END || byte == MARK_FIELD_END)) return 0;
            break;
        case TOKEN_VARIABLE: {
            bool ends = functionAtCursor(FUNCTION_FIELD_END) || functionAtCursor(FUNCTION_RECORD_END);
            bool list = functionAtCursor(FUNCTION_NAME_LIST);
            code = parseSkipVariable();
            if (code == 0 && ends) return 0;
            if (code == 0 && list) code = readNameList(table, numbered);
            break;
        }
        default: code = skipToken(); break;
        }
        if (code != 0) return code;
    }
}

// Runs a walk over the head record from its first byte.
template <typename Walk>
uint16_t walkHead(EditNode &head, Walk walk) {
    parseCursor.savedOffset = 0;
    if (uint16_t code = parseAttach(head)) return code;
    uint16_t code = walk();
    parseDetach();
    return code;
}

}  // namespace

uint16_t discoverTaggedFields(MergeTable &table) {
    if (uint16_t code = readFirstRecord(table)) return code;
    EditNode head{};
    if (uint16_t code = currentSnapshot(table, &head)) return code;
    HeadSearch search;
    uint16_t code = walkHead(head, [&] {
        if ((!atLimit() && *parseCursor.cursor == MARK_HEAD_START) || functionAtCursor(FUNCTION_NUMBERED_HEAD)) {
            search.found = true;
            search.numbered = true;
            table.hasFieldNames = 1;
            return numberedSearch(search);
        }
        return plainSearch(table, search);
    });
    parseCursor.savedOffset = 0;
    if (code != 0) return code;
    if (!search.found) return ERR_FORMAT;
    return walkHead(head, [&] {
        return search.form == NameForm::Dialect0 ? readNamesDialect0(table, search.numbered)
                                                 : readNamesDialect1(table, search.numbered);
    });
}

}  // namespace mergedb
