// The test platform helpers on Windows: LoadLibraryA, file attributes and
// the language that the platform layer lets a test set.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "platform/windows_api.h"
#include "support/fault_env.h"
#include "support/test_platform.h"

namespace mergedb::test {

void *loadModule(const char *path) {
    HMODULE module = LoadLibraryA(path);
    if (module == nullptr) throw std::runtime_error("LoadLibraryA failed on " + std::string(path));
    return module;
}

void *moduleFunction(void *module, const char *name) {
    return reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(module), name));
}

std::string exactPath(const std::string &path) { return "\\\\?\\" + path; }

void setReadOnly(const std::string &path, bool readOnly) {
    DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return;
    attributes = readOnly ? attributes | FILE_ATTRIBUTE_READONLY : attributes & ~FILE_ATTRIBUTE_READONLY;
    SetFileAttributesA(path.c_str(), attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes);
}

void makeReadOnlyEntry(const std::string &path) {
    ::CloseHandle(::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
}

// Windows names the locale "ja-JP" where POSIX says "ja_JP.SJIS"; a name
// that Windows does not know counts as US English, as on POSIX.
SystemLocale::SystemLocale(const char *name) {
    std::string windowsName(name);
    windowsName = windowsName.substr(0, windowsName.find('.'));
    std::replace(windowsName.begin(), windowsName.end(), '_', '-');
    std::wstring wide(windowsName.begin(), windowsName.end());
    LCID locale = LocaleNameToLCID(wide.c_str(), 0);
    faultEnvLanguage(locale == 0 ? MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US) : LANGIDFROMLCID(locale));
}

SystemLocale::~SystemLocale() { faultEnvLanguage(0); }

}  // namespace mergedb::test
