// The test platform helpers on POSIX: dlopen, permission bits and LC_ALL.
#include <dlfcn.h>
#include <stdexcept>
#include <stdlib.h>
#include <sys/stat.h>

#include "support/test_platform.h"

namespace mergedb::test {

void *loadModule(const char *path) {
    void *module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) throw std::runtime_error(dlerror());
    return module;
}

std::string exactPath(const std::string &path) { return path; }

void *moduleFunction(void *module, const char *name) { return dlsym(module, name); }

// No write bit at all is the platform layer's read-only attribute.
void setReadOnly(const std::string &path, bool readOnly) { chmod(path.c_str(), readOnly ? 0444 : 0644); }

// A pipe is no regular file, so it lacks the archive attribute.
void makeReadOnlyEntry(const std::string &path) { mkfifo(path.c_str(), 0444); }

// The platform layer takes the system's language from LC_ALL first.
SystemLocale::SystemLocale(const char *name) {
    if (const char *old = getenv("LC_ALL")) saved_ = old;
    setenv("LC_ALL", name, 1);
}

SystemLocale::~SystemLocale() { saved_ ? setenv("LC_ALL", saved_->c_str(), 1) : unsetenv("LC_ALL"); }

}  // namespace mergedb::test
