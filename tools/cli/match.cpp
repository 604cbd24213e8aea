#include "match.h"

#include <charconv>

#include "codepage.h"
#include "failure.h"
#include "output.h"

namespace mergedb::cli {
namespace {

constexpr unsigned char UTF8_LATIN1_LEAD = 0xC3;  // the lead byte of U+00C0 to U+00FF
constexpr unsigned char UPPER_FIRST = 0x80;       // U+00C0
constexpr unsigned char UPPER_LAST = 0x9E;        // U+00DE
constexpr unsigned char TIMES_SIGN = 0x97;        // U+00D7, which has no lower case

std::vector<size_t> positionsWhere(const std::vector<std::string> &names, auto same) {
    std::vector<size_t> found;
    for (size_t i = 0; i < names.size(); ++i) {
        if (same(names[i])) found.push_back(i);
    }
    return found;
}

std::string candidates(const std::vector<std::string> &names, const std::vector<size_t> &positions) {
    std::vector<std::string> listed;
    for (size_t i : positions) listed.push_back("'" + names[i] + "' (field " + std::to_string(i + 1) + ")");
    return joined(listed);
}

}  // namespace

std::string folded(std::string_view utf8) {
    std::string out(utf8);
    for (size_t i = 0; i < out.size(); ++i) {
        auto byte = static_cast<unsigned char>(out[i]);
        if (byte >= 'A' && byte <= 'Z') {
            out[i] = static_cast<char>(byte + 32);
        } else if (byte == UTF8_LATIN1_LEAD && i + 1 < out.size()) {
            auto next = static_cast<unsigned char>(out[i + 1]);
            if (next >= UPPER_FIRST && next <= UPPER_LAST && next != TIMES_SIGN) {
                out[i + 1] = static_cast<char>(next + 32);
            }
            ++i;
        }
    }
    return out;
}

uint16_t fieldIndex(const std::vector<std::string> &names, const std::string &name, const std::string &label) {
    std::vector<size_t> exact = positionsWhere(names, [&](const std::string &field) { return field == name; });
    if (exact.size() == 1) return static_cast<uint16_t>(exact[0]);
    if (exact.size() > 1) {
        std::vector<std::string> numbers;
        for (size_t i : exact) numbers.push_back(std::to_string(i + 1));
        throw host::Failure(label, "has " + std::to_string(exact.size()) + " fields named '" + name + "' (fields " +
                                       joined(numbers) + "); name the one meant by its number");
    }
    std::string wanted = folded(name);
    std::vector<size_t> alike =
        positionsWhere(names, [&](const std::string &field) { return folded(field) == wanted; });
    if (alike.size() == 1) return static_cast<uint16_t>(alike[0]);
    if (alike.size() > 1) {
        throw host::Failure(label, "the field name '" + name + "' fits several fields that differ only in case: " +
                                       candidates(names, alike) + "; give one of them as the table writes it");
    }
    size_t number = 0;
    auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc() && end == name.data() + name.size() && number >= 1 && number <= names.size()) {
        return static_cast<uint16_t>(number - 1);
    }
    if (names.empty()) throw host::Failure(label, "has no fields");
    throw host::Failure(label, "has no field '" + name + "'; its fields are " + joined(names));
}

Pattern::Pattern(std::string_view pattern) {
    std::string text = folded(pattern);
    openStart_ = text.starts_with('*');
    openEnd_ = text.ends_with('*');
    for (size_t start = 0; start <= text.size();) {
        size_t star = text.find('*', start);
        if (star == std::string::npos) star = text.size();
        if (star > start) pieces_.push_back(text.substr(start, star - start));
        start = star + 1;
    }
}

// The pieces in order: the first at the start unless the pattern opens with
// a '*', the last at the end unless it closes with one.
bool Pattern::fits(std::string_view value) const {
    std::string text = folded(value);
    if (pieces_.empty()) return openStart_ || text.empty();
    size_t at = 0;
    for (size_t i = 0; i < pieces_.size(); ++i) {
        const std::string &piece = pieces_[i];
        bool last = i + 1 == pieces_.size();
        if (i == 0 && !openStart_) {
            if (!text.starts_with(piece)) return false;
            at = piece.size();
        } else if (last && !openEnd_) {
            return text.size() >= at + piece.size() && text.ends_with(piece);
        } else {
            size_t found = text.find(piece, at);
            if (found == std::string::npos) return false;
            at = found + piece.size();
        }
        if (last) return openEnd_ || at == text.size();
    }
    return true;
}

Example::Example(const Invocation &invocation, const std::vector<std::string> &patterns,
                 std::string_view patternForm, const std::vector<std::string> &names, const std::string &label) {
    for (const Assignment &given : invocation.assignments(patterns)) {
        if (given.value.empty()) {
            invocation.fail("an empty pattern for " + given.name + "; --blank asks for an empty field");
        }
        if (!host::isUtf8(given.value)) {
            invocation.fail("the pattern for " + given.name + " holds bytes that are not UTF-8");
        }
        criteria_.push_back({fieldIndex(names, given.name, label), Pattern(given.value)});
    }
    for (const std::string &name : invocation.values("--blank")) {
        criteria_.push_back({fieldIndex(names, name, label), std::nullopt});
    }
    if (criteria_.empty()) {
        invocation.fail("nothing to look for: give " + std::string(patternForm) + " or --blank NAME");
    }
}

bool Example::fits(host::CheckedWalk &walk) const {
    for (const Criterion &criterion : criteria_) {
        std::string value = walk.value(criterion.field);
        if (criterion.pattern ? !criterion.pattern->fits(value) : !value.empty()) return false;
    }
    return true;
}

}  // namespace mergedb::cli
