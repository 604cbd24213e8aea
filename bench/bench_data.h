// Deterministic test data for the benchmarks: the same address records as
// delimited text or as tagged documents of either dialect.
#pragma once

#include <cstdint>
#include <string>

namespace mergedb::bench {

enum class DataKind { Delimited, Tagged0, Tagged1 };

// The address records as they are (every even field quoted in delimited
// text), with every field quoted, or with a long note of 1000 to 4000 bytes
// in the last field.
enum class Shape { Address, Quoted, LongText };

// Fields of a record in the address tables.
inline constexpr int ADDRESS_FIELDS = 10;

// Delimited tables are read with these strings.
inline constexpr const char *FIELD_DELIMITER = ",";
inline constexpr const char *RECORD_DELIMITER = "\r\n";
inline constexpr const char *QUOTE = "\"";

struct TableFacts {
    uint64_t records = 0;
    uint64_t textBytes = 0;  // the bytes of all field values together
    uint64_t fileBytes = 0;
};

// Writes address records to path until their delimited form would hold
// about size bytes, so that tables of all three kinds made with one size,
// shape and seed hold the same records. Field 1 of each record is its
// number, counted from 1; every even field is quoted in delimited text, and
// field 4 holds the field delimiter. textBytes counts what a host's buffer
// of 256 bytes takes of each value.
TableFacts writeAddressTable(const std::string &path, DataKind kind, uint64_t size, Shape shape = Shape::Address,
                             uint32_t seed = 1);

// Writes a table of fieldCount fields and a few records; field i holds
// wideValue(i) in every record.
TableFacts writeWideTable(const std::string &path, DataKind kind, int fieldCount);

// "v" and i.
std::string wideValue(int i);

// The name of field i, counted from 1: "Field" and i in tagged documents,
// the number alone in delimited text.
std::string fieldName(DataKind kind, int i);

}  // namespace mergedb::bench
