// The arguments that name a table for SQL: CREATE VIRTUAL TABLE t USING
// mergedb('people.csv', header=yes, field_delimiter=';') and the table-valued
// function mergedb('people.csv', 'header=yes'). The first is the table's path;
// each further one is NAME=VALUE, an option of the tool by the same name with
// '_' for '-' (field_delimiter, record_delimiter, quote, ignore, encoding)
// or header. A value may stand in SQL quotes.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "table_format.h"

namespace mergedb::sql {

struct TableArguments {
    std::string path;
    host::FormatRequest request;
};

// The arguments of CREATE VIRTUAL TABLE, as SQL text: the path first.
// Throws a host::Failure that says what is wrong and how it is written.
TableArguments parseArguments(std::span<const std::string> arguments);

// The same for a path and options given as values.
TableArguments parseOptions(std::string path, std::span<const std::string> options);

// Text without the SQL quotes around it ('..', "..", [..] or `..`), with a
// doubled quote inside taken as one; other text as it is.
std::string dequoted(std::string_view text);

// A message of the host for a person who writes SQL: the tool's options
// (--record-delimiter) named as the options of the SQL layer
// (record_delimiter).
std::string sqlWording(std::string message);

}  // namespace mergedb::sql
