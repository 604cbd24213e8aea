// Text calls of the Windows kind on POSIX: code page conversion and string
// resources.
//
// A resource module is a shared object that exports mergeStringTable; the
// module handle is what dlopen returned for it.
#include <cstring>
#include <dlfcn.h>

#include "mergedb/mergedb.h"
#include "platform/windows_api.h"

namespace {

#include "platform/posix_codepages.inc"

void convert(const unsigned char (&table)[256], LPCSTR source, LPSTR destination, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        destination[i] = static_cast<char>(table[static_cast<unsigned char>(source[i])]);
    }
}

BOOL convertString(const unsigned char (&table)[256], LPCSTR source, LPSTR destination) {
    if (source == nullptr || destination == nullptr) return FALSE;
    size_t length = std::strlen(source);
    convert(table, source, destination, length + 1);
    return TRUE;
}

}  // namespace

BOOL CharToOemA(LPCSTR source, LPSTR destination) { return convertString(ANSI_TO_OEM, source, destination); }

BOOL OemToCharA(LPCSTR source, LPSTR destination) { return convertString(OEM_TO_ANSI, source, destination); }

BOOL CharToOemBuffA(LPCSTR source, LPSTR destination, DWORD length) {
    if (source == nullptr || destination == nullptr) return FALSE;
    convert(ANSI_TO_OEM, source, destination, length);
    return TRUE;
}

// A text that the module lacks leaves an empty string, as on Windows.
// A text the module lacks gives 0 and leaves the buffer as it was.
int LoadStringA(HINSTANCE module, UINT id, LPSTR buffer, int size) {
    if (module == nullptr || buffer == nullptr || size <= 0) return 0;
    const auto *table = static_cast<const MergeStringEntry *>(dlsym(module, "mergeStringTable"));
    for (const MergeStringEntry *entry = table; entry != nullptr && entry->text != nullptr; ++entry) {
        if (entry->id != id) continue;
        size_t count = strnlen(entry->text, static_cast<size_t>(size - 1));
        std::memcpy(buffer, entry->text, count);
        buffer[count] = '\0';
        return static_cast<int>(count);
    }
    return 0;
}
