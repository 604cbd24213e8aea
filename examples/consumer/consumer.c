/* A program that builds on an installed mergedb: it lists the tables of a
 * directory with the fields of each, through the public header alone.
 *
 *   consumer MESSAGE_MODULE DIRECTORY
 */
#include <dlfcn.h>
#include <stdio.h>

#include <mergedb/mergedb.h>

/* A tagged document when its header says so, delimited text (comma, CR LF,
 * double quote) otherwise. */
static DbResult openTable(uint32_t database, const char *name, uint32_t *table) {
    DbResult result = dbOpenTableMerge(DB_SUBTYPE_TAGGED, database, name, DB_ACCESS_READ_ONLY, DB_SHARED_FOR_READING,
                                       table, NULL, NULL, NULL, NULL, 0);
    if (result != DB_RESULT_ERROR(ERR_WRONG_FILE)) return result;
    return dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database, name, DB_ACCESS_READ_ONLY, DB_SHARED_FOR_READING, table,
                            ",", "\r\n", "\"", "", 0);
}

static void listFields(uint32_t database, const char *name) {
    uint32_t table = 0;
    DbResult opened = openTable(database, name, &table);
    if (opened != DB_RESULT_OK) {
        char text[81] = "";
        dbErrMsgMerge(opened, text);
        printf("%s: %s\n", name, text);
        return;
    }
    char field[40];
    uint16_t index = 0;
    printf("%s:", name);
    for (uint16_t mode = DB_WALK_FIRST; dbGetFieldNamesMerge(table, field, &index, mode) == DB_RESULT_OK;
         mode = DB_WALK_NEXT) {
        printf(" %s", field);
    }
    printf("\n");
    dbCloseTableMerge(&table);
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: consumer MESSAGE_MODULE DIRECTORY\n");
        return 2;
    }
    uint32_t session = 0;
    uint32_t database = 0;
    dbInitMerge(1, 0, 0, 0, &session, dlopen(argv[1], RTLD_NOW));
    if (dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, argv[2], &database) != DB_RESULT_OK) {
        fprintf(stderr, "consumer: %s is no database directory\n", argv[2]);
        return 1;
    }
    char name[256];
    for (uint16_t mode = DB_WALK_FIRST; dbGetTableNamesMerge(database, name, mode) == DB_RESULT_OK;
         mode = DB_WALK_NEXT) {
        listFields(database, name);
    }
    dbCloseDBMerge(&database);
    dbExitMerge(&session);
    return 0;
}
