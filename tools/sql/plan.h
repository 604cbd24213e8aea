// How a query reaches a table's records, chosen for SQLite's planner
// (xBestIndex) and carried to xFilter in the plan's number and text. The
// text is what EXPLAIN QUERY PLAN shows:
//   - "rowid jump (dbGetRecordMerge)" for rowid = ?, one record;
//   - "walk back from the last record (dbLastMerge, dbPrevMerge)" for
//     ORDER BY rowid DESC, which the walk gives in that order;
//   - "find by example (dbFindRecordMerge): City LIKE ?, Name = ? [2~0=]"
//     for = on a field, and LIKE or GLOB with a fixed start. The driver's
//     match is looser (it ignores case and takes a '*' as the end of a
//     prefix), so SQLite still checks each record it gives. The bracket
//     holds the fields and operators in the order of the arguments.
//   - "walk forward (dbFirstMerge, dbNextMerge), checked against the file"
//     otherwise, in rowid order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scans.h"
#include "source.h"
#include "sqlite_api.h"

namespace mergedb::sql {

enum class Way : int { Forward = 1, Jump = 2, Backward = 3, Find = 4 };

// Fills in the plan of a table of these columns for the constraints and
// order that SQLite offers; estimatedRecords sizes the costs.
void choosePlan(sqlite3_index_info *info, const std::vector<std::string> &columns, double estimatedRecords);

// The example of a find plan, from its text and the values that SQLite
// binds to its arguments: each as the table stores it, cut to the part
// that the driver can match as loosely as SQLite's operator or more.
std::vector<Criterion> exampleOf(const std::string &planText, int argc, sqlite3_value **argv, const Source &source);

}  // namespace mergedb::sql
