// The few things tests do that the operating system spells differently.
#pragma once

#include <optional>
#include <string>

namespace mergedb::test {

// Loads the shared library at path, such as a resource module for
// dbInitMerge; throws when it can't.
void *loadModule(const char *path);

// The address of a function that a loaded library exports by name, or null.
void *moduleFunction(void *module, const char *name);

// The path under which a file is written exactly as named: Windows would
// drop a final point from a name unless it is told not to.
std::string exactPath(const std::string &path);

// Gives a file the read-only attribute, beside the archive attribute that a
// file just written has, or takes it away again.
void setReadOnly(const std::string &path, bool readOnly);

// Makes an entry at path whose one attribute is read-only.
void makeReadOnlyEntry(const std::string &path);

// Gives the system the language of a locale name ("ja_JP.SJIS", "de_DE",
// "C" for US English) for the object's life: on POSIX through the
// environment, where Windows fixes it for a process through faultEnv().
class SystemLocale {
public:
    explicit SystemLocale(const char *name);
    ~SystemLocale();
    SystemLocale(const SystemLocale &) = delete;
    SystemLocale &operator=(const SystemLocale &) = delete;

private:
    std::optional<std::string> saved_;
};

}  // namespace mergedb::test
