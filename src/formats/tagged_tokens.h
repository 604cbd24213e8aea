// The token walk of tagged documents: the one way every reader of tagged
// bytes steps over a token, forward from its first byte or backward from
// its last, and tells what the token means.
//
// A token is one byte (a control byte, a single byte, a printable
// character), a fixed token of a length that its lead byte gives and that
// it ends with too, or a variable token: first byte, sub-code, L (u16),
// body, L, sub-code, first byte, whose L counts both length words and the
// body, so that it takes L + 4 bytes. A byte 0 and the fixed leads 200-207
// start no token.
//
// Bound: a step reads nothing outside the bytes it is given. The meanings
// (endsRecord, ...) look only at a token's first byte and the byte next to
// it, which the step read.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "formats/tagged_format.h"

namespace mergedb {

// The length of the token that each byte starts (or, backward, ends): 1,
// a fixed token's length, 0 for none, or VARIABLE_LENGTH where the token
// tells its length itself. The walks ask on every token, so it is a table
// in the open.
inline constexpr uint8_t VARIABLE_LENGTH = 0xFF;

inline constexpr std::array<uint8_t, 256> TOKEN_LENGTHS = [] {
    // Total lengths of the fixed tokens 192-199; the leads 200-207 have none.
    constexpr uint8_t FIXED_LENGTHS[8] = {4, 9, 11, 3, 3, 5, 6, 7};
    std::array<uint8_t, 256> lengths{};
    for (int byte = 1; byte < 256; ++byte) {
        lengths[byte] = byte == 127 || byte >= 208 ? VARIABLE_LENGTH
                        : byte < 192               ? 1
                        : byte < 200               ? FIXED_LENGTHS[byte - 192]
                                                   : 0;
    }
    return lengths;
}();

// Whether a byte, as a token's first or last byte, is a token of its own.
inline bool isOneByteToken(uint8_t byte) { return TOKEN_LENGTHS[byte] == 1; }

// How the token may be stepped over.
enum TokenStepKind : uint8_t {
    TOKEN_STEP_OK,          // the whole token lies within the bytes given
    TOKEN_STEP_NONE,        // no token starts here: a byte 0 or a fixed lead 200-207
    TOKEN_STEP_PAST_LIMIT,  // the token runs out of the bytes given, or none are given
};

struct TokenStep {
    TokenStepKind kind;
    // The token's total length, 1 for a one-byte token. Also given with
    // TOKEN_STEP_PAST_LIMIT when the bytes that tell it were given, so that
    // a walker that can fetch more bytes may take the token in pieces; 0
    // otherwise.
    uint32_t length;
};

// A token as a walk meets it: its first byte, the byte next to that inside
// it (the sub-code of a fixed or variable token; 0 for a one-byte token and
// where that byte was not given), and its step.
struct Token {
    uint8_t first;
    uint8_t second;
    TokenStep step;
};

// The bytes of a variable token in front of its body: first byte,
// sub-code, L.
inline constexpr uint32_t TOKEN_VARIABLE_HEAD_SIZE = 4;

// L + 4, from the u16 at p; never wraps to 0.
inline uint32_t variableTokenLength(const uint8_t *p) {
    return uint32_t{static_cast<uint16_t>(p[0] | (p[1] << 8))} + 4;
}

inline TokenStep tokenStep(uint32_t length, size_t available) {
    if (length == 0) return {TOKEN_STEP_NONE, 0};
    return {length <= available ? TOKEN_STEP_OK : TOKEN_STEP_PAST_LIMIT, length};
}

// Forward: the token whose first byte is at p, of the bytes before limit.
inline Token tokenAt(const uint8_t *p, const uint8_t *limit) {
    if (p >= limit) return {0, 0, {TOKEN_STEP_PAST_LIMIT, 0}};
    auto available = static_cast<size_t>(limit - p);
    uint8_t first = p[0];
    uint32_t length = TOKEN_LENGTHS[first];
    if (length == 1) return {first, 0, {TOKEN_STEP_OK, 1}};
    // A variable token whose head was given, the usual case, goes first.
    if (length == VARIABLE_LENGTH && available >= TOKEN_VARIABLE_HEAD_SIZE) {
        return {first, p[1], tokenStep(variableTokenLength(p + 2), available)};
    }
    uint8_t second = available >= 2 ? p[1] : uint8_t{0};
    if (length == VARIABLE_LENGTH) return {first, second, {TOKEN_STEP_PAST_LIMIT, 0}};
    return {first, second, tokenStep(length, available)};
}

// Backward: the token whose last byte is at p, of the bytes from floor on.
// A variable token is read from its last four bytes (L, sub-code, first
// byte), a fixed token from its last byte, which repeats its lead.
inline Token tokenEndingAt(const uint8_t *p, const uint8_t *floor) {
    auto available = static_cast<size_t>(p - floor) + 1;
    uint8_t first = p[0];
    uint32_t length = TOKEN_LENGTHS[first];
    if (length == 1) return {first, 0, {TOKEN_STEP_OK, 1}};
    if (length == VARIABLE_LENGTH && available >= TOKEN_VARIABLE_HEAD_SIZE) {
        return {first, p[-1], tokenStep(variableTokenLength(p - 3), available)};
    }
    uint8_t second = available >= 2 ? p[-1] : uint8_t{0};
    if (length == VARIABLE_LENGTH) return {first, second, {TOKEN_STEP_PAST_LIMIT, 0}};
    return {first, second, tokenStep(length, available)};
}

// Forward over the tokens of bytes in memory, from p up to limit, one whole
// token after the other.
class TokenWalk {
public:
    TokenWalk(const uint8_t *p, const uint8_t *limit) : p_(p), limit_(limit), token_(tokenAt(p, limit)) {}

    // The token at the position.
    const Token &token() const { return token_; }
    // The token lies whole before the limit; only then may the walk pass it.
    bool whole() const { return token_.step.kind == TOKEN_STEP_OK; }
    void next() {
        p_ += token_.step.length;
        token_ = tokenAt(p_, limit_);
    }
    const uint8_t *position() const { return p_; }

private:
    const uint8_t *p_;
    const uint8_t *limit_;
    Token token_;
};

// What a token means.
inline bool isFunctionToken(const Token &token, uint8_t code) {
    return token.first == FUNCTION_TOKEN && token.second == code;
}
inline bool isAttrOn(const Token &token, uint8_t code) {
    return token.first == TOKEN_LEAD_ATTR_ON && token.second == code;
}
inline bool isAttrOff(const Token &token, uint8_t code) {
    return token.first == TOKEN_LEAD_ATTR_OFF && token.second == code;
}
// A printable character, 32-126.
inline bool isCharacter(const Token &token) { return token.first >= 32 && token.first < 127; }
// A fixed token (192-207), and a variable one (127, 208-255).
inline bool isFixedToken(const Token &token) { return token.first >= 192 && token.first < 208; }
inline bool isVariableToken(const Token &token) { return TOKEN_LENGTHS[token.first] == VARIABLE_LENGTH; }
inline bool isExtendedChar(const Token &token) { return token.first == TOKEN_LEAD_EXTENDED_CHAR; }
// The end of a record: byte 5, or the function token 52 (either in both
// dialects).
inline bool endsRecord(const Token &token) {
    return isFunctionToken(token, FUNCTION_RECORD_END) || token.first == MARK_RECORD_END;
}
// The end of a field: byte 18, or the function token 49.
inline bool endsField(const Token &token) {
    return isFunctionToken(token, FUNCTION_FIELD_END) || token.first == MARK_FIELD_END;
}
// A line end, which closes a record behind its end mark: byte 10 or 12.
inline bool endsLine(const Token &token) {
    return token.first == MARK_LINE_END || token.first == MARK_RECORD_LINE_END;
}
// The soft line end of text, byte 140, which ends a line of a head record.
inline bool isSoftLineEnd(const Token &token) { return token.first == MARK_SOFT_LINE_END; }

}  // namespace mergedb
