// The areas a host must supply for what the exports write into them: a
// value of each type, and each item of a field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "mergedb/mergedb.h"

namespace mergedb::test {

// 0 for the types that write nothing.
inline size_t valueAreaSize(uint16_t type) {
    switch (type) {
    case DB_TYPE_TEXT:
    case DB_TYPE_TEXT_8:
    case DB_TYPE_TEXT_10:
    case DB_TYPE_TEXT_15: return 255;
    case DB_TYPE_LONG_TEXT: return 32001;
    case DB_TYPE_INT16: return 2;
    case DB_TYPE_DOUBLE:
    case DB_TYPE_DATE_TIME: return 8;
    case DB_TYPE_INT32:
    case DB_TYPE_FLOAT:
    case DB_TYPE_DATE:
    case DB_TYPE_TIME:
    case DB_TYPE_LOGICAL: return 4;
    default: return 0;
    }
}

inline bool isTextType(uint16_t type) { return valueAreaSize(type) >= 255; }

// Items 1 to 5 of dbGetFieldInfoMerge; other items write nothing.
inline constexpr size_t FIELD_ITEM_AREA[] = {0, 40, 10, 2, 8, 31};

inline size_t fieldItemAreaSize(uint16_t item) { return item < std::size(FIELD_ITEM_AREA) ? FIELD_ITEM_AREA[item] : 0; }

}  // namespace mergedb::test
