// Shared pieces of the POSIX stand-in for the Windows calls.
#pragma once

#include <sys/stat.h>

#include "platform/fault_injection.h"
#include "platform/windows_api.h"

// The Windows error number for an errno value.
DWORD posixToWindowsError(int error);

// A file with no write permission bit at all stands for a file with the
// read-only attribute (root could write it, but Windows would refuse).
bool isReadOnlyAttribute(const struct stat &info);

// True when an armed fault of this kind strikes now; the call then fails
// with the last error set.
bool platformFaultHits(mergedb::FaultKind kind);

// The byte count a write really does: count, or less when a short write is
// armed and strikes now.
DWORD platformShortWrite(DWORD count);
