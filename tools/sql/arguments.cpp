#include "arguments.h"

#include <algorithm>
#include <array>

#include "failure.h"

namespace mergedb::sql {
namespace {

constexpr std::string_view USAGE = "write mergedb('FILE', header=yes, field_delimiter=';', ...)";
constexpr std::string_view HEADER_OPTION = "header";
constexpr std::array<std::string_view, 5> YES = {"1", "yes", "true", "on", ""};
constexpr std::array<std::string_view, 4> NO = {"0", "no", "false", "off"};

std::string trimmed(std::string_view text) {
    size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) return "";
    size_t end = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(start, end - start + 1));
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    return text;
}

std::string optionList() {
    std::string list;
    for (std::string_view name : host::formatOptionNames()) {
        std::string option(name);
        std::replace(option.begin(), option.end(), '-', '_');
        list += option + ", ";
    }
    return list + std::string(HEADER_OPTION);
}

bool takeHeader(host::FormatRequest &request, const std::string &value, const std::string &label) {
    std::string word = lowered(value);
    bool yes = std::find(YES.begin(), YES.end(), word) != YES.end();
    if (!yes && std::find(NO.begin(), NO.end(), word) == NO.end()) {
        throw host::Failure(label, "header takes yes or no, not '" + value + "'");
    }
    request.header = yes;
    return true;
}

void takeOption(host::FormatRequest &request, const std::string &argument, const std::string &label) {
    size_t equals = argument.find('=');
    std::string name = lowered(trimmed(std::string_view(argument).substr(0, equals)));
    std::string value = equals == std::string::npos ? "" : dequoted(trimmed(argument.substr(equals + 1)));
    if (name == HEADER_OPTION) {
        takeHeader(request, value, label);
        return;
    }
    std::string hostName = name;
    std::replace(hostName.begin(), hostName.end(), '_', '-');
    host::OptionTaken taken = host::takeFormatOption(request, hostName, value);
    if (!taken.known) {
        throw host::Failure(label, "unknown option '" + name + "'; the options are " + optionList() + " (" +
                                       std::string(USAGE) + ")");
    }
    if (equals == std::string::npos) throw host::Failure(label, name + " needs a value: " + name + "=VALUE");
    if (taken.problem) throw host::Failure(label, name + " " + *taken.problem);
}

}  // namespace

std::string dequoted(std::string_view text) {
    if (text.size() < 2) return std::string(text);
    char open = text.front();
    char close = open == '[' ? ']' : open;
    if ((open != '\'' && open != '"' && open != '[' && open != '`') || text.back() != close) return std::string(text);
    std::string inner;
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        inner += text[i];
        if (text[i] == close && open != '[' && i + 2 < text.size() && text[i + 1] == close) ++i;
    }
    return inner;
}

TableArguments parseArguments(std::span<const std::string> arguments) {
    if (arguments.empty()) return parseOptions("", arguments);
    return parseOptions(dequoted(trimmed(arguments[0])), arguments.subspan(1));
}

TableArguments parseOptions(std::string path, std::span<const std::string> options) {
    if (path.empty()) throw host::Failure("mergedb", "name the table's file: " + std::string(USAGE));
    TableArguments parsed;
    parsed.path = std::move(path);
    for (const std::string &option : options) takeOption(parsed.request, option, parsed.path);
    return parsed;
}

std::string sqlWording(std::string message) {
    for (size_t at = message.find("--"); at != std::string::npos; at = message.find("--", at)) {
        size_t end = at + 2;
        while (end < message.size() && ((message[end] >= 'a' && message[end] <= 'z') || message[end] == '-')) ++end;
        std::string option = message.substr(at + 2, end - at - 2);
        std::replace(option.begin(), option.end(), '-', '_');
        message.replace(at, end - at, "the option " + option);
        at += option.size();
    }
    return message;
}

}  // namespace mergedb::sql
