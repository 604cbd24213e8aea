// The walk over a database's directory for its tables (dbGetTableNamesMerge,
// directory.cpp), which the database holds open between the host's calls.
//
// Paths are byte strings that may hold double-byte characters of the
// system's language; every scan steps over a lead byte and its trail byte
// together, so that a trail byte equal to the separator is no separator.
#pragma once

#include "catalogue/database.h"

namespace mergedb {

// Closes the walk if one is open. Safe to call twice.
void dirFindClose(const Env &env, FindState &find);

}  // namespace mergedb
