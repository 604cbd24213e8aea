#include "formats/tagged_format.h"

#include <algorithm>

#include "mergedb/mergedb.h"

namespace mergedb {
namespace {

constexpr std::array<uint8_t, 2> FIELD_END_0 = {MARK_FIELD_END, MARK_LINE_END};
constexpr std::array<uint8_t, 2> RECORD_END_0 = {MARK_RECORD_END, MARK_LINE_END};
constexpr std::array<uint8_t, 9> FIELD_END_1 = {
    FUNCTION_TOKEN, FUNCTION_FIELD_END, 4, 0, 4, 0, FUNCTION_FIELD_END, FUNCTION_TOKEN, MARK_LINE_END};
constexpr std::array<uint8_t, 11> RECORD_END_1 = {FUNCTION_TOKEN, FUNCTION_RECORD_END, 6, 0, 0, 0, 6, 0,
                                                  FUNCTION_RECORD_END, FUNCTION_TOKEN, MARK_RECORD_LINE_END};
constexpr std::array<uint8_t, 2> HEAD_START_0 = {MARK_HEAD_START, MARK_LINE_END};
constexpr std::array<uint8_t, 3> NAME_ON = {TOKEN_LEAD_ATTR_ON, ATTR_FIELD_NAME, TOKEN_LEAD_ATTR_ON};
constexpr std::array<uint8_t, 4> NAME_OFF = {TOKEN_LEAD_ATTR_OFF, ATTR_FIELD_NAME, TOKEN_LEAD_ATTR_OFF, MARK_LINE_END};
constexpr std::array<uint8_t, 9> HEAD_START_1 = {
    FUNCTION_TOKEN, FUNCTION_NAME_LIST, 4, 0, 4, 0, FUNCTION_NAME_LIST, FUNCTION_TOKEN, MARK_LINE_END};
constexpr std::array<uint8_t, 1> NAME_END_1 = {NAME_LIST_SEPARATOR};

}  // namespace

std::span<const uint8_t> taggedFieldEnd(uint16_t kind) {
    if (kind == DB_KIND_TAGGED_1) return FIELD_END_1;
    return FIELD_END_0;
}

std::span<const uint8_t> taggedRecordEnd(uint16_t kind) {
    if (kind == DB_KIND_TAGGED_1) return RECORD_END_1;
    return RECORD_END_0;
}

TaggedHeadMarks taggedHeadMarks(uint16_t kind) {
    if (kind == DB_KIND_TAGGED_1) return {HEAD_START_1, {}, NAME_END_1, NAME_END_1};
    return {HEAD_START_0, NAME_ON, NAME_OFF, FIELD_END_0};
}

bool isTaggedMagic(const uint8_t *header) {
    return std::equal(TAGGED_MAGIC.begin(), TAGGED_MAGIC.end(), header);
}

bool isAcceptedProductType(uint8_t productType) { return productType == 1 || productType == 3 || productType == 10; }

bool isAcceptedFileType(uint8_t fileType) { return fileType == 10 || fileType == 58; }

uint16_t taggedKindOfMinorVersion(uint8_t minorVersion) {
    switch (minorVersion) {
    case 0: return DB_KIND_TAGGED_0;
    case 1: return DB_KIND_TAGGED_1;
    default: return 0;
    }
}

std::array<uint8_t, TAGGED_HEADER_SIZE> createdHeader(uint16_t kind) {
    std::array<uint8_t, TAGGED_HEADER_SIZE> header{};
    std::copy(TAGGED_MAGIC.begin(), TAGGED_MAGIC.end(), header.begin());
    header[HEADER_DOC_OFFSET] = static_cast<uint8_t>(CREATED_DOC_OFFSET);
    header[HEADER_PRODUCT_TYPE] = 1;
    header[HEADER_FILE_TYPE] = 10;
    header[HEADER_MINOR_VERSION] = kind == DB_KIND_TAGGED_1 ? 1 : 0;
    return header;
}

}  // namespace mergedb
