// Conversion between code page 437, the page of every text that crosses the
// driver's interface, and UTF-8 for the terminal.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool {

// The Unicode character of a byte of code page 437; bytes below 128 are ASCII.
char32_t oemCharacter(unsigned char byte);

void appendUtf8(std::string &out, char32_t character);

std::string oemToUtf8(std::string_view oem);

// Nothing when the text is no valid UTF-8 or holds a character that code
// page 437 lacks.
std::optional<std::string> utf8ToOem(std::string_view utf8);

}  // namespace tool
