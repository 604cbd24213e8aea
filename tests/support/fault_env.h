// An Env in front of the platform's that makes the nth call of a kind fail,
// for the tests of what a failure leaves behind. test::openDatabase puts it
// under every database of the tests; nothing fails until a test arms it.
#pragma once

#include <cstdint>

#include "platform/env.h"

namespace mergedb {

enum class FaultKind { Open, Close, Read, Write, ShortWrite, Size, Truncate, Sync, Rename, Delete, Count };

// From now on, the nth call of kind (1 for the next one) fails. A ShortWrite
// fault makes the nth write put down only half of its bytes.
void faultArm(FaultKind kind, uint32_t nth);

// Disarms every fault and sets the call counters to 0.
void faultReset();

// Calls of a kind since the last faultReset.
uint32_t faultCalls(FaultKind kind);

// The system's language that the Env reports from now on; 0 gives back the
// platform's.
void faultEnvLanguage(uint16_t language);

const Env &faultEnv();

}  // namespace mergedb
