#include "temporary_name.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>

#include "codepage.h"
#include "failure.h"

namespace mergedb::host {
namespace {

constexpr std::string_view PREFIX = "mergedb-tmp-";
constexpr int NAME_ATTEMPTS = 1000;
// "mergedb-tmp-", a pid of up to 10 digits, '-', a number below
// NAME_ATTEMPTS and the '.' in front of the table's name.
static_assert(PREFIX.size() + 10 + 1 + 3 + 1 <= TEMPORARY_PREFIX_LONGEST);

// The process named in a temporary name, or nothing for another name.
std::optional<pid_t> processOf(std::string_view name) {
    if (!name.starts_with(PREFIX)) return std::nullopt;
    name.remove_prefix(PREFIX.size());
    pid_t pid = 0;
    auto [dash, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error != std::errc() || pid <= 0 || dash == name.data() + name.size() || *dash != '-') return std::nullopt;
    const char *end = name.data() + name.size();
    unsigned number = 0;
    auto [after, numberError] = std::from_chars(dash + 1, end, number);
    if (numberError != std::errc() || (after != end && *after != '.')) return std::nullopt;
    return pid;
}

bool processGone(pid_t pid) { return ::kill(pid, 0) != 0 && errno == ESRCH; }

std::string nameFor(const TableFile &table, int attempt, bool withTable) {
    std::string name = std::string(PREFIX) + std::to_string(::getpid()) + "-" + std::to_string(attempt);
    return withTable ? name + "." + table.name : name;
}

}  // namespace

TemporaryName takeTemporaryName(const TableFile &table, mode_t mode) {
    size_t longest = std::max(table.name.size(), table.driverName.size());  // on the disk, for the driver
    bool withTable = nameFor(table, NAME_ATTEMPTS, false).size() + 1 + longest <= LONGEST_NAME;
    for (int attempt = 0; attempt < NAME_ATTEMPTS; ++attempt) {
        std::string name = nameFor(table, attempt, withTable);
        std::filesystem::path path = table.directory() / name;
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (fd >= 0) {
            ::close(fd);
            std::string prefix = name.substr(0, name.size() - (withTable ? table.name.size() : 0));
            return {path, withTable ? prefix + table.driverName : name};
        }
        if (errno != EEXIST) {
            throw Failure(table.label, "no new file could be made in " + table.directory().string() + ": " +
                                           std::strerror(errno));
        }
    }
    throw Failure(table.label, "no free name for a new file in " + table.directory().string());
}

bool isTemporaryName(std::string_view name) { return processOf(name).has_value(); }

std::vector<std::string> tableNamesInUtf8(const Database &database) {
    std::vector<std::string> names;
    for (const std::string &name : database.tableNames()) {
        if (!isTemporaryName(name)) names.push_back(toUtf8(name, Encoding::Cp437));
    }
    return names;
}

std::vector<std::string> leftoverTemporaries(const std::filesystem::path &directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (auto entry = std::filesystem::directory_iterator(directory, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::string name = entry->path().filename().string();
        std::optional<pid_t> pid = processOf(name);
        if (pid && processGone(*pid)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string leftoverNote(const std::vector<std::string> &names) {
    if (names.empty()) return "";
    std::string listed;
    for (const std::string &name : names) listed += (listed.empty() ? "" : ", ") + name;
    bool one = names.size() == 1;
    return std::string("note: in the directory ") + (one ? "lies " : "lie ") + listed +
           ", left by a rewrite or convert that was cut short (the process that made " + (one ? "it" : "them") +
           " is gone); no table needs " + (one ? "it, and it" : "them, and they") + " may be removed";
}

}  // namespace mergedb::host
