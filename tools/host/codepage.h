// Text between UTF-8, which the host shows and takes, and the encodings of
// tables: UTF-8 itself, Windows-1252, and code page 437, the page of every
// text that crosses the driver's interface. Bytes below 128 are ASCII in all
// three.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mergedb::host {

enum class Encoding : uint8_t { Utf8, Cp1252, Cp437 };

// "UTF-8", "Windows-1252", "code page 437".
std::string_view encodingName(Encoding encoding);
// The name an option takes: "utf8", "cp1252", "cp437".
std::string_view encodingOption(Encoding encoding);
// An encoding by its option or its name, in any case: utf8 or UTF-8, cp1252
// or Windows-1252, cp437; nothing for another name.
std::optional<Encoding> encodingNamed(std::string_view name);

void appendUtf8(std::string &out, char32_t character);
// The character that starts at position, which moves behind it. A byte that
// starts no valid character gives nothing and is passed over alone.
std::optional<char32_t> nextUtf8(std::string_view text, size_t &position);
bool isUtf8(std::string_view text);

// The byte of a character in one of the two single-byte pages.
std::optional<unsigned char> pageByte(char32_t character, Encoding page);

// Text of a table in its encoding, as UTF-8. In UTF-8 every byte that starts
// no valid character becomes U+FFFD.
std::string toUtf8(std::string_view bytes, Encoding encoding);

// What a table can store: the characters of its encoding, and for a tagged
// document, which the driver writes in printable ASCII only, no more.
struct TextTarget {
    Encoding encoding = Encoding::Utf8;
    bool printableAsciiOnly = false;
};

struct Encoded {
    std::string bytes;
    std::string problem;  // empty when every character went in
    bool lossyHelps = false;  // the problem is a character the target lacks
};

// UTF-8 text in the target's encoding. The first character that the target
// can't hold is named in problem, unless lossy, which puts one '?' for each.
Encoded fromUtf8(std::string_view utf8, TextTarget target, bool lossy);

// "'é' (U+00E9)".
std::string describeCharacter(char32_t character);

}  // namespace mergedb::host
