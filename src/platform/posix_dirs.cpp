// Directory calls of the Windows kind on POSIX.
//
// A pattern is a path whose last component may hold "*" and "?". Without
// them the search finds that one path, directories included; with them it
// lists the matching entries of the directory in the directory's own order.
// "*.*" matches every name, as on Windows.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fnmatch.h>
#include <list>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "platform/posix_internal.h"

namespace {

struct FindSearch {
    DIR *directory;  // null for a search of one path, which is over at once
    std::string directoryPath;
    std::string pattern;
};

std::list<FindSearch> &searches() {
    static std::list<FindSearch> list;
    return list;
}

FindSearch *searchOf(HANDLE handle) {
    for (FindSearch &search : searches()) {
        if (&search == handle) return &search;
    }
    return nullptr;
}

DWORD attributesOf(const struct stat &info) {
    DWORD attributes = 0;
    if (S_ISDIR(info.st_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    if (S_ISREG(info.st_mode)) attributes |= FILE_ATTRIBUTE_ARCHIVE;
    if (isReadOnlyAttribute(info)) attributes |= FILE_ATTRIBUTE_READONLY;
    return attributes;
}

void fillFindData(const char *name, const struct stat &info, LPWIN32_FIND_DATAA data) {
    std::memset(data, 0, sizeof *data);
    data->dwFileAttributes = attributesOf(info);
    auto size = static_cast<uint64_t>(info.st_size);
    data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(size);
    std::strncpy(data->cFileName, name, MAX_PATH - 1);
}

bool hasWildcard(const std::string &text) { return text.find_first_of("*?") != std::string::npos; }

// Reads on in the search's directory to the next entry that matches.
bool nextMatch(FindSearch &search, LPWIN32_FIND_DATAA data) {
    while (dirent *entry = readdir(search.directory)) {
        if (fnmatch(search.pattern.c_str(), entry->d_name, 0) != 0) continue;
        std::string path = search.directoryPath + "/" + entry->d_name;
        struct stat info;
        if (stat(path.c_str(), &info) != 0 && lstat(path.c_str(), &info) != 0) continue;
        fillFindData(entry->d_name, info, data);
        return true;
    }
    return false;
}

// A path that ends in a separator names nothing, as on Windows; only the
// root itself, which stands for a drive's root, is found.
HANDLE findOnePath(std::string path, LPWIN32_FIND_DATAA data) {
    if (path.size() > 1 && path.back() == '/') {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        SetLastError(errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : posixToWindowsError(errno));
        return INVALID_HANDLE_VALUE;
    }
    size_t slash = path.find_last_of('/');
    fillFindData(path.c_str() + (slash == std::string::npos ? 0 : slash + 1), info, data);
    searches().push_back(FindSearch{nullptr, {}, {}});
    return &searches().back();
}

}  // namespace

HANDLE FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data) {
    if (pattern == nullptr || *pattern == '\0' || data == nullptr) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    std::string text(pattern);
    size_t slash = text.find_last_of('/');
    std::string last = slash == std::string::npos ? text : text.substr(slash + 1);
    if (!hasWildcard(last)) return findOnePath(text, data);
    std::string directoryPath = slash == std::string::npos ? "." : (slash == 0 ? "/" : text.substr(0, slash));
    DIR *directory = opendir(directoryPath.c_str());
    if (directory == nullptr) {
        SetLastError(errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : posixToWindowsError(errno));
        return INVALID_HANDLE_VALUE;
    }
    FindSearch search{directory, directoryPath, last == "*.*" ? "*" : last};
    if (!nextMatch(search, data)) {
        closedir(directory);
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    searches().push_back(search);
    return &searches().back();
}

BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) {
    FindSearch *search = searchOf(find);
    if (search == nullptr || data == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (search->directory == nullptr || !nextMatch(*search, data)) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    return TRUE;
}

BOOL FindClose(HANDLE find) {
    FindSearch *search = searchOf(find);
    if (search == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (search->directory != nullptr) closedir(search->directory);
    searches().remove_if([search](const FindSearch &entry) { return &entry == search; });
    return TRUE;
}

BOOL GetDiskFreeSpaceA(LPCSTR root, LPDWORD sectorsPerCluster, LPDWORD bytesPerSector, LPDWORD freeClusters,
                       LPDWORD totalClusters) {
    struct statvfs info;
    if (root == nullptr || statvfs(root, &info) != 0) {
        SetLastError(root == nullptr ? ERROR_PATH_NOT_FOUND : posixToWindowsError(errno));
        return FALSE;
    }
    // One sector of the fragment size per cluster; counts beyond 32 bits are cut.
    auto clamp = [](uint64_t value) { return static_cast<DWORD>(std::min<uint64_t>(value, UINT32_MAX)); };
    if (sectorsPerCluster != nullptr) *sectorsPerCluster = 1;
    if (bytesPerSector != nullptr) *bytesPerSector = clamp(info.f_frsize);
    if (freeClusters != nullptr) *freeClusters = clamp(info.f_bavail);
    if (totalClusters != nullptr) *totalClusters = clamp(info.f_blocks);
    return TRUE;
}
