#include "fields/discovery.h"

#include "edits/change_list.h"
#include "mergedb/mergedb.h"
#include "records/record_scanner.h"

namespace mergedb {

uint16_t discoverFields(MergeTable &table) {
    switch (table.kind) {
    case DB_KIND_DELIMITED: return discoverDelimitedFields(table);
    case DB_KIND_TAGGED_0:
    case DB_KIND_TAGGED_1: return discoverTaggedFields(table);
    default: return ERR_FORMAT;
    }
}

uint16_t readFirstRecord(MergeTable &table) {
    table.current = nodeAlloc();
    if (table.current == 0) return ERR_MEMORY;
    return readRecord(table);
}

}  // namespace mergedb
