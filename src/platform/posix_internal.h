// Shared pieces of the POSIX stand-in for the Windows calls.
#pragma once

#include <sys/stat.h>

#include "platform/fault_points.h"
#include "platform/windows_api.h"

// The Windows error number for an errno value.
DWORD posixToWindowsError(int error);

// A file with no write permission bit at all stands for a file with the
// read-only attribute (root could write it, but Windows would refuse).
bool isReadOnlyAttribute(const struct stat &info);

