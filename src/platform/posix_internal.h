// What the POSIX files of the platform layer share among themselves.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mergedb::posix {

// A path of the ANSI page as the disk has it: UTF-8.
std::string ansiToUtf8(std::string_view ansi);

// A name from the disk in the ANSI page, cut to fit size bytes with its
// end. A character the page lacks, and a byte that is no UTF-8, become "?".
void utf8ToAnsi(std::string_view utf8, char *out, size_t size);

// Closes fd on a thread of its own where one can start, at once otherwise:
// for the last descriptor of a deleted file, whose close may wait for the
// disk. Returns before the close where a thread took it.
void closeLater(int fd);

// Returns once the close that closeLater last left to a thread is done,
// and the room of its file has come back.
void waitForLateCloses();

}  // namespace mergedb::posix
