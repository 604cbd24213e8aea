// The Windows file calls behind the fault points of the tests. Each wrapper
// asks first and otherwise makes the real call, so nothing changes unless a
// test armed a fault.
#include "platform/fault_points.h"

namespace mergedb {

HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile) {
    if (platformFaultHits(FaultKind::Open)) return INVALID_HANDLE_VALUE;
    return ::CreateFileA(path, access, shareMode, security, disposition, attributes, templateFile);
}

// A failed close has still closed the handle, as on POSIX.
BOOL CloseHandle(HANDLE handle) {
    if (!platformFaultHits(FaultKind::Close)) return ::CloseHandle(handle);
    ::CloseHandle(handle);
    SetLastError(ERROR_IO_DEVICE);
    return FALSE;
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD got, LPOVERLAPPED overlapped) {
    *got = 0;
    if (platformFaultHits(FaultKind::Read)) return FALSE;
    return ::ReadFile(handle, buffer, count, got, overlapped);
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD count, LPDWORD written, LPOVERLAPPED overlapped) {
    *written = 0;
    if (platformFaultHits(FaultKind::Write)) return FALSE;
    return ::WriteFile(handle, buffer, platformShortWrite(count), written, overlapped);
}

DWORD SetFilePointer(HANDLE handle, LONG distance, PLONG distanceHigh, DWORD method) {
    if (platformFaultHits(FaultKind::Seek)) return INVALID_SET_FILE_POINTER;
    return ::SetFilePointer(handle, distance, distanceHigh, method);
}

BOOL MoveFileA(LPCSTR from, LPCSTR to) {
    if (platformFaultHits(FaultKind::Rename)) return FALSE;
    return ::MoveFileA(from, to);
}

BOOL DeleteFileA(LPCSTR path) {
    if (platformFaultHits(FaultKind::Delete)) return FALSE;
    return ::DeleteFileA(path);
}

}  // namespace mergedb
