#include "sniff.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <vector>

namespace mergedb::host {
namespace {

constexpr std::string_view UTF8_BOM = "\xEF\xBB\xBF";
constexpr std::array<char, 4> FIELD_CANDIDATES = {',', '\t', ';', '|'};  // in the order that breaks ties
constexpr size_t LINES_LOOKED_AT = 100;

// A line of the sample: its bytes without the line end.
using Lines = std::vector<std::string_view>;

// The driver's rule for quotes, before the delimiters are known: a quote
// opens a stretch wherever it stands, and only a quote that a delimiter
// follows closes it (any of the candidates or a line end here, or the end
// of the line or sample). So "8" round" stays one stretch, as the driver
// reads it.
class Quoting {
public:
    // Takes the byte at i of text; whether it is inside a stretch after it.
    bool inside(std::string_view text, size_t i) {
        if (text[i] != '"') return quoted_;
        if (!quoted_) return quoted_ = true;
        if (i + 1 == text.size() || std::string_view(",\t;|\r\n").find(text[i + 1]) != std::string_view::npos) {
            quoted_ = false;
        }
        return quoted_;
    }

private:
    bool quoted_ = false;
};

// Splits the sample at line ends outside double quotes and counts them. A
// last line that may be cut off is left out.
Lines splitLines(std::string_view text, bool whole, LineEnds &ends) {
    Lines lines;
    Quoting quoting;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (quoting.inside(text, i) || (c != '\r' && c != '\n')) continue;
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
    Quoting quoting;
    for (size_t i = 0; i < line.size(); ++i) count += !quoting.inside(line, i) && line[i] == wanted;
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

bool isAsciiLetter(std::string_view text, size_t at) {
    return at < text.size() && isLetter(static_cast<unsigned char>(text[at]));
}

bool isAsciiDigit(std::string_view text, size_t at) {
    return at < text.size() && text[at] >= '0' && text[at] <= '9';
}

// The votes of one high byte for each page: a letter that stands in a word
// counts for the page that reads a letter there. A capital of code page 437
// behind a small ASCII letter is no letter a word has (DonÆt), and the
// marks of Windows-1252 that its files are full of count where text puts
// them: an apostrophe between letters, quotation marks opening before a
// word and closing one that opened, a euro sign at a number, a dash
// between words or numbers.
struct PageVotes {
    int cp437 = 0;
    int cp1252 = 0;
};

class PageVoter {
public:
    explicit PageVoter(std::string_view text) : text_(text) {}

    PageVotes at(size_t i) {
        bool before = i > 0 && letterLike(text_, i - 1);
        bool after = letterLike(text_, i + 1);
        PageVotes votes{letterVote(i, Encoding::Cp437, before, after), letterVote(i, Encoding::Cp1252, before, after)};
        if (i > 0 && text_[i - 1] >= 'a' && text_[i - 1] <= 'z' && isCapital437(text_[i])) {
            votes.cp437 = 0;
        }
        if (int marks = markVotes(i, before, after)) votes.cp1252 = marks;
        return votes;
    }

private:
    int letterVote(size_t i, Encoding page, bool before, bool after) const {
        std::string character = toUtf8(text_.substr(i, 1), page);
        size_t position = 0;
        if (isLetter(nextUtf8(character, position).value_or(0))) return before || after ? 2 : 1;
        return before && after ? -2 : 0;
    }

    static bool isCapital437(char byte) {
        auto b = static_cast<unsigned char>(byte);
        return b == 0x80 || b == 0x8E || b == 0x8F || b == 0x90 || b == 0x92 || b == 0x99 || b == 0x9A;
    }

    // The votes for Windows-1252 of a mark where text puts it; an opening
    // quotation mark counts only once a closing one follows it, with the
    // votes of both.
    int markVotes(size_t i, bool before, bool after) {
        bool letterBefore = i > 0 && isAsciiLetter(text_, i - 1);
        bool letterAfter = isAsciiLetter(text_, i + 1);
        bool wordAfter = letterAfter || isAsciiDigit(text_, i + 1);
        bool spaced = (i == 0 || isSpace(i - 1)) && (i + 1 >= text_.size() || isSpace(i + 1));
        switch (static_cast<unsigned char>(text_[i])) {
        case 0x92: return letterBefore && letterAfter ? MARK : 0;  // Don’t
        case 0x93:
            opened_ = !before && wordAfter;
            return 0;
        case 0x94: {
            bool closesWord = letterBefore || (i > 0 && std::ispunct(static_cast<unsigned char>(text_[i - 1])));
            bool closes = opened_ && !after && closesWord;
            opened_ = false;
            return closes ? 2 * MARK : 0;
        }
        case 0x80:  // € 5, 5 €
            return isAsciiDigit(text_, i + 1) || (isSpace(i + 1) && isAsciiDigit(text_, i + 2)) ||
                           (isSpace(i - 1) && isAsciiDigit(text_, i - 2))
                       ? MARK
                       : 0;
        case 0x96:
        case 0x97: return spaced || (isAsciiDigit(text_, i - 1) && isAsciiDigit(text_, i + 1)) ? MARK : 0;
        default: return 0;
        }
    }

    static constexpr int MARK = 2;  // as much as a letter in a word

    bool isSpace(size_t at) const { return at < text_.size() && text_[at] == ' '; }

    std::string_view text_;
    bool opened_ = false;  // a quotation mark opened and not yet closed
};

// Which single-byte page reads the high bytes as the text people write.
Encoding singleBytePage(std::string_view text) {
    int score437 = 0;
    int score1252 = 0;
    PageVoter voter(text);
    for (size_t i = 0; i < text.size(); ++i) {
        if (static_cast<unsigned char>(text[i]) < 0x80) continue;
        PageVotes votes = voter.at(i);
        score437 += votes.cp437;
        score1252 += votes.cp1252;
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
