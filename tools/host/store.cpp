#include "store.h"

#include <algorithm>

#include "mergedb/mergedb.h"

namespace mergedb::host {
namespace {

constexpr size_t LONGEST_VALUE = DB_LONGEST_PUT;
constexpr size_t LONGEST_FIELD_NAME = 39;
constexpr size_t TAGGED_CHARACTER_BYTES = 4;  // an extended character's token
// What the driver writes around each field and at the end of a record.
constexpr size_t FIELD_END_0 = 2;
constexpr size_t RECORD_END_0 = 2;
constexpr size_t FIELD_END_1 = 9;
constexpr size_t RECORD_END_1 = 11;

// A quoted value reads back split where a quote touches a string that
// closes the quote: the scanner looks at the byte behind a quote, the
// backward walk at the byte in front of it.
bool quoteTouchesDelimiter(const Delimiters &delimiters, std::string_view value, size_t at) {
    auto opensString = [&delimiters](char c) {
        return c == delimiters.field.front() || c == delimiters.record.front() ||
               (!delimiters.ignore.empty() && c == delimiters.ignore.front());
    };
    auto closesString = [&delimiters](char c) {
        return c == delimiters.field.back() || c == delimiters.record.back() ||
               (!delimiters.ignore.empty() && c == delimiters.ignore.back());
    };
    size_t after = at + delimiters.quote.size();
    return (after < value.size() && opensString(value[after])) || (at > 0 && closesString(value[at - 1]));
}

std::string delimitedProblem(const Delimiters &delimiters, std::string_view value) {
    if (delimiters.quote.empty()) {
        for (const std::string *text : {&delimiters.field, &delimiters.record, &delimiters.ignore}) {
            if (!text->empty() && value.find(*text) != std::string_view::npos) {
                return "holds a delimiter or the ignored string, and the table has no quote to protect it";
            }
        }
        return "";
    }
    for (size_t at = value.find(delimiters.quote); at != std::string_view::npos;
         at = value.find(delimiters.quote, at + 1)) {
        if (quoteTouchesDelimiter(delimiters, value, at)) {
            return "holds a quote next to a delimiter, which would split it";
        }
    }
    return "";
}

}  // namespace

Stored storedValue(const TableFormat &format, const std::string &utf8, bool lossy) {
    if (utf8.find('\0') != std::string::npos) {
        return {"", "holds a NUL character (U+0000), at which the driver would cut the value short"};
    }
    Encoded encoded = fromUtf8(utf8, format.textTarget(), lossy);
    if (!encoded.problem.empty()) return {"", encoded.problem, encoded.lossyHelps};
    if (encoded.bytes.size() > LONGEST_VALUE) return {"", "is longer than " + std::to_string(LONGEST_VALUE) + " bytes"};
    std::string problem = format.tagged ? "" : delimitedProblem(format.delimiters, encoded.bytes);
    return {encoded.bytes, problem};
}

Stored storedName(uint16_t kind, const std::string &utf8, bool lossy) {
    Encoded encoded = fromUtf8(utf8.empty() && lossy ? "?" : utf8, {Encoding::Cp437, true}, lossy);
    std::string &name = encoded.bytes;
    if (!encoded.problem.empty()) return {"", encoded.problem, encoded.lossyHelps};
    if (name.empty()) return {"", "is empty", true};
    if (name.size() > LONGEST_FIELD_NAME) {
        return {"", "is longer than " + std::to_string(LONGEST_FIELD_NAME) + " bytes"};
    }
    if (kind == DB_KIND_TAGGED_1 && name.find('~') != std::string::npos) {
        if (!lossy) return {"", "holds a '~', which ends a name in a dialect 1 head", true};
        std::replace(name.begin(), name.end(), '~', '?');
    }
    return {name, ""};
}

size_t recordSize(const TableFormat &format, uint16_t kind, const std::vector<std::string> &values) {
    size_t size = 0;
    for (const std::string &value : values) {
        if (!format.tagged) {
            size += value.size() + 2 * format.delimiters.quote.size() + format.delimiters.field.size();
            continue;
        }
        size_t high = static_cast<size_t>(std::count_if(value.begin(), value.end(), [](char c) { return c & 0x80; }));
        size +=
            value.size() + high * (TAGGED_CHARACTER_BYTES - 1) + (kind == DB_KIND_TAGGED_1 ? FIELD_END_1 : FIELD_END_0);
    }
    if (!format.tagged) return size + format.delimiters.record.size();
    return size + (kind == DB_KIND_TAGGED_1 ? RECORD_END_1 : RECORD_END_0);
}

}  // namespace mergedb::host
