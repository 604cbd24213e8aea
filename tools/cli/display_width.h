// How many columns of a terminal a text takes: most characters one, the
// combining marks and invisible format characters none, the wide
// characters of East Asian scripts (and emoji) two. A small table of our
// own of the main blocks, the same whatever the locale; a byte of no valid
// UTF-8 takes one column.
#pragma once

#include <cstddef>
#include <string_view>

namespace mergedb::cli {

size_t displayWidth(std::string_view utf8);

}  // namespace mergedb::cli
