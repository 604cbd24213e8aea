// The result word of the exports and the driver's error codes.
#pragma once

#include <cstdint>

#include "mergedb/mergedb.h"

namespace mergedb {

// Severities of makeResult: an error, or the end of the data.
inline constexpr int8_t SEVERITY_ERROR = -2;
inline constexpr int8_t SEVERITY_END_OF_DATA = -1;

// Packs a driver code into a DbResult: code in bits 0-15, severity byte in
// bits 16-23, and 3 in the top byte.
constexpr DbResult makeResult(int8_t severity, uint16_t code) {
    return (3u << 24) | (static_cast<uint32_t>(static_cast<uint8_t>(severity)) << 16) | code;
}

// 0 stays 0; any other code becomes an error result.
constexpr DbResult errorResult(uint16_t code) {
    return code == 0 ? DB_RESULT_OK : makeResult(SEVERITY_ERROR, code);
}

inline constexpr DbResult END_OF_DATA = makeResult(SEVERITY_END_OF_DATA, 0);

static_assert(makeResult(SEVERITY_ERROR, ERR_MEMORY) == 0x03FE0006u);
static_assert(END_OF_DATA == DB_RESULT_END_OF_DATA);

}  // namespace mergedb
