// The bytes of a tagged document: the lead bytes and marks that mean
// something, the header, and the byte images the driver writes. How tokens
// are walked is in tagged_tokens.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "mergedb/mergedb.h"

namespace mergedb {

// Lead bytes of the fixed tokens that have a meaning.
inline constexpr uint8_t TOKEN_LEAD_EXTENDED_CHAR = 192;
inline constexpr uint8_t TOKEN_LEAD_ATTR_ON = 195;
inline constexpr uint8_t TOKEN_LEAD_ATTR_OFF = 196;
inline constexpr uint8_t TOKEN_EXTENDED_CHAR_SIZE = 4;

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
