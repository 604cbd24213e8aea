// Writing into the buffers that a host hands to the exports, which need
// not be aligned for the values stored there.
#pragma once

#include <cstddef>
#include <cstring>

namespace mergedb {

// Stores value at slot (counted in values of its type) of the host's area.
template <typename T>
void storeToHost(void *out, const T &value, size_t slot = 0) {
    std::memcpy(static_cast<char *>(out) + slot * sizeof value, &value, sizeof value);
}

}  // namespace mergedb
