/*
 * mergedb: a database driver that presents tagged word-processor documents
 * and delimited text files as tables to a host's database access layer.
 *
 * The host loads the library and calls the 61 functions declared here. Every
 * function but dbErrMsgMerge returns a DbResult: 0 for success,
 * DB_RESULT_ERROR(code) for an error, DB_RESULT_END_OF_DATA when a walk
 * ended or a search found nothing. Strings that cross this interface are in
 * the OEM code page (437).
 */
#ifndef MERGEDB_MERGEDB_H
#define MERGEDB_MERGEDB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#  if defined(MERGEDB_BUILDING)
#    define MERGEDB_API __declspec(dllexport)
#  else
#    define MERGEDB_API __declspec(dllimport)
#  endif
#  define MERGEDB_CALL __stdcall
#else
#  if defined(MERGEDB_BUILDING)
#    define MERGEDB_API __attribute__((visibility("default")))
#  else
#    define MERGEDB_API
#  endif
#  define MERGEDB_CALL
#endif

typedef uint32_t DbResult;

/* Result shapes. */
#define DB_RESULT_OK 0u
#define DB_RESULT_END_OF_DATA 0x03FF0000u
#define DB_RESULT_ERROR_BASE 0x03FE0000u
#define DB_RESULT_ERROR(code) (DB_RESULT_ERROR_BASE | ((uint32_t)(code) & 0xFFFFu))
#define DB_RESULT_IS_ERROR(result) (((result) & 0xFFFF0000u) == DB_RESULT_ERROR_BASE)
#define DB_RESULT_CODE(result) ((uint16_t)((result) & 0xFFFFu))

/* Driver error codes, the low 16 bits of an error result. */
enum DbErrorCode {
    ERR_END_OF_FILE = 1,
    ERR_READ = 2,
    ERR_WRITE = 3,
    ERR_OPEN = 4,
    ERR_DELETE = 5,
    ERR_MEMORY = 6,
    ERR_START_OF_FILE = 8,
    ERR_FORMAT = 9,
    ERR_SEEK = 10,
    ERR_UNSUPPORTED = 11,
    ERR_NO_MORE_NAMES = 13,
    ERR_RENAME = 14,
    ERR_NO_FIELD = 15,
    ERR_CLOSE = 16,
    ERR_NOT_BOUND = 17,
    ERR_CREATE = 18,
    ERR_WRONG_FILE = 19,
    ERR_NO_FIELDS = 20,
    ERR_TOO_MANY_FIELDS = 21,
    ERR_BAD_PATH = 22,
    ERR_RECORD_TOO_LONG = 23,
    ERR_LIST_END = 50,
    ERR_GENERAL = 100
};

/* Database subtypes and table kinds. */
enum DbSubtype { DB_SUBTYPE_TAGGED = 3, DB_SUBTYPE_DELIMITED = 4 };
enum DbTableKind { DB_KIND_DELIMITED = 41, DB_KIND_TAGGED_0 = 43, DB_KIND_TAGGED_1 = 44 };

/* Value types of dbGetFieldValueMerge and dbPutFieldValueMerge. */
enum DbValueType {
    DB_TYPE_TEXT = 1,
    DB_TYPE_INT16 = 2,
    DB_TYPE_INT32 = 3,
    DB_TYPE_FLOAT = 4,
    DB_TYPE_DOUBLE = 5,
    DB_TYPE_DATE = 6,
    DB_TYPE_TIME = 7,
    DB_TYPE_TEXT_8 = 8,
    DB_TYPE_LONG_TEXT = 9,
    DB_TYPE_TEXT_10 = 10,
    DB_TYPE_LOGICAL = 12,
    DB_TYPE_DATE_TIME = 14,
    DB_TYPE_TEXT_15 = 15
};

/* The mode of a walk: dbGetFieldNamesMerge, dbGetTableNamesMerge,
 * dbGetDBSubTypesMerge and dbGetTypeNamesMerge start with DB_WALK_FIRST and go
 * on with any other value; dbFindRecordMerge starts a search the same way. */
#define DB_WALK_FIRST 1
#define DB_WALK_NEXT 0

/* The access and exclusive arguments of dbOpenTableMerge. A table opened
 * read only is shared with everyone, whatever exclusive says. */
#define DB_ACCESS_READ_ONLY 1
#define DB_ACCESS_READ_WRITE 0
#define DB_SHARED_FOR_READING 0
#define DB_EXCLUSIVE 1

/* The blank rule of dbFindRecordMerge: with DB_BLANK_MUST_BE_EMPTY a field
 * that a put of length 0 left blank in the example fits only empty values. */
#define DB_BLANK_MATCHES_ANY 0
#define DB_BLANK_MUST_BE_EMPTY 1

/* Items of dbGetFieldInfoMerge and dbGetFieldInfoHMerge. */
enum DbFieldItem {
    DB_FIELD_ITEM_NAME = 1,      /* the name, a string */
    DB_FIELD_ITEM_TYPE = 2,      /* u16 slots: [0] 1, [3] 65535, [4] 0 */
    DB_FIELD_ITEM_INDEX = 3,     /* u16, the field's position from 0 */
    DB_FIELD_ITEM_NUMBERS = 4,   /* four u16, the numbers a head record gives */
    DB_FIELD_ITEM_TYPE_NAME = 5  /* the name of the one data type, a string */
};

/* Items of dbGetTableInfoMerge. */
enum DbTableItem {
    DB_TABLE_ITEM_KIND = 1,         /* u16, a DbTableKind */
    DB_TABLE_ITEM_FIELD_COUNT = 2,  /* u16 */
    DB_TABLE_ITEM_PATH = 4          /* the path of the table's file, a string */
};

/* Items of dbGetDBInfoMerge that carry a meaning of their own; items 5, 7, 8,
 * 9, 13 and 16 answer with zeros, the others up to 16 are unsupported. */
enum DbDatabaseItem {
    DB_DATABASE_ITEM_PATH = 1,           /* the directory, a string */
    DB_DATABASE_ITEM_SUBTYPE_NAME = 2,   /* a string of up to 29 characters */
    DB_DATABASE_ITEM_PATH_SIZE = 3,      /* u16, 256 */
    DB_DATABASE_ITEM_NAME_SIZE = 4,      /* u16, 40: a field name */
    DB_DATABASE_ITEM_VALUE_SIZE = 6,     /* u16, 32000: a value or a record */
    DB_DATABASE_ITEM_NO_ERROR_TEXT = 12, /* the text of message 0, a string */
    DB_DATABASE_ITEM_ANSI_OPTION = 15    /* u32, 1 where DB_OPTION_ANSI_TEXT works */
};

/* Limits that a host meets: a put stores at most DB_LONGEST_PUT bytes of
 * text (its value block holds them and a NUL), and no record longer than
 * DB_LONGEST_RECORD bytes, its terminator included, is read or written. */
#define DB_LONGEST_PUT 31999u
#define DB_LONGEST_RECORD 28672u

/* The most fields a table has; a first record with more does not open
 * (ERR_TOO_MANY_FIELDS). */
#define DB_MOST_FIELDS 1000u

/* The largest table file, in bytes, that dbOpenTableMerge opens: offsets
 * are 32 bits wide, and a position of all ones stands for a failure. */
#define DB_LARGEST_TABLE_FILE 0xFFFFFFFEu

/* dbGetSessionInfoMerge: the one item, a byte 0. */
#define DB_SESSION_ITEM_FLAG 1

/* dbSetTableOptionMerge: the file of a delimited table holds its text in the
 * ANSI page (Windows-1252), which the driver converts to and from the OEM
 * page of the host. */
#define DB_OPTION_ANSI_TEXT 1

/* Message ids of a resource module. */
enum DbMessageId {
    DB_MSG_OK = 0,
    DB_MSG_GENERAL = 100,
    DB_MSG_SUBTYPE_TAGGED = 200,
    DB_MSG_SUBTYPE_DELIMITED = 201,
    DB_MSG_DATA_TYPE = 203,
    DB_MSG_KIND_TAGGED_0 = 204,
    DB_MSG_KIND_TAGGED_1 = 205
};

/*
 * A resource module on POSIX is a shared object that exports
 *   const MergeStringEntry mergeStringTable[];
 * ending with an entry whose text is null. The host passes what dlopen
 * returned for it to dbInitMerge.
 */
typedef struct MergeStringEntry {
    uint16_t id;
    const char *text;
} MergeStringEntry;

/* Session and messages. */
MERGEDB_API DbResult MERGEDB_CALL dbInitMerge(uint16_t session, uint32_t, uint32_t, uint32_t,
                                              uint32_t *sessionOut, void *resourceModule);
MERGEDB_API DbResult MERGEDB_CALL dbExitMerge(uint32_t *sessionSlot);
MERGEDB_API int MERGEDB_CALL dbErrMsgMerge(uint32_t code, char *buffer);

/* Databases. */
MERGEDB_API DbResult MERGEDB_CALL dbOpenDBMerge(uint16_t subtype, uint32_t, uint32_t, const char *path,
                                                uint32_t *databaseOut);
MERGEDB_API DbResult MERGEDB_CALL dbCloseDBMerge(uint32_t *databaseSlot);

/* Tables. */
MERGEDB_API DbResult MERGEDB_CALL dbOpenTableMerge(uint16_t subtype, uint32_t database, const char *tableName,
                                                   uint16_t access, uint16_t exclusive, uint32_t *tableOut,
                                                   const char *fieldDelimiter, const char *recordDelimiter,
                                                   const char *quote, const char *ignore, uint32_t);
MERGEDB_API DbResult MERGEDB_CALL dbCloseTableMerge(uint32_t *tableSlot);

/* Fields and table information. */
MERGEDB_API DbResult MERGEDB_CALL dbGetFieldNamesMerge(uint32_t table, char *nameOut, uint16_t *indexOut,
                                                       uint16_t mode);
MERGEDB_API DbResult MERGEDB_CALL dbGetFieldInfoMerge(uint32_t table, const char *name, void *out, uint16_t item);
MERGEDB_API DbResult MERGEDB_CALL dbGetFieldInfoHMerge(uint32_t table, uint16_t index, void *out, uint16_t item);
MERGEDB_API DbResult MERGEDB_CALL dbGetTableInfoMerge(uint32_t table, void *out, uint16_t item);

/* Moves. */
MERGEDB_API DbResult MERGEDB_CALL dbFirstMerge(uint32_t table);
MERGEDB_API DbResult MERGEDB_CALL dbLastMerge(uint32_t table, uint32_t wantMark, uint32_t *mark);
MERGEDB_API DbResult MERGEDB_CALL dbNextMerge(uint32_t table, uint32_t wantMark, uint32_t *mark);
MERGEDB_API DbResult MERGEDB_CALL dbPrevMerge(uint32_t table, uint32_t wantMark, uint32_t *mark);
MERGEDB_API DbResult MERGEDB_CALL dbGetRecordMerge(uint32_t table, uint32_t wantMark, uint32_t *mark,
                                                   uint32_t position);

/* Field values. */
MERGEDB_API DbResult MERGEDB_CALL dbGetFieldValueMerge(uint32_t table, const char *name, void *buffer,
                                                       uint16_t type, uint16_t *length);
MERGEDB_API DbResult MERGEDB_CALL dbGetFieldValueHMerge(uint32_t table, uint16_t number, void *buffer,
                                                        uint16_t type, uint16_t *length);
MERGEDB_API DbResult MERGEDB_CALL dbPutFieldValueMerge(uint32_t table, const char *name, const void *value,
                                                       uint16_t type, uint16_t length);
MERGEDB_API DbResult MERGEDB_CALL dbPutFieldValueHMerge(uint32_t table, uint16_t number, const void *value,
                                                        uint16_t type, uint16_t length);
MERGEDB_API DbResult MERGEDB_CALL dbClearRecordMerge(uint32_t table);

/* Edits. */
MERGEDB_API DbResult MERGEDB_CALL dbInsertMerge(uint32_t table, uint32_t wantMark, uint32_t *mark);
MERGEDB_API DbResult MERGEDB_CALL dbUpdateMerge(uint32_t table, uint32_t wantMark, uint32_t *mark);
MERGEDB_API DbResult MERGEDB_CALL dbDeleteMerge(uint32_t table);

/* Table creation. */
MERGEDB_API DbResult MERGEDB_CALL dbBuildMerge(uint32_t *listSlot, const char *name);
MERGEDB_API DbResult MERGEDB_CALL dbCreateMerge(uint32_t database, const char *tableName, uint32_t list,
                                                uint16_t kind);

/* Search. */
MERGEDB_API DbResult MERGEDB_CALL dbFindRecordMerge(uint32_t table, uint32_t, uint32_t, uint32_t, uint16_t first,
                                                    uint32_t blankRule);

/* Catalogue, capabilities and options. */
MERGEDB_API DbResult MERGEDB_CALL dbGetDBInfoMerge(uint32_t database, void *out, uint16_t item);
MERGEDB_API DbResult MERGEDB_CALL dbGetDBSubTypesMerge(uint32_t database, char *nameOut, uint16_t *kindOut,
                                                       uint16_t firstOrNext);
MERGEDB_API DbResult MERGEDB_CALL dbGetTypeNamesMerge(uint32_t, uint32_t, char *nameOut, uint16_t firstOrNext);
MERGEDB_API DbResult MERGEDB_CALL dbGetTypeInfoMerge(uint32_t, uint32_t, uint16_t a, uint16_t b, uint32_t,
                                                     uint32_t, uint16_t *out1, uint16_t *out2, uint16_t *out3,
                                                     uint32_t *out4);
MERGEDB_API DbResult MERGEDB_CALL dbGetNameInfoMerge(uint32_t, uint32_t, uint32_t, uint32_t, uint16_t *out1,
                                                     uint16_t *out2, uint16_t *out3, uint32_t *out4);
MERGEDB_API DbResult MERGEDB_CALL dbIsIndexedMerge(uint32_t, uint32_t, uint32_t, uint16_t *out1, uint32_t *out2);
MERGEDB_API DbResult MERGEDB_CALL dbIsValidMapMerge(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                                    uint32_t *valid);
MERGEDB_API DbResult MERGEDB_CALL dbRecLockMerge(uint32_t, uint32_t *locked);
MERGEDB_API DbResult MERGEDB_CALL dbRecUnlockMerge(uint32_t, uint32_t *locked);
MERGEDB_API DbResult MERGEDB_CALL dbGetSessionInfoMerge(uint32_t, unsigned char *out, uint16_t item);
MERGEDB_API DbResult MERGEDB_CALL dbSetTableOptionMerge(uint32_t table, uint16_t option);
MERGEDB_API DbResult MERGEDB_CALL dbExistsMerge(uint32_t, uint32_t database, const char *name, uint32_t *exists);
MERGEDB_API DbResult MERGEDB_CALL dbEraseMerge(uint32_t, uint32_t database, const char *name);

/* Table names. */
MERGEDB_API DbResult MERGEDB_CALL dbGetTableNamesMerge(uint32_t database, char *nameOut, uint16_t firstOrNext);

/* Constant answers: there are no queries, indexes or transactions. */
MERGEDB_API DbResult MERGEDB_CALL dbAppendQueryMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbCreateDBMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbCreateIndexMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbEndQueryMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbExecDirectQueryMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbExecQueryMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbFetchQueryMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbGetColumnInfoMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbGetColumnNamesMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbGetIndexInfoMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbGetQueryColMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbGetQueryInfoMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbQueryValueMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbStartQueryMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbGetDBNamesMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbGetIndexNamesMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbCommitMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbRollbackMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbStartTransMerge(void);
MERGEDB_API DbResult MERGEDB_CALL dbSwitchToIndexMerge(void);

#ifdef __cplusplus
}
#endif

#endif /* MERGEDB_MERGEDB_H */
