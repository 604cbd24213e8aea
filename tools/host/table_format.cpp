#include "table_format.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "sniff.h"

namespace mergedb::host {
namespace {

std::string sampleOf(const TableFile &file) {
    std::string sample(std::min<uint64_t>(file.size, SNIFF_BYTES), '\0');
    std::ifstream in(file.path, std::ios::binary);
    in.read(sample.data(), static_cast<std::streamsize>(sample.size()));
    if (!in) throw Failure(file.label, "could not be read");
    return sample;
}

std::string lineEndCounts(const LineEnds &ends) {
    std::string text;
    auto add = [&text](size_t count, const char *what) {
        if (count == 0) return;
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
    };
    add(ends.crlf, "CR LF");
    add(ends.lf, "LF");
    add(ends.cr, "CR");
    return text;
}

// The record delimiter by the line ends of the sample. Line ends of CR LF
// and LF mixed are read with LF as the delimiter and CR ignored, so that no
// two records join and no value keeps a CR.
void takeLineEnds(TableFormat &format, const LineEnds &ends, const FormatRequest &request, const std::string &label) {
    if (ends.kinds() == 0) return;
    format.recordOrigin = Origin::Found;
    if (ends.kinds() == 1) {
        format.delimiters.record = ends.crlf != 0 ? "\r\n" : ends.lf != 0 ? "\n" : "\r";
        return;
    }
    std::string counts = lineEndCounts(ends);
    if (ends.cr != 0 || request.ignore) {
        throw Failure(label, "the line ends are mixed (" + counts + " in the first " +
                                 std::to_string(SNIFF_BYTES / 1024) +
                                 " KiB); name the one that ends records with --record-delimiter");
    }
    format.delimiters.record = "\n";
    format.delimiters.ignore = "\r";
    format.mixedLineEnds = counts;
}

std::string withOrigin(const std::string &text, Origin origin) {
    switch (origin) {
    case Origin::Given: return text + " (given)";
    case Origin::Found: return text + " (found)";
    case Origin::Default: return text + " (default)";
    }
    return text;
}

}  // namespace

TableFormat newDelimitedFormat(const FormatRequest &request) {
    TableFormat format;
    auto take = [](std::string &slot, const std::optional<std::string> &given, Origin *origin) {
        if (!given) return;
        slot = *given;
        if (origin != nullptr) *origin = Origin::Given;
    };
    take(format.delimiters.field, request.fieldDelimiter, &format.fieldOrigin);
    take(format.delimiters.record, request.recordDelimiter, &format.recordOrigin);
    take(format.delimiters.quote, request.quote, nullptr);
    take(format.delimiters.ignore, request.ignore, nullptr);
    if (request.encoding) {
        format.encoding = *request.encoding;
        format.encodingOrigin = Origin::Given;
    }
    format.header = request.header;
    return format;
}

TableFormat resolveFormat(const TableFile &file, const FormatRequest &request) {
    if (file.tagged) {
        TableFormat format;
        format.tagged = true;
        format.encoding = Encoding::Cp437;
        format.header = true;
        return format;
    }
    TableFormat format = newDelimitedFormat(request);
    if (file.size == 0) return format;
    std::string sample = sampleOf(file);
    Sniffed sniffed = sniffDelimited(sample, file.size <= SNIFF_BYTES);
    if (sniffed.utf16 && !request.encoding) {
        throw Failure(file.label, "begins with a UTF-16 byte-order mark; the driver reads text of single bytes, "
                                  "so save it as UTF-8");
    }
    if (!request.fieldDelimiter) {
        format.delimiters.field = sniffed.fieldDelimiter;
        format.fieldOrigin = Origin::Found;
    }
    if (!request.recordDelimiter) takeLineEnds(format, sniffed.lineEnds, request, file.label);
    if (!request.encoding) {
        format.encoding = sniffed.encoding;
        format.encodingOrigin = Origin::Found;
    }
    if (format.encoding == Encoding::Utf8) format.bomLength = sniffed.bomLength;
    return format;
}

std::vector<std::pair<std::string, std::string>> describeFormat(const TableFormat &format) {
    if (format.tagged) {
        return {{"encoding", "code page 437, as the driver gives a tagged document's text"},
                {"field names", "from the head record"}};
    }
    const Delimiters &d = format.delimiters;
    std::string record = withOrigin(delimiterText(d.record), format.recordOrigin);
    if (!format.mixedLineEnds.empty()) {
        record += ", with CR ignored: the line ends are mixed (" + format.mixedLineEnds + ")";
    }
    return {
        {"field delimiter", withOrigin(delimiterText(d.field), format.fieldOrigin)},
        {"record delimiter", record},
        {"quote", d.quote.empty() ? "none" : delimiterText(d.quote)},
        {"ignore", d.ignore.empty() ? "none" : delimiterText(d.ignore)},
        {"encoding", withOrigin(std::string(encodingName(format.encoding)), format.encodingOrigin) +
                         (format.bomLength != 0 ? ", with a byte-order mark" : "")},
        {"field names", format.header ? "from the first record (--header)" : "1, 2, ... by position (no --header)"},
    };
}

std::string delimiterText(const std::string &bytes) {
    if (bytes == "\r\n") return "CR LF";
    if (bytes == "\n") return "LF";
    if (bytes == "\r") return "CR";
    if (bytes == "\t") return "tab";
    std::string text = "'";
    for (char c : bytes) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            text += escaped;
        } else {
            text += c;
        }
    }
    return text + "'";
}

}  // namespace mergedb::host
