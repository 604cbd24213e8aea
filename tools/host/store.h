// What a table can store: a value in the table's own bytes, refused where
// the table could not store it or would not read it back the same, and the
// size of the record that the driver writes from the values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "table_format.h"

namespace mergedb::host {

struct Stored {
    std::string bytes;
    std::string problem;  // empty when the value can be stored
    bool lossyHelps = false;  // a character the table lacks: a '?' would stand for it
};

// A UTF-8 value in the table's encoding, checked against the strings of
// delimited text and the longest value; no table stores a NUL character.
Stored storedValue(const TableFormat &format, const std::string &utf8, bool lossy);

// A field name for the head of a new tagged document of kind.
Stored storedName(uint16_t kind, const std::string &utf8, bool lossy);

// At most how many bytes the record has that the driver writes from these
// values, as the driver gives them back; tagged text may take four bytes
// for one character.
size_t recordSize(const TableFormat &format, uint16_t kind, const std::vector<std::string> &values);

}  // namespace mergedb::host
