// What the commands that change a table share: the checks before an edit,
// the report of what was done, and a walk by record numbers.
#pragma once

#include <cstddef>
#include <string>

#include "arguments.h"
#include "checked_walk.h"
#include "open_table.h"

namespace mergedb::cli {

// "updated 2 records" on stdout, with how, if given, behind it.
void report(const std::string &done, size_t count, const std::string &how = "");

// An edit reads the table whole before it changes a byte of it.
void requireWholeForEdit(const std::string &label, const host::CheckedWalk &walk);

// An example that fits every record of a table of several is more often a
// mistake than a wish: it needs --all.
void requireChoice(const Invocation &invocation, const std::string &label, size_t fitting, size_t records);

// "record 5 at byte 1234" for the current record of a walk.
std::string whereText(const host::CheckedWalk &walk);

// Runs through the table's records in the driver's order, calling visit
// with each data record's number; the header record is none.
template <typename Visit>
void walkNumbers(OpenTable &open, Visit visit) {
    size_t number = open.format.headerRecord() ? 0 : 1;
    bool skipFirst = number == 0;
    for (host::Moved moved = open.table.first(); moved != host::Moved::End; moved = open.table.next()) {
        if (skipFirst) {
            skipFirst = false;
            ++number;
            continue;
        }
        visit(number++);
    }
}

}  // namespace mergedb::cli
