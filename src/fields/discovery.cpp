#include "fields/discovery.h"

#include "mergedb/mergedb.h"

namespace mergedb {

// The tables open with no fields until the readers of records are built.
uint16_t discoverFields(MergeTable &table) {
    switch (table.kind) {
    case DB_KIND_DELIMITED:
    case DB_KIND_TAGGED_0:
    case DB_KIND_TAGGED_1: return 0;
    default: return ERR_FORMAT;
    }
}

}  // namespace mergedb
