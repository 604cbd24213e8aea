// The platform layer's side of fault injection: each file call that a test
// can make fail asks here first.
#pragma once

#include "platform/fault_injection.h"
#include "platform/windows_api.h"

// True when an armed fault of this kind strikes now; the call then fails
// with the last error set.
bool platformFaultHits(mergedb::FaultKind kind);

// The byte count a write really does: count, or less when a short write is
// armed and strikes now.
DWORD platformShortWrite(DWORD count);
