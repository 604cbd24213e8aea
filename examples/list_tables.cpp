// A small host: opens a database directory through the driver and lists its
// tables with their kind and fields.
//
//   list_tables [DIRECTORY]     (default: the bundled sample database)
#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "mergedb/mergedb.h"

namespace {

// Tagged documents first; a file that is none is read as delimited text.
DbResult openTable(uint32_t database, const std::string &name, uint32_t *table) {
    DbResult result = dbOpenTableMerge(DB_SUBTYPE_TAGGED, database, name.c_str(), 1, 0, table, nullptr, nullptr,
                                       nullptr, nullptr, 0);
    if (result != DB_RESULT_ERROR(ERR_WRONG_FILE)) return result;
    return dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database, name.c_str(), 1, 0, table, ",", "\r\n", "\"", "", 0);
}

void printTable(uint32_t database, const std::string &name) {
    uint32_t table = 0;
    DbResult result = openTable(database, name, &table);
    if (result != DB_RESULT_OK) {
        char message[81] = "";
        dbErrMsgMerge(result, message);
        std::printf("%-20s not a table: %s\n", name.c_str(), message);
        return;
    }
    uint16_t kind = 0;
    uint16_t count = 0;
    dbGetTableInfoMerge(table, &kind, 1);
    dbGetTableInfoMerge(table, &count, 2);
    std::printf("%-20s kind %u, %u fields:", name.c_str(), kind, count);
    char field[64];
    uint16_t index = 0;
    for (uint16_t mode = 1; dbGetFieldNamesMerge(table, field, &index, mode) == DB_RESULT_OK; mode = 0) {
        std::printf(" %s", field);
    }
    std::printf("\n");
    dbCloseTableMerge(&table);
}

}  // namespace

int main(int argc, char **argv) {
    std::string directory = argc > 1 ? argv[1] : MERGEDB_SAMPLE_DIR;
    void *messages = dlopen(MERGEDB_MESSAGES_MODULE, RTLD_NOW);
    uint32_t session = 0;
    dbInitMerge(1, 0, 0, 0, &session, messages);
    uint32_t database = 0;
    if (dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, directory.c_str(), &database) != DB_RESULT_OK) {
        std::fprintf(stderr, "list_tables: no database at %s\n", directory.c_str());
        return 1;
    }
    std::printf("Tables in %s:\n", directory.c_str());
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        if (entry.is_regular_file()) printTable(database, entry.path().filename().string());
    }
    dbCloseDBMerge(&database);
    dbExitMerge(&session);
    return 0;
}
