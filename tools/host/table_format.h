// How a table is read: its kind, the four strings of delimited text, the
// encoding of its text and whether its first record names the fields. What
// the host's options name is taken; what they leave out is found by looking
// at the start of the file.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "codepage.h"
#include "driver.h"
#include "table_file.h"

namespace mergedb::host {

// What the host's options say; nothing where they are silent.
struct FormatRequest {
    std::optional<std::string> fieldDelimiter;
    std::optional<std::string> recordDelimiter;
    std::optional<std::string> quote;
    std::optional<std::string> ignore;
    std::optional<Encoding> encoding;
    bool header = false;
};

// Where a setting came from.
enum class Origin : uint8_t { Given, Found, Default };

struct TableFormat {
    bool tagged = false;
    Delimiters delimiters;
    Encoding encoding = Encoding::Utf8;  // of field text; a tagged document's is the driver's page
    bool header = false;                 // the first record names the fields and is no data
    size_t bomLength = 0;                // bytes of a byte-order mark in front of the first record
    Origin fieldOrigin = Origin::Default;
    Origin recordOrigin = Origin::Default;
    Origin encodingOrigin = Origin::Default;
    // The line ends were found mixed (CR LF and LF): LF is read as the
    // record delimiter with CR ignored. Empty when they were not.
    std::string mixedLineEnds;

    uint16_t subtype() const { return tagged ? DB_SUBTYPE_TAGGED : DB_SUBTYPE_DELIMITED; }
    // The first record of the file names the fields and is no data: a
    // delimited table's header record (a tagged document's head record is
    // no record for the driver's walk at all).
    bool headerRecord() const { return header && !tagged; }
    // What the table's text can store.
    TextTarget textTarget() const { return {encoding, tagged}; }
    // A record that ends otherwise than the line ends found at the start is
    // worth a word: the delimiter was guessed from them.
    bool lineEndsGuessed() const { return !tagged && recordOrigin == Origin::Found; }
};

// The format of an existing table file. Throws a Failure when the file
// can't be read as the request asks, or its line ends leave no choice.
TableFormat resolveFormat(const TableFile &file, const FormatRequest &request);

// The format of a new delimited table: the request and the defaults.
TableFormat newDelimitedFormat(const FormatRequest &request);

// Each setting with its value and origin, for a person to read.
std::vector<std::pair<std::string, std::string>> describeFormat(const TableFormat &format);

// A delimiter for a person: "," "CR LF" "tab".
std::string delimiterText(const std::string &bytes);

}  // namespace mergedb::host
