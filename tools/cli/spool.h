// Standard input kept in a file, for the commands that read a table from
// it: the driver reads tables from files only. The file lies in a
// directory of its own under TMPDIR (/tmp where that is not set), which
// goes when the spool does, and also when the process is ended by SIGINT,
// SIGTERM, SIGHUP or SIGPIPE.
#pragma once

#include <filesystem>

namespace mergedb::cli {

class Spool {
public:
    // Copies standard input to the end. Throws a Failure, and leaves
    // nothing behind, when that fails.
    Spool();
    ~Spool();
    Spool(const Spool &) = delete;
    Spool &operator=(const Spool &) = delete;

    const std::filesystem::path &file() const { return file_; }

private:
    // The directory, removed with what it holds.
    class Directory {
    public:
        Directory();
        ~Directory();
        Directory(const Directory &) = delete;
        Directory &operator=(const Directory &) = delete;
        const std::filesystem::path &path() const { return path_; }

    private:
        std::filesystem::path path_;
    };

    Directory directory_;
    std::filesystem::path file_;
};

}  // namespace mergedb::cli
