// Text calls of the Windows kind on POSIX: code page conversion and string
// resources; and the conversion of file names between the ANSI page and the
// UTF-8 of the disk.
//
// A resource module is a shared object that exports mergeStringTable; the
// module handle is what dlopen returned for it.
#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <iterator>
#include <optional>

#include "mergedb/mergedb.h"
#include "platform/posix_internal.h"
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

namespace mergedb::posix {
namespace {

void appendUtf8(std::string &out, char32_t character) {
    auto put = [&out](char32_t value) { out.push_back(static_cast<char>(value)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | (character >> 6));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xE0 | (character >> 12));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

// The character of a UTF-8 sequence at position, which moves behind it; a
// byte that begins no whole, valid sequence gives nothing and moves by one.
// An overlong form ("\xC0\x80" for U+0000), a surrogate and a character past
// the last plane are no valid sequence.
std::optional<char32_t> nextCharacter(std::string_view text, size_t &position) {
    auto lead = static_cast<unsigned char>(text[position++]);
    if (lead < 0x80) return lead;
    size_t trailing = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    if (trailing == 0 || lead > 0xF4 || position + trailing > text.size()) return std::nullopt;
    char32_t character = lead & (0x3F >> trailing);
    for (size_t i = 0; i < trailing; ++i) {
        auto next = static_cast<unsigned char>(text[position + i]);
        if ((next & 0xC0) != 0x80) return std::nullopt;
        character = (character << 6) | (next & 0x3F);
    }
    constexpr char32_t SMALLEST[4] = {0, 0x80, 0x800, 0x10000};
    if (character < SMALLEST[trailing] || (character >= 0xD800 && character < 0xE000) || character > 0x10FFFF) {
        return std::nullopt;
    }
    position += trailing;
    return character;
}

char ansiByte(std::optional<char32_t> character) {
    if (!character) return '?';
    if (*character < 0x80) return static_cast<char>(*character);
    const char16_t *found = std::find(std::begin(ANSI_UPPER_HALF), std::end(ANSI_UPPER_HALF), *character);
    return found == std::end(ANSI_UPPER_HALF) ? '?' : static_cast<char>(0x80 + (found - ANSI_UPPER_HALF));
}

}  // namespace

std::string ansiToUtf8(std::string_view ansi) {
    std::string out;
    out.reserve(ansi.size());
    for (char byte : ansi) {
        auto value = static_cast<unsigned char>(byte);
        appendUtf8(out, value < 0x80 ? char32_t{value} : char32_t{ANSI_UPPER_HALF[value - 0x80]});
    }
    return out;
}

void utf8ToAnsi(std::string_view utf8, char *out, size_t size) {
    size_t written = 0;
    for (size_t position = 0; position < utf8.size() && written + 1 < size;) {
        out[written++] = ansiByte(nextCharacter(utf8, position));
    }
    out[written] = '\0';
}

}  // namespace mergedb::posix
