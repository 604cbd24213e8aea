#include "table_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "backup.h"
#include "codepage.h"
#include "descriptor.h"
#include "failure.h"

namespace mergedb::host {
namespace {

constexpr std::array<char, 4> TAGGED_MAGIC = {'\xFF', 'Z', 'R', 'N'};

// Why a file of this type is no table, or nothing for a regular file.
const char *notATable(mode_t mode) {
    if (S_ISREG(mode)) return nullptr;
    if (S_ISDIR(mode)) return "is a directory, not a table file";
    if (S_ISFIFO(mode)) return "is a FIFO (a named pipe), not a table file";
    if (S_ISSOCK(mode)) return "is a socket, not a table file";
    return "is a device, not a table file";
}

constexpr const char *NO_WRITE_BIT =
    "is read-only: it has no write permission bit, which the driver takes as read-only for everyone, root too "
    "(chmod u+w gives it one)";

bool hasWriteBit(mode_t mode) { return (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0; }

TableFile described(const std::string &argument, const std::filesystem::path &path) {
    TableFile file;
    file.label = argument;
    file.path = path;
    file.name = path.filename().string();
    if (file.name.empty() || file.name == "." || file.name == "..") {
        throw Failure(argument, "names no table file");
    }
    file.driverName = driverName(file.name, argument);
    file.backupName = backupNameOf(file.name);
    if (file.backupName.size() > LONGEST_NAME) {
        throw Failure(argument, "the name's backup name, " + file.backupName + ", is longer than the driver's " +
                                    std::to_string(LONGEST_NAME) + " bytes");
    }
    return file;
}

// Reads the facts of an existing file into file; false when there is none.
bool examine(TableFile &file) {
    struct stat facts{};
    if (::stat(file.path.c_str(), &facts) != 0) {
        if (errno == ENOENT) return false;
        throw Failure(file.label, std::strerror(errno));
    }
    if (const char *reason = notATable(facts.st_mode)) throw Failure(file.label, reason);
    file.size = static_cast<uint64_t>(facts.st_size);
    if (file.size > LARGEST_TABLE) {
        throw Failure(file.label, "is " + sizeText(file.size) + " (" + std::to_string(file.size) +
                                      " bytes); the driver reads tables of at most " +
                                      std::to_string(LARGEST_TABLE) + " bytes");
    }
    file.tagged = beginsTagged(file.path);
    std::error_code error;
    file.backupPresent = file.backupName != file.name && std::filesystem::exists(file.backupPath(), error);
    return true;
}

// The file that argument names, absolute, with the links that it passes
// through followed, so far as they lead to something.
std::filesystem::path resolved(const std::string &argument) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(argument, error);
    if (error) throw Failure(argument, error.message());
    std::filesystem::path path = std::filesystem::weakly_canonical(absolute, error);
    return error ? absolute : path;
}

}  // namespace

TableFile locateTable(const std::string &argument) {
    TableFile file = described(argument, resolved(argument));
    if (examine(file)) return file;
    std::error_code error;
    if (file.backupName != file.name && std::filesystem::exists(file.backupPath(), error)) {
        throw Failure(argument, "there is no such file, but " + file.backupName +
                                    " lies beside it: a commit of it (or of another table of its stem) did not "
                                    "finish. mergedb recover " + argument + " puts the backup back");
    }
    throw Failure(argument, "there is no such file");
}

TableFile plannedTable(const std::string &argument) {
    TableFile file = described(argument, resolved(argument));
    std::error_code error;
    if (!std::filesystem::is_directory(file.directory(), error)) {
        throw Failure(argument, "there is no directory " + file.directory().string());
    }
    examine(file);
    return file;
}

void requireEditable(const TableFile &file) {
    std::string stem = file.name.substr(0, file.name.find('.'));
    if (file.backupName == file.name) {
        throw Failure(file.label, "is named like the driver's backup of a table " + stem +
                                      ".*, so a commit would write over it; copy it to another name to change it");
    }
    if (file.backupPresent && commitRunning(file)) {
        throw Failure(file.label, "another process is committing it now (it holds " + file.backupName +
                                      "); nothing was changed. Try again when that commit is done");
    }
    if (file.backupPresent) {
        throw Failure(file.label, file.backupName + " lies beside it, left by a commit of it (or of another " + stem +
                                      ".* table) that did not finish; a commit would fail on it, so nothing was " +
                                      "changed. Run mergedb recover " + file.label + " first");
    }
    struct stat facts{};
    if (::stat(file.path.c_str(), &facts) == 0 && !hasWriteBit(facts.st_mode)) {
        throw Failure(file.label, std::string(NO_WRITE_BIT) + "; nothing was changed");
    }
    if (::access(file.path.c_str(), W_OK) != 0) {
        throw Failure(file.label, "is read-only (no permission to write it); nothing was changed");
    }
    if (::access(file.directory().c_str(), W_OK | X_OK) != 0) {
        throw Failure(file.label, "its directory " + file.directory().string() +
                                      " is read-only, and a commit renames the table there; nothing was changed");
    }
}

std::string openRefusal(const TableFile &file, bool write) {
    struct stat facts{};
    if (::stat(file.path.c_str(), &facts) != 0) return "can't be found any more: " + std::string(std::strerror(errno));
    if (const char *reason = notATable(facts.st_mode)) return reason;
    if (write && !hasWriteBit(facts.st_mode)) return NO_WRITE_BIT;
    Descriptor opened(::open(file.path.c_str(), (write ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_CLOEXEC));
    if (opened.get() < 0) return "can't be opened: " + std::string(std::strerror(errno));
    return std::string("is held by another process: ") +
           (write ? "a program has it open, and a table is changed only where no one else has it open"
                  : "a program is changing it, and shares it with no one meanwhile") +
           "; try again when that program is done with it";
}

std::string driverName(std::string_view utf8, const std::string &label) {
    std::string name;
    for (size_t position = 0; position < utf8.size();) {
        std::optional<char32_t> character = nextUtf8(utf8, position);
        if (!character) throw Failure(label, "the name is not UTF-8");
        std::optional<unsigned char> oem = pageByte(*character, Encoding::Cp437);
        if (!oem || !pageByte(*character, Encoding::Cp1252)) {
            std::string lacking = oem ? "Windows-1252, the page the driver hands names to the file system in,"
                                      : "code page 437, the page of the driver's names,";
            throw Failure(label, "the name holds " + describeCharacter(*character) + ", which " + lacking + " lacks");
        }
        name.push_back(static_cast<char>(*oem));
    }
    if (name.size() > LONGEST_NAME) {
        throw Failure(label, "the name is " + std::to_string(name.size()) + " bytes long; the driver takes at most " +
                                 std::to_string(LONGEST_NAME));
    }
    return name;
}

Failure afterFailedCommit(const TableFile &file, const Failure &failure) {
    std::error_code error;
    if (std::filesystem::exists(file.path, error) || !std::filesystem::exists(file.backupPath(), error)) {
        return failure;
    }
    std::filesystem::rename(file.backupPath(), file.path, error);
    if (error) {
        return Failure(file.label, failure.reason() + " The old table is under " + file.backupName +
                                       " and could not be put back (" + error.message() + "); mergedb recover " +
                                       file.label + " puts it back");
    }
    return Failure(file.label, failure.reason() + " Nothing was changed: the table is as it was.");
}

std::string backupNameOf(const std::string &name) { return name.substr(0, name.find('.')) + ".bk"; }

bool beginsTagged(const std::filesystem::path &path) {
    Descriptor opened(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));  // a FIFO must not hold it up
    if (opened.get() < 0) return false;
    struct stat facts{};
    if (::fstat(opened.get(), &facts) != 0) {
        throw Failure(path.filename().string(), "can't be examined: " + std::string(std::strerror(errno)));
    }
    if (const char *reason = notATable(facts.st_mode)) throw Failure(path.filename().string(), reason);
    std::array<char, TAGGED_MAGIC.size()> head{};
    return ::pread(opened.get(), head.data(), head.size(), 0) == static_cast<ssize_t>(head.size()) &&
           head == TAGGED_MAGIC;
}

std::string sizeText(uint64_t bytes) {
    char text[32];
    if (bytes >= (uint64_t{1} << 30)) {
        std::snprintf(text, sizeof text, "%.1f GiB", static_cast<double>(bytes) / (1u << 30));
    } else if (bytes >= 1000000) {
        std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
    } else {
        std::snprintf(text, sizeof text, "%llu bytes", static_cast<unsigned long long>(bytes));
    }
    return text;
}

}  // namespace mergedb::host
