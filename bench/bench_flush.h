// The time the driver spends flushing files to the disk. This program's
// fsync stands in front of the C library's: the driver's calls reach it
// first, and it times the real one. A commit flushes its new file and its
// directory; the commit's figure without them is what its target is
// stated in.
#pragma once

namespace mergedb::bench {

// Seconds spent in fsync since the last reset.
double flushSeconds();
void flushReset();

}  // namespace mergedb::bench
