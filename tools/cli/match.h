// Examples for find, update and delete: which records fit, judged by the
// tool on the values as UTF-8, and fields named as a person names them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "arguments.h"
#include "checked_walk.h"

namespace mergedb::cli {

// The position of a field by its name: the field of exactly that name, or
// else the one whose name differs only in case, or else the field of that
// number from 1. A name that fits several fields either way is refused
// with those fields, and so is a name that fits none, with all of them.
uint16_t fieldIndex(const std::vector<std::string> &names, const std::string &name, const std::string &label);

// A pattern fits a value that equals it, ignoring case; each '*' in it
// stands for any run of characters, none too.
class Pattern {
public:
    explicit Pattern(std::string_view pattern);
    bool fits(std::string_view value) const;

private:
    std::vector<std::string> pieces_;  // folded, between the '*'s
    bool openStart_ = false;
    bool openEnd_ = false;
};

struct Criterion {
    uint16_t field;
    std::optional<Pattern> pattern;  // nothing: the field must be empty
};

class Example {
public:
    // NAME=PATTERN arguments and the --blank options; at least one.
    // patternForm names the arguments in the message when there is none.
    Example(const Invocation &invocation, const std::vector<std::string> &patterns, std::string_view patternForm,
            const std::vector<std::string> &names, const std::string &label);
    bool fits(host::CheckedWalk &walk) const;

private:
    std::vector<Criterion> criteria_;
};

// Text folded for a comparison that ignores case: ASCII and Latin-1 letters.
std::string folded(std::string_view utf8);

}  // namespace mergedb::cli
