// The bytes of a tagged document: token classes and lengths, the marks that
// end fields and records, the header, and the byte images the driver writes.
//
// The predicates read the bytes they name at p without a bound: their
// callers make sure those bytes lie in the buffer. tokenStepAt is the one
// bounded rule for stepping forward over a token.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "mergedb/mergedb.h"

namespace mergedb {

// Token classes, by the first byte of a token. The values are not in byte
// order: 128-191 is TOKEN_SINGLE, 32-126 TOKEN_CHAR.
inline constexpr uint8_t TOKEN_END = 0;
inline constexpr uint8_t TOKEN_CONTROL = 1;
inline constexpr uint8_t TOKEN_SINGLE = 2;
inline constexpr uint8_t TOKEN_CHAR = 3;
inline constexpr uint8_t TOKEN_FIXED = 4;
inline constexpr uint8_t TOKEN_VARIABLE = 5;

// Lead bytes of the fixed tokens that have a meaning.
inline constexpr uint8_t TOKEN_LEAD_EXTENDED_CHAR = 192;
inline constexpr uint8_t TOKEN_LEAD_ATTR_ON = 195;
inline constexpr uint8_t TOKEN_LEAD_ATTR_OFF = 196;
inline constexpr uint8_t TOKEN_EXTENDED_CHAR_SIZE = 4;

// A variable token: first byte, sub-code, L (u16), body, L, sub-code, first
// byte. L counts both length words and the body; the token takes L + 4 bytes.
inline constexpr uint16_t TOKEN_VARIABLE_HEAD_SIZE = 4;  // bytes in front of the body

// Single bytes with a meaning of their own.
inline constexpr uint8_t MARK_RECORD_END = 5;
inline constexpr uint8_t MARK_LINE_END = 10;
inline constexpr uint8_t MARK_RECORD_LINE_END = 12;
inline constexpr uint8_t MARK_HEAD_START = 14;
inline constexpr uint8_t MARK_FIELD_END = 18;
inline constexpr uint8_t MARK_SOFT_LINE_END = 140;
inline constexpr uint8_t MARK_HYPHEN = 169;

// Function tokens: variable tokens with the first byte FUNCTION_TOKEN.
inline constexpr uint8_t FUNCTION_TOKEN = 222;
inline constexpr uint8_t FUNCTION_FIELD_END = 49;
inline constexpr uint8_t FUNCTION_RECORD_END = 52;
inline constexpr uint8_t FUNCTION_NUMBERED_HEAD = 72;
inline constexpr uint8_t FUNCTION_NAME_LIST = 98;

// The attribute whose on and off tokens enclose a field name in dialect 0.
inline constexpr uint8_t ATTR_FIELD_NAME = 12;

// The class of every byte as the first byte of a token. The scanners and
// the text walks ask for it on every byte, so it is a table in the open.
inline constexpr std::array<uint8_t, 256> TOKEN_CLASSES = [] {
    std::array<uint8_t, 256> classes{};
    for (int byte = 0; byte < 256; ++byte) {
        if (byte == 0) classes[byte] = TOKEN_END;
        else if (byte < 32) classes[byte] = TOKEN_CONTROL;
        else if (byte < 127) classes[byte] = TOKEN_CHAR;
        else if (byte == 127) classes[byte] = TOKEN_VARIABLE;
        else if (byte < 192) classes[byte] = TOKEN_SINGLE;
        else if (byte < 208) classes[byte] = TOKEN_FIXED;
        else classes[byte] = TOKEN_VARIABLE;
    }
    return classes;
}();

// Total lengths of the fixed tokens 192-199; the leads 200-207 have none.
inline constexpr std::array<uint8_t, 8> FIXED_TOKEN_LENGTHS = {4, 9, 11, 3, 3, 5, 6, 7};

inline uint8_t tokenClass(const uint8_t *p) { return TOKEN_CLASSES[*p]; }
inline bool isAttrOn(const uint8_t *p, uint8_t code) { return p[0] == TOKEN_LEAD_ATTR_ON && p[1] == code; }
inline bool isAttrOff(const uint8_t *p, uint8_t code) { return p[0] == TOKEN_LEAD_ATTR_OFF && p[1] == code; }
// p is the first byte of a variable token.
inline bool isFunction(const uint8_t *p, uint8_t code) { return p[0] == FUNCTION_TOKEN && p[1] == code; }
// p is the last byte of a variable token; reads p[-1].
inline bool isFunctionEnd(const uint8_t *p, uint8_t code) { return p[0] == FUNCTION_TOKEN && p[-1] == code; }
inline bool isExtendedChar(const uint8_t *p) { return p[0] == TOKEN_LEAD_EXTENDED_CHAR; }
// Total length of the fixed token at p; 0 unless its lead is 192-199.
inline uint8_t fixedTokenLength(const uint8_t *p) {
    if (p[0] < TOKEN_LEAD_EXTENDED_CHAR) return 0;
    size_t index = p[0] - TOKEN_LEAD_EXTENDED_CHAR;
    return index < FIXED_TOKEN_LENGTHS.size() ? FIXED_TOKEN_LENGTHS[index] : 0;
}
// L + 4, from the u16 at p + 2; never wraps to 0.
inline uint32_t variableTokenLength(const uint8_t *p) { return uint32_t{static_cast<uint16_t>(p[2] | (p[3] << 8))} + 4; }

// How the token at p may be stepped over.
enum TokenStepKind : uint8_t {
    TOKEN_STEP_OK,          // the whole token lies before the limit
    TOKEN_STEP_NONE,        // no token starts here: a byte 0 or a fixed lead 200-207
    TOKEN_STEP_PAST_LIMIT,  // the token runs past the limit, or p is at it
};

struct TokenStep {
    TokenStepKind kind;
    // The token's total length, 1 for a one-byte token. Also given with
    // TOKEN_STEP_PAST_LIMIT when the bytes that tell it lie before the limit,
    // so a walker that can fetch more bytes may copy the token in pieces;
    // 0 otherwise.
    uint32_t length;
};

// The forward step over the token at p that every walker shares. Reads
// nothing at or behind limit.
inline TokenStep tokenStepAt(const uint8_t *p, const uint8_t *limit) {
    if (p >= limit) return {TOKEN_STEP_PAST_LIMIT, 0};
    auto available = static_cast<size_t>(limit - p);
    uint32_t length = 1;
    switch (tokenClass(p)) {
    case TOKEN_END: return {TOKEN_STEP_NONE, 0};
    case TOKEN_FIXED:
        length = fixedTokenLength(p);
        if (length == 0) return {TOKEN_STEP_NONE, 0};
        break;
    case TOKEN_VARIABLE:
        if (available < TOKEN_VARIABLE_HEAD_SIZE) return {TOKEN_STEP_PAST_LIMIT, 0};
        length = variableTokenLength(p);
        break;
    default: break;
    }
    return {length <= available ? TOKEN_STEP_OK : TOKEN_STEP_PAST_LIMIT, length};
}

// A token as the walkers of a tagged document see it at p: its class, its
// first byte and the byte behind it (the sub-code of a fixed or variable
// token; 0 where that byte lies at or behind the limit), and its step. Every
// walker, forward over a record in memory or through the read window, reads
// tokens through tokenAt and tells them apart with the predicates below.
struct Token {
    uint8_t cls;
    uint8_t first;
    uint8_t second;
    TokenStep step;
};

inline Token tokenAt(const uint8_t *p, const uint8_t *limit) {
    if (p >= limit) return {TOKEN_END, 0, 0, {TOKEN_STEP_PAST_LIMIT, 0}};
    return {tokenClass(p), p[0], limit - p >= 2 ? p[1] : uint8_t{0}, tokenStepAt(p, limit)};
}

inline bool isFunctionToken(const Token &token, uint8_t code) {
    return token.first == FUNCTION_TOKEN && token.second == code;
}
// The end of a record: byte 5, or the function token 52 (either in both
// dialects).
inline bool endsRecord(const Token &token) {
    return (token.cls == TOKEN_CONTROL && token.first == MARK_RECORD_END) ||
           isFunctionToken(token, FUNCTION_RECORD_END);
}
// The end of a field: byte 18, or the function token 49.
inline bool endsField(const Token &token) {
    return (token.cls == TOKEN_CONTROL && token.first == MARK_FIELD_END) || isFunctionToken(token, FUNCTION_FIELD_END);
}
// A line end, which closes a record behind its end mark: byte 10 or 12.
inline bool endsLine(const Token &token) {
    return token.cls == TOKEN_CONTROL && (token.first == MARK_LINE_END || token.first == MARK_RECORD_LINE_END);
}
// The soft line end of text, byte 140, which ends a line of a head record.
inline bool isSoftLineEnd(const Token &token) { return token.first == MARK_SOFT_LINE_END; }

// Whether a table kind is one of the two tagged dialects.
inline bool isTaggedKind(uint16_t kind) { return kind == DB_KIND_TAGGED_0 || kind == DB_KIND_TAGGED_1; }

// What the driver writes behind each field and each record, by table kind:
// dialect 1 for DB_KIND_TAGGED_1, dialect 0 for any other.
std::span<const uint8_t> taggedFieldEnd(uint16_t kind);
std::span<const uint8_t> taggedRecordEnd(uint16_t kind);

// The byte that ends each name of a dialect 1 name list; an empty name ends
// the list.
inline constexpr uint8_t NAME_LIST_SEPARATOR = '~';

// What surrounds the names in the head record that table creation writes:
// start, then per name beforeName, the name and afterName, then listEnd and
// the record end. Dialect 0 puts each name between attribute tokens on a
// line of its own and ends the list with a field end; dialect 1 follows the
// name list token with each name and a tilde, and ends the list with an
// empty name. By table kind, as taggedRecordEnd.
struct TaggedHeadMarks {
    std::span<const uint8_t> start;
    std::span<const uint8_t> beforeName;
    std::span<const uint8_t> afterName;
    std::span<const uint8_t> listEnd;
};
TaggedHeadMarks taggedHeadMarks(uint16_t kind);

// The 16-byte header, and where its fields lie.
inline constexpr uint16_t TAGGED_HEADER_SIZE = 16;
inline constexpr int HEADER_DOC_OFFSET = 4;
inline constexpr int HEADER_PRODUCT_TYPE = 8;
inline constexpr int HEADER_FILE_TYPE = 9;
inline constexpr int HEADER_MAJOR_VERSION = 10;
inline constexpr int HEADER_MINOR_VERSION = 11;
inline constexpr std::array<uint8_t, 4> TAGGED_MAGIC = {0xFF, 'Z', 'R', 'N'};
bool isTaggedMagic(const uint8_t *header);
bool isAcceptedProductType(uint8_t productType);
bool isAcceptedFileType(uint8_t fileType);
// DB_KIND_TAGGED_0 or DB_KIND_TAGGED_1 for minor version 0 or 1, else 0.
uint16_t taggedKindOfMinorVersion(uint8_t minorVersion);

// What table creation writes in front of the document stream: the header
// for a table kind, then the prefix block, so the stream starts at 76.
inline constexpr uint32_t CREATED_DOC_OFFSET = 76;
std::array<uint8_t, TAGGED_HEADER_SIZE> createdHeader(uint16_t kind);
inline constexpr std::array<uint8_t, 60> CREATED_PREFIX_BLOCK = {
    0xFB, 0xFF, 0x05, 0x00, 0x32, 0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x00, 0x08, 0x00, 0x00, 0x00,
    0x42, 0x00, 0x00, 0x00, 0x08, 0x00, 0x02, 0x00, 0x00, 0x00, 0x4A, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x08, 0x00, 0x7C, 0x00, 0x78, 0x00, 0x00, 0x00, 0x00, 0x00};
static_assert(TAGGED_HEADER_SIZE + CREATED_PREFIX_BLOCK.size() == CREATED_DOC_OFFSET);

}  // namespace mergedb
