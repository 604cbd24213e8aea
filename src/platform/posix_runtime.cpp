// Functions of the Windows runtime library on POSIX.
//
// Paths here use "/" as their only separator, and ":" is an ordinary
// character: there are no drives.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/windows_api.h"

namespace {

struct LocaleLanguage {
    std::string_view prefix;
    LANGID id;
};

// Locale name prefixes and their Windows language ids, the first match
// winning; Singapore has an id of its own, as on Windows. Other locales
// count as US English.
constexpr LocaleLanguage LOCALE_LANGUAGES[] = {
    {"ja", 0x0411}, {"ko", 0x0412}, {"zh_CN", 0x0804}, {"zh_SG", 0x1004}, {"zh", 0x0404},
};
constexpr LANGID US_ENGLISH = 0x0409;

// The locale that governs characters: the first of these that is set.
std::string_view characterLocale() {
    for (const char *variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return value;
    }
    return {};
}

// Copies [begin, end) into out, cut to its size, when out is given.
void copyPart(const char *begin, const char *end, char *out, size_t size) {
    if (out == nullptr) return;
    size_t length = static_cast<size_t>(end - begin);
    if (length >= size) length = size - 1;
    std::memcpy(out, begin, length);
    out[length] = '\0';
}

}  // namespace

void _splitpath(const char *path, char *drive, char *dir, char *fname, char *ext) {
    const char *end = path + std::strlen(path);
    const char *slash = std::strrchr(path, mergedb::PATH_SEPARATOR);
    const char *nameBegin = slash == nullptr ? path : slash + 1;
    const char *dot = std::strrchr(nameBegin, '.');
    const char *nameEnd = dot == nullptr ? end : dot;
    copyPart(path, path, drive, _MAX_DRIVE);
    copyPart(path, nameBegin, dir, _MAX_DIR);
    copyPart(nameBegin, nameEnd, fname, _MAX_FNAME);
    copyPart(nameEnd, end, ext, _MAX_EXT);
}

namespace {

// Letters fold to lower case in ASCII only, as in the "C" locale.
int foldCase(char c) {
    auto byte = static_cast<unsigned char>(c);
    return (byte >= 'A' && byte <= 'Z') ? byte + ('a' - 'A') : static_cast<int>(byte);
}

}  // namespace

int _stricmp(const char *a, const char *b) { return _strnicmp(a, b, SIZE_MAX); }

int _strnicmp(const char *a, const char *b, size_t count) {
    for (; count != 0; --count, ++a, ++b) {
        int difference = foldCase(*a) - foldCase(*b);
        if (difference != 0 || *a == '\0') return difference;
    }
    return 0;
}

namespace {

// Digits of value in radix 2 to 36, with a sign for radix 10 only, as the
// Windows runtime writes them.
char *integerToText(long long value, char *buffer, int radix) {
    if (radix < 2 || radix > 36) {
        buffer[0] = '\0';
        return buffer;
    }
    bool negative = radix == 10 && value < 0;
    auto magnitude = static_cast<unsigned long long>(value);
    if (negative) magnitude = 0 - magnitude;
    if (radix != 10) magnitude &= 0xFFFFFFFFull;
    char digits[72];
    int count = 0;
    do {
        digits[count++] = "0123456789abcdefghijklmnopqrstuvwxyz"[magnitude % radix];
        magnitude /= radix;
    } while (magnitude != 0);
    char *out = buffer;
    if (negative) *out++ = '-';
    while (count > 0) *out++ = digits[--count];
    *out = '\0';
    return buffer;
}

}  // namespace

char *_itoa(int value, char *buffer, int radix) { return integerToText(value, buffer, radix); }

char *_ltoa(long value, char *buffer, int radix) { return integerToText(static_cast<int32_t>(value), buffer, radix); }

char *_gcvt(double value, int digits, char *buffer) {
    std::snprintf(buffer, 64, "%.*g", digits, value);
    if (std::strpbrk(buffer, ".eEni") == nullptr) std::strcat(buffer, ".");
    return buffer;
}

LANGID GetSystemDefaultLangID() {
    std::string_view locale = characterLocale();
    for (const LocaleLanguage &language : LOCALE_LANGUAGES) {
        if (locale.starts_with(language.prefix)) return language.id;
    }
    return US_ENGLISH;
}

LONG mergedb::runtimeAtol(const char *text) {
    long long value = std::strtoll(text, nullptr, 10);
    return static_cast<LONG>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}
