// The command line: what each subcommand takes, and the parse of one call.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mergedb::cli {

// A mistake on the command line; the tool ends with status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct OptionSpec {
    std::string_view name;       // with its dashes: "--field"
    std::string_view valueName;  // empty for an option without a value
    std::string_view help;
};

class Invocation;

struct CommandSpec {
    std::string_view name;
    std::string_view operands;  // as the usage line shows them
    size_t minOperands;
    size_t maxOperands;
    std::string_view summary;
    std::string description;
    std::vector<OptionSpec> options;
    int (*run)(const Invocation &);
};

std::string helpText(const CommandSpec &command);

struct Assignment {
    std::string name;
    std::string value;
};

class Invocation {
public:
    // Parses the arguments that follow the command's name.
    Invocation(const CommandSpec &command, std::span<char *const> arguments);

    const CommandSpec &command() const { return command_; }
    bool helpWanted() const { return helpWanted_; }
    const std::vector<std::string> &operands() const { return operands_; }

    bool has(std::string_view option) const;
    // The last value given for an option.
    std::optional<std::string> value(std::string_view option) const;
    std::vector<std::string> values(std::string_view option) const;

    [[noreturn]] void fail(const std::string &message) const;

    // NAME=VALUE, split at the first '='.
    Assignment assignment(std::string_view argument) const;
    std::vector<Assignment> assignments(const std::vector<std::string> &arguments) const;

private:
    // Takes the option at arguments[at] and its value; gives the index of
    // the last argument taken.
    size_t takeOption(std::span<char *const> arguments, size_t at);

    const CommandSpec &command_;
    bool helpWanted_ = false;
    std::vector<std::string> operands_;
    std::vector<std::pair<std::string_view, std::string>> options_;
};

// The bytes of a delimiter argument: \t, \r, \n, \\ and \xNN stand for their
// byte. Nothing when an escape is malformed or gives a NUL.
std::optional<std::string> unescape(std::string_view text);

}  // namespace mergedb::cli
