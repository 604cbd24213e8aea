// Test control of the platform layer: make the Nth call of a kind fail.
//
// Nothing is armed unless a test arms it, so the library behaves as usual.
#pragma once

#include <cstdint>

namespace mergedb {

enum class FaultKind { Open, Close, Read, Write, ShortWrite, Seek, Rename, Delete, Count };

// From now on, the nth call of kind (1 for the next one) fails. A ShortWrite
// fault makes the nth write put down only half of its bytes.
void faultArm(FaultKind kind, uint32_t nth);

// Disarms every fault and sets the call counters to 0.
void faultReset();

// Calls of a kind since the last faultReset.
uint32_t faultCalls(FaultKind kind);

}  // namespace mergedb
