// SQLite's interface as a loadable extension sees it: every call goes
// through the table of routines that SQLite hands to the extension's entry
// point (extension.cpp), also where the tool links the module in.
#pragma once

#include <sqlite3ext.h>

SQLITE_EXTENSION_INIT3
