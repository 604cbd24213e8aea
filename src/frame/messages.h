// The resource module and the texts the library loads from it.
#pragma once

#include <cstdint>

#include "platform/windows_api.h"

namespace mergedb {

// Buffer sizes of the texts, terminator included.
inline constexpr int MESSAGE_BUFFER_SIZE = 81;
inline constexpr int SUBTYPE_NAME_SIZE = 30;
inline constexpr int TYPE_NAME_SIZE = 31;
inline constexpr int KIND_NAME_SIZE = 256;

// Loads text id into a local buffer of bufferSize bytes and converts it to
// the OEM page into out. Gives the count that LoadStringA gave; out is left
// alone when the text is missing.
int loadOemText(UINT id, int bufferSize, char *out);

}  // namespace mergedb
