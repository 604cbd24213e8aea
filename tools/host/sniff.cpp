#include "sniff.h"

#include <algorithm>
#include <array>
#include <map>
#include <vector>

namespace mergedb::host {
namespace {

constexpr std::string_view UTF8_BOM = "\xEF\xBB\xBF";
constexpr std::array<char, 4> FIELD_CANDIDATES = {',', '\t', ';', '|'};  // in the order that breaks ties
constexpr size_t LINES_LOOKED_AT = 100;

// A line of the sample: its bytes without the line end.
using Lines = std::vector<std::string_view>;

// Splits the sample at line ends outside double quotes and counts them. A
// last line that may be cut off is left out.
Lines splitLines(std::string_view text, bool whole, LineEnds &ends) {
    Lines lines;
    bool quoted = false;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '"') quoted = !quoted;
        if (quoted || (c != '\r' && c != '\n')) continue;
        bool crlf = c == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if (c == '\r' && i + 1 == text.size() && !whole) break;  // its LF may come behind the sample
        lines.push_back(text.substr(start, i - start));
        if (crlf) {
            ++ends.crlf;
            ++i;
        } else {
            ++(c == '\n' ? ends.lf : ends.cr);
        }
        start = i + 1;
    }
    if (whole && start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

size_t countOutsideQuotes(std::string_view line, char wanted) {
    size_t count = 0;
    bool quoted = false;
    for (char c : line) {
        if (c == '"') quoted = !quoted;
        count += !quoted && c == wanted;
    }
    return count;
}

// The candidate that splits the most lines into the same number of fields,
// more than one; a comma when none splits any.
std::string fieldDelimiterOf(const Lines &lines) {
    size_t looked = std::min(lines.size(), LINES_LOOKED_AT);
    char best = ',';
    std::pair<size_t, size_t> bestScore{0, 0};  // lines that agree, delimiters a line
    for (char candidate : FIELD_CANDIDATES) {
        std::map<size_t, size_t> linesWithCount;
        for (size_t i = 0; i < looked; ++i) ++linesWithCount[countOutsideQuotes(lines[i], candidate)];
        for (const auto &[count, agreeing] : linesWithCount) {
            std::pair<size_t, size_t> score{agreeing, count};
            if (count > 0 && score > bestScore) {
                bestScore = score;
                best = candidate;
            }
        }
    }
    return std::string(1, best);
}

// Letters, as far as the two pages tell them apart: Latin letters and the
// sharp s, not the Greek of code page 437's mathematical symbols.
bool isLetter(char32_t c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) return true;
    if (c == 0xAA || c == 0xB5 || c == 0xBA) return true;
    return (c >= 0xC0 && c <= 0x24F && c != 0xD7 && c != 0xF7);
}

bool letterLike(std::string_view text, size_t at) {
    if (at >= text.size()) return false;
    auto byte = static_cast<unsigned char>(text[at]);
    return byte >= 0x80 || isLetter(byte);
}

// Which single-byte page reads the high bytes as letters inside words.
Encoding singleBytePage(std::string_view text) {
    int score437 = 0;
    int score1252 = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) continue;
        bool before = i > 0 && letterLike(text, i - 1);
        bool after = letterLike(text, i + 1);
        auto vote = [&](Encoding page) {
            std::string character = toUtf8(text.substr(i, 1), page);
            size_t position = 0;
            if (isLetter(nextUtf8(character, position).value_or(0))) return before || after ? 2 : 1;
            return before && after ? -2 : 0;
        };
        score437 += vote(Encoding::Cp437);
        score1252 += vote(Encoding::Cp1252);
    }
    return score437 > score1252 ? Encoding::Cp437 : Encoding::Cp1252;
}

// Whether the text is UTF-8, forgiving a character that a cut sample splits.
bool readsAsUtf8(std::string_view text, bool whole) {
    if (isUtf8(text)) return true;
    for (size_t cut = 1; !whole && cut <= 3 && cut < text.size(); ++cut) {
        if (isUtf8(text.substr(0, text.size() - cut))) return true;
    }
    return false;
}

}  // namespace

Sniffed sniffDelimited(std::string_view sample, bool whole) {
    Sniffed sniffed;
    if (sample.starts_with(UTF8_BOM)) {
        sniffed.bomLength = UTF8_BOM.size();
    } else if (sample.starts_with("\xFF\xFE") || sample.starts_with("\xFE\xFF")) {
        sniffed.utf16 = true;
    }
    std::string_view text = sample.substr(sniffed.bomLength);
    Lines lines = splitLines(text, whole, sniffed.lineEnds);
    sniffed.fieldDelimiter = fieldDelimiterOf(lines);
    if (sniffed.bomLength == 0 && !readsAsUtf8(text, whole)) sniffed.encoding = singleBytePage(text);
    return sniffed;
}

}  // namespace mergedb::host
