#include "arguments.h"

#include <algorithm>

namespace mergedb::cli {
namespace {

constexpr OptionSpec HELP_OPTION{"--help", "", "show this help and stop"};

std::string optionLabel(const OptionSpec &option) {
    std::string label(option.name);
    if (!option.valueName.empty()) label.append(" ").append(option.valueName);
    return label;
}

const OptionSpec *findOption(const CommandSpec &command, std::string_view name) {
    auto found = std::find_if(command.options.begin(), command.options.end(),
                              [name](const OptionSpec &option) { return option.name == name; });
    return found == command.options.end() ? nullptr : &*found;
}

std::optional<int> hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return std::nullopt;
}

}  // namespace

std::string helpText(const CommandSpec &command) {
    std::string text = "Usage: mergedb " + std::string(command.name) + " " + std::string(command.operands) +
                       " [options]\n\n" + command.description + "\n\nOptions:\n";
    std::vector<OptionSpec> options = command.options;
    options.push_back(HELP_OPTION);
    size_t width = 0;
    for (const OptionSpec &option : options) width = std::max(width, optionLabel(option).size());
    for (const OptionSpec &option : options) {
        std::string label = optionLabel(option);
        text += "  " + label + std::string(width + 2 - label.size(), ' ') + std::string(option.help) + "\n";
    }
    return text;
}

Invocation::Invocation(const CommandSpec &command, std::span<char *const> arguments) : command_(command) {
    bool onlyOperands = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        std::string_view argument = arguments[i];
        if (onlyOperands || argument.size() < 2 || argument[0] != '-') {
            operands_.emplace_back(argument);
        } else if (argument == "--") {
            onlyOperands = true;
        } else {
            i = takeOption(arguments, i);
        }
    }
    if (helpWanted_) return;
    if (operands_.size() < command.minOperands) fail("missing " + std::string(command.operands));
    if (operands_.size() > command.maxOperands) fail("unexpected argument '" + operands_[command.maxOperands] + "'");
}

size_t Invocation::takeOption(std::span<char *const> arguments, size_t at) {
    std::string_view argument = arguments[at];
    size_t equals = argument.find('=');
    std::string_view name = argument.substr(0, equals);
    if (name == "--help" || name == "-h") {
        helpWanted_ = true;
        return at;
    }
    const OptionSpec *option = findOption(command_, name);
    if (option == nullptr) fail("unknown option " + std::string(name));
    if (option->valueName.empty()) {
        if (equals != std::string_view::npos) fail(std::string(name) + " takes no value");
        options_.emplace_back(option->name, "");
    } else if (equals != std::string_view::npos) {
        options_.emplace_back(option->name, argument.substr(equals + 1));
    } else if (at + 1 < arguments.size()) {
        options_.emplace_back(option->name, arguments[++at]);
    } else {
        fail(std::string(name) + " needs a value");
    }
    return at;
}

bool Invocation::has(std::string_view option) const {
    return std::any_of(options_.begin(), options_.end(), [option](const auto &given) { return given.first == option; });
}

std::optional<std::string> Invocation::value(std::string_view option) const {
    std::vector<std::string> all = values(option);
    if (all.empty()) return std::nullopt;
    return all.back();
}

std::vector<std::string> Invocation::values(std::string_view option) const {
    std::vector<std::string> all;
    for (const auto &[name, value] : options_) {
        if (name == option) all.push_back(value);
    }
    return all;
}

void Invocation::fail(const std::string &message) const {
    throw UsageError("mergedb " + std::string(command_.name) + ": " + message + " (see mergedb " +
                     std::string(command_.name) + " --help)");
}

Assignment Invocation::assignment(std::string_view argument) const {
    size_t equals = argument.find('=');
    if (equals == std::string_view::npos || equals == 0) fail("expected NAME=..., not '" + std::string(argument) + "'");
    return {std::string(argument.substr(0, equals)), std::string(argument.substr(equals + 1))};
}

std::vector<Assignment> Invocation::assignments(const std::vector<std::string> &arguments) const {
    std::vector<Assignment> all;
    for (const std::string &argument : arguments) all.push_back(assignment(argument));
    return all;
}

std::optional<std::string> unescape(std::string_view text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes.push_back(text[i]);
            continue;
        }
        char escape = ++i < text.size() ? text[i] : '\0';
        switch (escape) {
        case 't': bytes.push_back('\t'); break;
        case 'r': bytes.push_back('\r'); break;
        case 'n': bytes.push_back('\n'); break;
        case '\\': bytes.push_back('\\'); break;
        case 'x': {
            std::optional<int> high = i + 1 < text.size() ? hexDigit(text[i + 1]) : std::nullopt;
            std::optional<int> low = i + 2 < text.size() ? hexDigit(text[i + 2]) : std::nullopt;
            if (!high || !low || (*high == 0 && *low == 0)) return std::nullopt;
            bytes.push_back(static_cast<char>(*high * 16 + *low));
            i += 2;
            break;
        }
        default: return std::nullopt;
        }
    }
    return bytes;
}

}  // namespace mergedb::cli
