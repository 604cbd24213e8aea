// mergedb: a command-line host of the mergedb driver. It looks into tables,
// writes their records out, changes them and makes new ones, through the
// public interface of the library alone.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <span>
#include <string>

#include "arguments.h"
#include "commands.h"
#include "failure.h"
#include "output.h"

namespace mergedb::cli {
namespace {

constexpr int STATUS_FAILURE = 1;
constexpr int STATUS_USAGE = 2;

const CommandSpec *findCommand(std::string_view name) {
    std::span<const CommandSpec> commands = commandList();
    auto found = std::find_if(commands.begin(), commands.end(),
                              [name](const CommandSpec &command) { return command.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

int run(std::span<char *const> arguments) {
    if (arguments.empty()) throw UsageError("mergedb: no command given (see mergedb --help)");
    std::string_view name = arguments[0];
    if (name == "--help" || name == "-h") {
        writeOut(overview());
        return 0;
    }
    if (name == "--version") {
        writeOut("mergedb " MERGEDB_VERSION "\n");
        return 0;
    }
    const CommandSpec *command = findCommand(name);
    if (command == nullptr) {
        throw UsageError("mergedb: unknown command '" + std::string(name) + "' (see mergedb --help)");
    }
    Invocation invocation(*command, arguments.subspan(1));
    if (invocation.helpWanted()) {
        writeOut(helpText(*command));
        return 0;
    }
    int status = command->run(invocation);
    if (std::fflush(stdout) != 0) throw host::Failure("output", std::strerror(errno));
    return status;
}

}  // namespace
}  // namespace mergedb::cli

int main(int argc, char **argv) {
    using namespace mergedb::cli;
    try {
        return run(std::span<char *const>(argv, static_cast<size_t>(argc)).subspan(1));
    } catch (const UsageError &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return STATUS_USAGE;
    } catch (const std::exception &error) {
        std::fflush(stdout);
        std::fprintf(stderr, "mergedb: %s\n", error.what());
        return STATUS_FAILURE;
    } catch (...) {
        std::fprintf(stderr, "mergedb: an unknown failure\n");
        return STATUS_FAILURE;
    }
}
