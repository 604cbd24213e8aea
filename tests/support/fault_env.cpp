#include "support/fault_env.h"

namespace mergedb {
namespace {

struct FaultState {
    uint32_t calls[static_cast<int>(FaultKind::Count)] = {};
    uint32_t armedAt[static_cast<int>(FaultKind::Count)] = {};
};

FaultState faults;
uint16_t languageOverride = 0;

const Env &real() { return platformEnv(); }

// Counts a call of kind and tells whether an armed fault strikes it.
bool strikes(FaultKind kind) {
    auto index = static_cast<int>(kind);
    faults.calls[index]++;
    return faults.armedAt[index] != 0 && faults.calls[index] == faults.armedAt[index];
}

EnvFile *open(const char *path, OpenRequest request) {
    return strikes(FaultKind::Open) ? nullptr : real().open(path, request);
}

// A failed close has let go of the file all the same.
bool close(EnvFile *file) {
    bool closed = real().close(file);
    return !strikes(FaultKind::Close) && closed;
}

int64_t readAt(EnvFile *file, uint64_t offset, void *buffer, uint32_t count) {
    return strikes(FaultKind::Read) ? -1 : real().readAt(file, offset, buffer, count);
}

int64_t writeAt(EnvFile *file, uint64_t offset, const void *buffer, uint32_t count) {
    if (strikes(FaultKind::Write)) return -1;
    return real().writeAt(file, offset, buffer, strikes(FaultKind::ShortWrite) ? count / 2 : count);
}

bool size(EnvFile *file, uint64_t *bytes) { return !strikes(FaultKind::Size) && real().size(file, bytes); }

bool truncate(EnvFile *file, uint64_t bytes) {
    return !strikes(FaultKind::Truncate) && real().truncate(file, bytes);
}

bool sync(EnvFile *file) { return !strikes(FaultKind::Sync) && real().sync(file); }

bool rename(const char *from, const char *to) { return !strikes(FaultKind::Rename) && real().rename(from, to); }

bool remove(const char *path) { return !strikes(FaultKind::Delete) && real().remove(path); }

// Counts a close and a delete, in that order. A close that fails has let
// go of the file all the same, so only a failed delete changes what the
// caller is told.
bool closeAndRemove(EnvFile *file, const char *path) {
    strikes(FaultKind::Close);
    if (strikes(FaultKind::Delete)) {
        real().close(file);
        return false;
    }
    return real().closeAndRemove(file, path);
}

const Env FAULT_ENV = {
    .open = open,
    .close = close,
    .readAt = readAt,
    .writeAt = writeAt,
    .size = size,
    .truncate = truncate,
    .sync = sync,
    .copyOwnership = [](EnvFile *from, EnvFile *to) { return real().copyOwnership(from, to); },
    .rename = rename,
    .remove = remove,
    .closeAndRemove = closeAndRemove,
    .exists = [](const char *path) { return real().exists(path); },
    .walkFirst = [](const char *directory, DirEntry *entry) { return real().walkFirst(directory, entry); },
    .walkNext = [](EnvWalk *walk, DirEntry *entry) { return real().walkNext(walk, entry); },
    .walkClose = [](EnvWalk *walk) { real().walkClose(walk); },
    .lockDirectory = [](const char *path) { return real().lockDirectory(path); },
    .unlockDirectory = [](EnvLock *lock) { real().unlockDirectory(lock); },
    .syncDirectory = [](const char *path) { return !strikes(FaultKind::Sync) && real().syncDirectory(path); },
    .systemLanguage = [] { return languageOverride != 0 ? languageOverride : real().systemLanguage(); },
};

}  // namespace

void faultArm(FaultKind kind, uint32_t nth) {
    auto index = static_cast<int>(kind);
    faults.armedAt[index] = faults.calls[index] + nth;
}

void faultReset() { faults = FaultState{}; }

uint32_t faultCalls(FaultKind kind) { return faults.calls[static_cast<int>(kind)]; }

const Env &faultEnv() { return FAULT_ENV; }

void faultEnvLanguage(uint16_t language) { languageOverride = language; }

}  // namespace mergedb
