// Tagged text, the NUL-ended token strings of a tagged document, and its
// conversion to OEM bytes.
//
// Bound: every walk reads only within its source span; a text ends at its
// NUL, at the span's end, or at a token that has no length or crosses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>


namespace mergedb {

// Bytes of the text up to its end, each token at its whole length; 16 bits.
uint16_t textLength(std::span<const char> text);

// Copies the text's whole tokens while they fit in dst.size() - 1 bytes,
// then a NUL. Writes nothing into an empty dst.
void textCopy(std::span<char> dst, std::span<const char> src);

// OEM text of src in dst: printable characters as they are, extended
// characters through mapCharacter of their set and number, all else dropped.
// Writes at most dst.size() - 1 bytes and a NUL.
void textToOem(std::span<const char> src, std::span<char> dst);

// As textToOem, but an extended character is looked up by its number alone,
// as if of set 0, and a fixed token first in src counts as one.
void textToOemRaw(std::span<const char> src, std::span<char> dst);

// A value's tagged text for the host: at most limit bytes of OEM text and
// a NUL in buffer. Gives the length.
uint16_t taggedTextToHost(std::span<const char> value, char *buffer, size_t limit, bool ansi);

// The host's OEM text as tagged text in block: its plain characters (the
// text is read no further than the block's capacity - 1).
void taggedTextFromHost(const char *text, std::span<char> block, bool ansi);

}  // namespace mergedb
