// The exports for queries, indexes and transactions: the driver has none of
// them, so each gives the same answer whatever it is asked.
#include "frame/result.h"

using namespace mergedb;

namespace {
constexpr DbResult UNSUPPORTED = makeResult(SEVERITY_ERROR, ERR_UNSUPPORTED);
}

extern "C" {

DbResult MERGEDB_CALL dbAppendQueryMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbCreateDBMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbCreateIndexMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbEndQueryMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbExecDirectQueryMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbExecQueryMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbFetchQueryMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbGetColumnInfoMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbGetColumnNamesMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbGetIndexInfoMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbGetQueryColMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbGetQueryInfoMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbQueryValueMerge() { return UNSUPPORTED; }
DbResult MERGEDB_CALL dbStartQueryMerge() { return UNSUPPORTED; }

DbResult MERGEDB_CALL dbGetDBNamesMerge() { return END_OF_DATA; }
DbResult MERGEDB_CALL dbGetIndexNamesMerge() { return END_OF_DATA; }

DbResult MERGEDB_CALL dbCommitMerge() { return DB_RESULT_OK; }
DbResult MERGEDB_CALL dbRollbackMerge() { return DB_RESULT_OK; }
DbResult MERGEDB_CALL dbStartTransMerge() { return DB_RESULT_OK; }
DbResult MERGEDB_CALL dbSwitchToIndexMerge() { return DB_RESULT_OK; }

}
