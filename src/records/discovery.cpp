#include "records/discovery.h"

#include "mergedb/mergedb.h"
#include "records/record.h"
#include "records/record_scanner.h"

namespace mergedb {

uint16_t readFirstRecord(MergeTable &table) {
    table.current = nodeAlloc();
    if (table.current == 0) return ERR_MEMORY;
    return readRecord(table);
}

}  // namespace mergedb
