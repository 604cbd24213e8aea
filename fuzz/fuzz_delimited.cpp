// Opens the rest of the input as delimited text with the four strings and
// the options taken from its front, and walks it forward and backward,
// reading every field of every record in every type.
#include "fuzz_support.h"

using namespace mergedb::fuzz;

namespace {

// One more than each string's limit, so that the open also meets strings
// it refuses.
constexpr size_t DELIMITER_TRIAL = 21;
constexpr size_t QUOTE_TRIAL = 5;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Reader input(data, size);
    std::string fieldDelimiter = input.text(DELIMITER_TRIAL);
    std::string recordDelimiter = input.text(DELIMITER_TRIAL);
    std::string quote = input.text(QUOTE_TRIAL);
    std::string ignore = input.text(DELIMITER_TRIAL);
    uint8_t options = input.byte();
    Bytes file = input.rest();
    writeFile("t.txt", file);
    uint32_t table = 0;
    DbResult opened =
        dbOpenTableMerge(DB_SUBTYPE_DELIMITED, scratchDatabase(DB_SUBTYPE_DELIMITED), "t.txt", options & 1,
                         options & 2, &table, fieldDelimiter.c_str(), recordDelimiter.c_str(), quote.c_str(),
                         ignore.c_str(), 0);
    if (opened == DB_RESULT_OK) {
        if (options & 4) FUZZ_CHECK(dbSetTableOptionMerge(table, 1) == DB_RESULT_OK);
        auto length = static_cast<uint32_t>(file.size());
        walkTable(table, length, {0, length / 3, length / 2, length - 1, length});
        FUZZ_CHECK(dbCloseTableMerge(&table) == DB_RESULT_OK && table == 0);
    } else {
        FUZZ_CHECK(DB_RESULT_IS_ERROR(opened) && table == 0);
    }
    removeFile("t.txt");
    return 0;
}
