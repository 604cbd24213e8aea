// The last-error word and the mapping of errno onto Windows error numbers.
#include <cerrno>

#include "platform/posix_internal.h"

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD error) { lastError = error; }

DWORD posixToWindowsError(int error) {
    switch (error) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR: return ERROR_ACCESS_DENIED;
    case EBADF: return ERROR_INVALID_HANDLE;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EBUSY: return ERROR_CURRENT_DIRECTORY;
    case EXDEV: return ERROR_NOT_SAME_DEVICE;
    case ESPIPE: return ERROR_SEEK;
    case EEXIST: return ERROR_ALREADY_EXISTS;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT: return ERROR_DISK_FULL;
    case EFBIG: return ERROR_HANDLE_DISK_FULL;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
    case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case EIO: return ERROR_IO_DEVICE;
    default: return ERROR_INVALID_FUNCTION;
    }
}

bool isReadOnlyAttribute(const struct stat &info) {
    return (info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}
