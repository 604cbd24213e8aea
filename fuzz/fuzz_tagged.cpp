// Opens the input as a tagged document and walks it forward and backward,
// reading every field of every record in every type.
#include "fuzz_support.h"

using namespace mergedb::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Bytes file(data, data + size);
    writeFile("t.doc", file);
    uint32_t table = 0;
    DbResult opened = dbOpenTableMerge(DB_SUBTYPE_TAGGED, scratchDatabase(DB_SUBTYPE_TAGGED), "t.doc", 1, 0, &table,
                                       nullptr, nullptr, nullptr, nullptr, 0);
    if (opened == DB_RESULT_OK) {
        auto length = static_cast<uint32_t>(size);
        walkTable(table, length, {0, length / 3, length / 2, length - 1, length});
        FUZZ_CHECK(dbCloseTableMerge(&table) == DB_RESULT_OK && table == 0);
    } else {
        FUZZ_CHECK(DB_RESULT_IS_ERROR(opened) && table == 0);
    }
    removeFile("t.doc");
    return 0;
}
