#include "spool.h"

#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "failure.h"

namespace mergedb::cli {
namespace {

using host::Failure;

constexpr const char *LABEL = "standard input";
constexpr size_t BLOCK = 1 << 16;
constexpr const char *FILE_NAME = "stdin";
constexpr int ENDING_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

// What a signal handler removes: plain bytes, set while a spool stands.
char spoolFile[PATH_MAX];
char spoolDirectory[PATH_MAX];
volatile sig_atomic_t spoolStands = 0;

// Removes the spool, then lets the signal end the process as it would have.
extern "C" void removeAndEnd(int signal) {
    if (spoolStands != 0) {
        ::unlink(spoolFile);
        ::rmdir(spoolDirectory);
    }
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void copyPath(char (&to)[PATH_MAX], const std::filesystem::path &from) {
    std::snprintf(to, sizeof to, "%s", from.c_str());
}

// The signals that end the process wait while it lives, so that none
// comes between the making of the directory and the handler that knows it.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t held;
        sigemptyset(&held);
        for (int signal : ENDING_SIGNALS) sigaddset(&held, signal);
        ::sigprocmask(SIG_BLOCK, &held, &before_);
    }
    ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;

private:
    sigset_t before_;
};

}  // namespace

Spool::Directory::Directory() {
    const char *tmp = std::getenv("TMPDIR");
    bool given = tmp != nullptr && *tmp != '\0';
    std::string base = given ? tmp : "/tmp";
    std::string pattern = base + "/mergedb-stdin-XXXXXX";
    SignalsHeld held;
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::string where = given ? "TMPDIR (" + base + ")" : base + " (TMPDIR is not set)";
        throw Failure(LABEL, "can't be kept in a file in " + where + ": " + std::strerror(errno) +
                                 "; set TMPDIR to a directory that may be written");
    }
    path_ = pattern;
    if (path_.native().size() + 1 + std::strlen(FILE_NAME) >= PATH_MAX) return;
    copyPath(spoolDirectory, path_);
    copyPath(spoolFile, path_ / FILE_NAME);
    spoolStands = 1;
    for (int signal : ENDING_SIGNALS) {
        if (::signal(signal, SIG_IGN) != SIG_IGN) ::signal(signal, removeAndEnd);  // an ignored one stays so
    }
}

Spool::Directory::~Directory() {
    spoolStands = 0;
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

Spool::Spool() : file_(directory_.path() / FILE_NAME) {
    std::FILE *out = std::fopen(file_.c_str(), "wb");
    if (out == nullptr) throw Failure(LABEL, "can't be kept in " + file_.string() + ": " + std::strerror(errno));
    std::vector<char> block(BLOCK);
    size_t got = 0;
    bool written = true;
    while ((got = std::fread(block.data(), 1, block.size(), stdin)) > 0) {
        written = written && std::fwrite(block.data(), 1, got, out) == got;
    }
    bool readWell = std::ferror(stdin) == 0;
    if (std::fclose(out) != 0 || !written || !readWell) {
        throw Failure(LABEL, "could not be kept in " + directory_.path().string() +
                                 (readWell ? " (a write failed: is the disk full? TMPDIR names another place)"
                                           : " (it could not be read)"));
    }
}

Spool::~Spool() = default;

}  // namespace mergedb::cli
