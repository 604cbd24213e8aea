// Fault injection: call counters and armed faults, the same on every
// platform.
#include "platform/fault_points.h"

namespace {

struct FaultState {
    uint32_t calls[static_cast<int>(mergedb::FaultKind::Count)] = {};
    uint32_t armedAt[static_cast<int>(mergedb::FaultKind::Count)] = {};
};

FaultState faults;

// Counts a call of kind and tells whether an armed fault strikes it.
bool countAndCheck(mergedb::FaultKind kind) {
    auto index = static_cast<int>(kind);
    faults.calls[index]++;
    return faults.armedAt[index] != 0 && faults.calls[index] == faults.armedAt[index];
}

}  // namespace

bool platformFaultHits(mergedb::FaultKind kind) {
    if (!countAndCheck(kind)) return false;
    SetLastError(ERROR_IO_DEVICE);
    return true;
}

DWORD platformShortWrite(DWORD count) {
    return countAndCheck(mergedb::FaultKind::ShortWrite) ? count / 2 : count;
}

namespace mergedb {

void faultArm(FaultKind kind, uint32_t nth) {
    auto index = static_cast<int>(kind);
    faults.armedAt[index] = faults.calls[index] + nth;
}

void faultReset() { faults = FaultState{}; }

uint32_t faultCalls(FaultKind kind) { return faults.calls[static_cast<int>(kind)]; }

}  // namespace mergedb
